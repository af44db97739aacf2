#include <facetbox/picker/Pickable.h>

#include <algorithm>
#include <cassert>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>
#include <utility>

#include <facetbox/math/Matrix4.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/triangles/ClipPlanes.h>
#include <facetbox/triangles/FrustumCulling.h>

namespace util {

Pickable::Pickable(std::int32_t id, const double matrix[16], Meshes meshes) : mId(id), mMeshes(std::move(meshes)) {
  assert(std::ranges::all_of(mMeshes, [](const auto& mesh) { return mesh != nullptr; }));
  std::copy_n(matrix, 16, mMatrix);
}

Box Pickable::measure() {
  mHasTriangles = std::ranges::any_of(mMeshes, [](const auto& mesh) { return !mesh->indices().empty(); });
  mIsSmall = std::ranges::all_of(mMeshes,
                                 [](const auto& mesh) { return mesh->vertexCoordinates().size() <= 3 * kFewVertices; });
  mLocalBox = mUntranslated = Box{};
  const Vec3 translation = toVec3(mMatrix + 12);
  Box world;
  double zero = 0;  // becomes NaN with the first number that is not finite
  for (const auto& mesh : mMeshes) {
    const std::span<const double> vertices = mesh->vertexCoordinates();
    for (std::size_t v = 0; v + 2 < vertices.size(); v += 3) {
      const double x = vertices[v], y = vertices[v + 1], z = vertices[v + 2];
      const Vec3 p{mMatrix[0] * x + mMatrix[4] * y + mMatrix[8] * z, mMatrix[1] * x + mMatrix[5] * y + mMatrix[9] * z,
                   mMatrix[2] * x + mMatrix[6] * y + mMatrix[10] * z};
      mLocalBox.extend(Vec3{x, y, z});
      mUntranslated.extend(p);
      world.extend(p + translation);
      zero += 0.0 * p.x + 0.0 * p.y + 0.0 * p.z;
    }
  }
  mIsFinite = zero == 0;
  if (!mIsFinite) mLocalBox = Box{};
  mReach = hasBoundedReach() ? largestReach() : std::numeric_limits<double>::infinity();
  return world;
}

/// Whether the object has finite vertices, and a matrix as ClipPlanes wants it.
bool Pickable::hasBoundedReach() const {
  const bool isPlaced = mMatrix[3] == 0 && mMatrix[7] == 0 && mMatrix[11] == 0 && mMatrix[15] == 1;
  // A large element that meets no coordinate but 0 may still overflow in a product of matrices.
  const bool isModest =
      std::all_of(mMatrix, mMatrix + 12, [](double x) { return std::fabs(x) <= ClipPlanes::kLargestMagnitude; });
  return mIsFinite && isPlaced && isModest && mLocalBox.min.x <= mLocalBox.max.x;
}

/// The largest that the magnitudes of a world coordinate's terms add up to, without the translation.
double Pickable::largestReach() const {
  const auto largest = [](double min, double max) { return std::max(std::fabs(min), std::fabs(max)); };
  const Vec3 p{largest(mLocalBox.min.x, mLocalBox.max.x), largest(mLocalBox.min.y, mLocalBox.max.y),
               largest(mLocalBox.min.z, mLocalBox.max.z)};
  double reach = 0;
  for (int row = 0; row < 3; ++row)
    reach = std::max(
        reach, std::fabs(mMatrix[row]) * p.x + std::fabs(mMatrix[4 + row]) * p.y + std::fabs(mMatrix[8 + row]) * p.z);
  return reach;
}

Box Pickable::move(const Vec3& offset) {
  const double translation[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, offset.x, offset.y, offset.z, 1};
  double moved[16];
  multiply(translation, mMatrix, moved);
  bool onlyTranslationChanged = true;
  for (const int column : {0, 4, 8})
    for (int i = column; i < column + 3; ++i) onlyTranslationChanged = onlyTranslationChanged && moved[i] == mMatrix[i];
  std::copy_n(moved, 16, mMatrix);
  std::vector<RayTransform>().swap(mRayTransforms);
  mWasAsked = false;

  // Rounded addition is monotone: the smallest coordinate plus the translation is the smallest of all these sums.
  if (onlyTranslationChanged && mIsFinite && mUntranslated.min.x <= mUntranslated.max.x) {
    const Vec3 to = toVec3(mMatrix + 12);
    const Box world{mUntranslated.min + to, mUntranslated.max + to};
    if (isFinite(world.min) && isFinite(world.max)) return world;
  }
  return measure();
}

double Pickable::magnitude() const {
  // The last row's translation is 1.
  return mReach + std::fabs(mMatrix[12]) + std::fabs(mMatrix[13]) + std::fabs(mMatrix[14]) + 1;
}

bool Pickable::isInClipVolume(const double viewProjection[16], bool wholeInside) const {
  double c[16];
  multiply(viewProjection, mMatrix, c);
  // The box in the object's own coordinates is tighter. Of few vertices, the first one outside tells more.
  const ClipSide side = mIsSmall ? ClipSide::unsure : sideOfClipCube(mLocalBox, c);
  if (side == ClipSide::outside) return false;
  if (side == ClipSide::inside) return wholeInside || mHasTriangles;
  if (wholeInside) return std::ranges::all_of(mMeshes, [&](const auto& mesh) { return liesInClipCube(*mesh, c); });
  return std::ranges::any_of(mMeshes, [&](const auto& mesh) { return overlapsClipCube(*mesh, c); });
}

/// The first ray after a change does without transforms of its own: most objects are asked once, if at all.
void Pickable::prepareForRays() {
  if (mWasAsked && mRayTransforms.empty()) {
    std::vector<RayTransform> transforms;
    transforms.reserve(mMeshes.size());
    for (const auto& mesh : mMeshes) transforms.emplace_back(*mesh, mMatrix);
    mRayTransforms = std::move(transforms);
  }
  mWasAsked = true;
}

Pickable::RayHit Pickable::intersectRay(const double origin[3], const double direction[3], bool wantsNormal) {
  prepareForRays();
  RayHit best{false, FLT_MAX, {0, 0, 0}};
  for (std::size_t i = 0; i < mMeshes.size(); ++i) {
    double t = FLT_MAX, normal[3];
    double* const normalOut = wantsNormal ? normal : nullptr;
    const bool isHit =
        mRayTransforms.empty()
            ? util::intersectRay(*mMeshes[i], mMatrix, origin, direction, &t, normalOut)
            : util::intersectRay(*mMeshes[i], mRayTransforms[i], mMatrix, origin, direction, &t, normalOut);
    if (!isHit) continue;
    best.isHit = true;
    if (!(t < best.t)) continue;
    best.t = t;
    if (wantsNormal) std::copy_n(normal, 3, best.normal);
  }
  return best;
}

}  // namespace util
