#include <tools/MeshFacts.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <set>
#include <span>
#include <utility>

#include <facetbox/check.h>
#include <tools/Vector.h>
#include <tools/Welds.h>

namespace tool {
namespace {

using Corners = std::span<const std::uint32_t>;

// Of the boxes of several meshes.
class Box {
 public:
  void add(const std::vector<double>& points) {
    if (points.empty()) return;
    if (std::exchange(mIsEmpty, false)) {
      mMin.fill(std::numeric_limits<double>::max());
      mMax.fill(std::numeric_limits<double>::lowest());
    }
    for (std::size_t i = 0; i < points.size(); i += 3) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        mMin[axis] = std::min(mMin[axis], points[i + axis]);
        mMax[axis] = std::max(mMax[axis], points[i + axis]);
      }
    }
  }
  double diagonal() const { return std::hypot(mMax[0] - mMin[0], mMax[1] - mMin[1], mMax[2] - mMin[2]); }

  std::array<double, 3> mMin = {}, mMax = {};

 private:
  bool mIsEmpty = true;
};

Box boxOf(const facetbox::Model& model) {
  Box box;
  for (const facetbox::Object& object : model.objects) box.add(object.mesh.points);
  return box;
}

// Twice its area vector is exactly nothing, relative to the first corner.
bool hasNoArea(const facetbox::PolyMesh& mesh, Corners corners) {
  const double* const origin = &mesh.points[std::size_t{3} * corners[0]];
  const auto edgeTo = [&](std::uint32_t vertex) {
    const double* const p = &mesh.points[std::size_t{3} * vertex];
    return Vector{p[0] - origin[0], p[1] - origin[1], p[2] - origin[2]};
  };
  Vector sum;
  for (std::size_t i = 2; i < corners.size(); ++i) sum = sum + cross(edgeTo(corners[i - 1]), edgeTo(corners[i]));
  return sum.x == 0 && sum.y == 0 && sum.z == 0;
}

// Number of vertices that a weld removes when no face can prevent it.
std::size_t countDuplicates(const facetbox::PolyMesh& mesh, double tolerance) {
  const std::vector<std::uint32_t> groups = weldGroups(mesh.points, tolerance);
  std::vector<bool> isTaken(groups.size());
  std::size_t duplicates = 0;
  for (const std::uint32_t group : groups) {
    duplicates += isTaken[group] ? 1 : 0;
    isTaken[group] = true;
  }
  return duplicates;
}

void addObject(const facetbox::PolyMesh& mesh, MeshFacts& facts) {
  facetbox::CheckOptions options;
  options.zeroFaceArea = 1e-12 * facts.mDiagonal * facts.mDiagonal;
  options.tCorners = false;
  const facetbox::Defects defects = facetbox::check(mesh, options);
  facts.mRepeatingFaces += defects.repeatedCorners.size();
  facts.mNearlyZeroAreaFaces += defects.zeroFaces.size();
  facts.mBorderEdges += defects.openEdges.size();
  facts.mOverusedEdges += defects.overusedEdges.size();
  facts.mSameDirectionEdges += defects.sameDirectionEdges.size();
  facts.mUnusedVertices += defects.unusedVertices.size();
  facts.mDuplicateVertices += defects.sameVertices.size();
  facts.mNearlyDuplicateVertices += countDuplicates(mesh, kNearlySame * facts.mDiagonal);
  facts.mDoubleFaces += defects.doubleFaces.size();
  facts.mBadHoles += defects.droppedHoles.size();
  facts.mArea += defects.area;
  facts.mVolume += defects.volume;
  facts.mIsSolid = facts.mIsSolid && defects.isClosed && defects.isOriented;

  std::vector<std::size_t> firstCorners(mesh.counts.size());
  std::exclusive_scan(mesh.counts.begin(), mesh.counts.end(), firstCorners.begin(), std::size_t{0});
  const auto cornersOf = [&](std::uint32_t face) {
    return Corners(mesh.indices).subspan(firstCorners[face], mesh.counts[face]);
  };
  for (const std::uint32_t face : defects.zeroFaces) facts.mZeroAreaFaces += hasNoArea(mesh, cornersOf(face));
  std::set<std::pair<std::uint32_t, std::uint32_t>> zeroEdges;
  for (const auto& [face, corner] : defects.zeroEdges) {
    const Corners corners = cornersOf(face);
    zeroEdges.insert(std::minmax(corners[corner], corners[(corner + 1) % corners.size()]));
  }
  facts.mZeroLengthEdges += zeroEdges.size();
}

void countMaterials(const facetbox::Model& model, MeshFacts& facts) {
  using facetbox::kNone;
  std::vector<std::size_t> faces(model.materials.size());
  std::uint32_t last = kNone;
  for (const facetbox::Object& object : model.objects) {
    for (std::size_t face = 0; face < object.mesh.counts.size(); ++face) {
      const std::uint32_t material =
          object.mesh.labels.empty() ? kNone : model.marks[object.mesh.labels[face]].material;
      if (material != kNone) {
        ++faces[material];
        if (material != last) ++facts.mMaterialRuns;
      }
      last = material;
    }
  }
  for (std::size_t material = 0; material < faces.size(); ++material) {
    if (faces[material] > 0) facts.mFacesByMaterial.emplace_back(model.materials[material].name, faces[material]);
  }
}

void countParts(const facetbox::PolyMesh& mesh, MeshFacts& facts) {
  facts.mVertices += mesh.points.size() / 3;
  facts.mFaces += mesh.counts.size();
  facts.mCorners += mesh.indices.size();
  facts.mTexCoords += mesh.texCoords.size() / 2;
  for (const std::uint32_t count : mesh.counts) {
    ++facts.mFacesByCorners[count];
    if (count < 3) ++facts.mIllegalFaces;
  }
  const auto groups = static_cast<std::size_t>(std::count(mesh.holes.begin(), mesh.holes.end(), facetbox::kNone));
  facts.mHoleGroups += groups;
  facts.mHoleFaces += mesh.holes.size() - 2 * groups;
}

}  // namespace

double boundingBoxDiagonal(const facetbox::Model& model) { return boxOf(model).diagonal(); }

double boundingBoxDiagonal(const facetbox::PolyMesh& mesh) {
  Box box;
  box.add(mesh.points);
  return box.diagonal();
}

MeshFacts gatherFacts(const facetbox::Model& model) {
  MeshFacts facts;
  const Box box = boxOf(model);
  facts.mMin = box.mMin;
  facts.mMax = box.mMax;
  facts.mDiagonal = box.diagonal();
  for (const facetbox::Object& object : model.objects) {
    countParts(object.mesh, facts);
    addObject(object.mesh, facts);
  }
  countMaterials(model, facts);
  return facts;
}

}  // namespace tool
