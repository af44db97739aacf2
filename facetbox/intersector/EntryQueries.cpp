#include <facetbox/intersector/EntryQueries.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

#include <facetbox/math/Matrix4.h>
#include <facetbox/math/OverlapsBox.h>
#include <facetbox/triangles/ClipProjection.h>
#include <facetbox/triangles/FrustumCulling.h>

namespace util {

using Positions = std::span<const double>;

namespace {

/// The whole way of an instance's vertices into clip space.
class ClipMatrix {
 public:
  ClipMatrix(const double view[16], const Instance& instance) : mMatrix(view) {
    if (!instance.mTransform) return;
    multiply(view, instance.mTransform->data(), mProduct);
    mMatrix = mProduct;
  }
  ClipMatrix(const ClipMatrix&) = delete;
  ClipMatrix& operator=(const ClipMatrix&) = delete;

  const double* get() const { return mMatrix; }

 private:
  const double* mMatrix;
  double mProduct[16];
};

RasterPosition project(const IntersectionRaster& raster, double x, double y, double z) {
  return raster.project(static_cast<float>(x), static_cast<float>(y), static_cast<float>(z));
}

/// Whether the box lies beside the raster.
bool missesRaster(const TriangleMesh& box, const IntersectionRaster& raster) {
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min(),
                         kMost = std::numeric_limits<std::int32_t>::max();
  std::int32_t minColumn = kMost, maxColumn = kLeast, minRow = kMost, maxRow = kLeast;
  const Positions vertices = box.vertexCoordinates();
  for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) {
    const RasterPosition p = project(raster, vertices[v], vertices[v + 1], vertices[v + 2]);
    minColumn = std::min(minColumn, p.mColumn);
    maxColumn = std::max(maxColumn, p.mColumn);
    minRow = std::min(minRow, p.mRow);
    maxRow = std::max(maxRow, p.mRow);
  }
  return minColumn >= raster.width() || maxColumn < 0 || minRow >= raster.height() || maxRow < 0;
}

/// Where vertices lie in the world, divided by their |w|. One without stays at its predecessor's place, on purpose.
class WorldPositions {
 public:
  explicit WorldPositions(const double* transform) : mTransform(transform) {}

  const double* next(const double* vertex) {
    if (!mTransform) return vertex;
    const double* t = mTransform;
    const double x = vertex[0], y = vertex[1], z = vertex[2];
    const double w = std::fabs(t[3] * x + t[7] * y + t[11] * z + t[15]);
    if (!(w > kSmallestW)) return mLast;
    mLast[0] = t[0] * x + t[4] * y + t[8] * z + t[12];
    mLast[1] = t[1] * x + t[5] * y + t[9] * z + t[13];
    mLast[2] = t[2] * x + t[6] * y + t[10] * z + t[14];
    // Hardly any transform has a w of its own, and a division by 1 changes nothing.
    if (w != 1)
      for (double& coordinate : mLast) coordinate /= w;
    return mLast;
  }

 private:
  const double* mTransform;
  double mLast[3] = {0, 0, 0};
};

bool showsOnRaster(const Instance& instance, const IntersectionRaster& raster, QueryScratch& scratch) {
  const Positions vertices = instance.mMesh->vertexCoordinates();
  scratch.mCells.resize(vertices.size() / 3);
  RasterCell* cells = scratch.mCells.data();
  WorldPositions positions(instance.mTransform ? instance.mTransform->data() : nullptr);
  for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) {
    const double* world = positions.next(&vertices[v]);
    const RasterPosition p = project(raster, world[0], world[1], world[2]);
    if (!raster.isUsable(p)) return false;
    *cells++ = {p.mColumn, p.mRow};
  }
  return raster.areEdgesSet(*instance.mMesh->edges(), scratch.mCells.data());
}

/// A box's vertex in clip space; one without projection keeps its world coordinates, unlike an instance's.
void projectBoxVertex(const double view[16], const double* vertex, double out[3]) {
  if (!projectToClipSpace(view, vertex, out)) std::copy_n(vertex, 3, out);
}

}  // namespace

bool showsOnRaster(const Entry& entry, const IntersectionRaster& raster, QueryScratch& scratch) {
  if (entry.mBox && missesRaster(*entry.mBox, raster)) return false;
  return std::ranges::all_of(entry.mInstances,
                             [&](const Instance& instance) { return showsOnRaster(instance, raster, scratch); });
}

bool boxOverlapsVolume(const Entry& entry, const double view[16], QueryScratch& scratch) {
  if (!entry.mBox) return true;
  const Positions vertices = entry.mBox->vertexCoordinates();
  const std::span<const std::uint32_t> indices = entry.mBox->indices();
  scratch.mProjected.resize(vertices.size());
  double* projected = scratch.mProjected.data();
  for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) projectBoxVertex(view, &vertices[v], projected + v);
  for (std::size_t i = 0; i + 2 < indices.size(); i += 3)
    if (overlapsBox(projected + 3 * std::size_t{indices[i]}, projected + 3 * std::size_t{indices[i + 1]},
                    projected + 3 * std::size_t{indices[i + 2]}, kClipCubeCenter, kClipCubeHalf))
      return true;
  return false;
}

bool overlapsVolume(const Entry& entry, const double view[16], QueryScratch& scratch) {
  return boxOverlapsVolume(entry, view, scratch) &&
         std::ranges::any_of(entry.mInstances, [&](const Instance& instance) {
           return overlapsClipCube(*instance.mMesh, ClipMatrix(view, instance).get());
         });
}

bool liesInVolume(const Entry& entry, const double view[16]) {
  if (entry.mBox) {
    const Positions vertices = entry.mBox->vertexCoordinates();
    bool allInside = true, someInside = false;
    for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) {
      double p[3];
      projectBoxVertex(view, &vertices[v], p);
      const bool isInside = isInClipCube(p);
      allInside = allInside && isInside;
      someInside = someInside || isInside;
    }
    if (allInside) return true;
    if (!someInside) return false;
  }
  return std::ranges::all_of(entry.mInstances, [&](const Instance& instance) {
    return liesInClipCube(*instance.mMesh, ClipMatrix(view, instance).get());
  });
}

const NearestHit* findNearest(const Entry& entry, NearestSearch& search, QueryScratch& scratch) {
  if (!boxOverlapsVolume(entry, search.view(), scratch)) return nullptr;
  for (const Instance& instance : entry.mInstances)
    search.search(*instance.mMesh, instance.mTransform ? instance.mTransform->data() : nullptr);
  return search.hit();
}

bool intersectsRay(Entry& entry, const double origin[3], const double direction[3], double* t, double* normal) {
  double best = FLT_MAX;
  bool isHit = false;
  for (Instance& instance : entry.mInstances) {
    const double* matrix = instance.mTransform ? instance.mTransform->data() : kIdentity;
    double instanceT = FLT_MAX, instanceNormal[3];
    double* normalSlot = normal ? instanceNormal : nullptr;
    bool meets;
    if (instance.mMesh->hierarchy()) {
      if (!instance.mRayTransform) instance.mRayTransform = std::make_unique<RayTransform>(*instance.mMesh, matrix);
      meets = intersectRay(*instance.mMesh, *instance.mRayTransform, matrix, origin, direction, &instanceT, normalSlot);
    } else {
      meets = intersectRayPlain(*instance.mMesh, matrix, origin, direction, &instanceT, normalSlot);
    }
    // Strictly: the earlier instance wins a tie.
    if (!meets || !(instanceT < best)) continue;
    isHit = true;
    best = instanceT;
    if (normal) std::copy_n(instanceNormal, 3, normal);
  }
  if (isHit) *t = best;
  return isHit;
}

}  // namespace util
