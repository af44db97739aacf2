#include <facetbox/checks/CheckedMesh.h>

#include <algorithm>
#include <cmath>

namespace util {
namespace {

/// Multiplies by 2^exponent in two steps, for exponents that are too large for one.
struct PowerOfTwo {
  double first, second;

  explicit PowerOfTwo(int exponent)
      : first(std::ldexp(1.0, exponent / 2)), second(std::ldexp(1.0, exponent - exponent / 2)) {}
  Vec3 operator*(const Vec3& p) const { return second * (first * p); }
};

}  // namespace

CheckedMesh::CheckedMesh(const facetbox::MeshView& view, Monitor* monitor) : mView(view), mMonitor(monitor) {
  mFirstCorners.resize(faceCount());
  std::uint32_t first = 0;
  for (std::uint32_t face = 0; face < faceCount(); ++face) {
    mFirstCorners[face] = first;
    first += mView.counts[face];
  }
  readHoles();
  findUsed();
  placeLocally();
  if (!hasHoles()) return;
  mIsReversed.assign(faceCount(), 0);
  for (std::uint32_t face = 0; face < faceCount(); ++face)
    if (isHole(face) && !isLeftOut(face))
      mIsReversed[face] = dot(doubleAreaOf(face), doubleAreaOf(mOuterOf[face])) > 0 ? 1 : 0;
}

void CheckedMesh::readHoles() {
  if (mView.holes.empty()) return;
  mOuterOf.assign(faceCount(), kNone);
  std::uint32_t outer = kNone;
  for (const std::uint32_t entry : mView.holes) {
    if (outer != kNone && entry != kNone) mOuterOf[entry] = outer;
    if (outer == kNone || entry == kNone) outer = entry;
  }
}

void CheckedMesh::findUsed() {
  mIsUsed.assign(vertexCount(), 0);
  for (Monitor::Blocks blocks(mMonitor, faceCount()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      if (isLeftOut(face)) continue;
      for (const std::uint32_t vertex : corners(face)) mIsUsed[vertex] = 1;
    }
  for (Monitor::Blocks blocks(mMonitor, vertexCount()); blocks.next();)
    for (std::uint32_t vertex = blocks.begin(), end = blocks.end(); vertex < end; ++vertex)
      if (isUsed(vertex)) mBox.extend(point(vertex));
}

void CheckedMesh::placeLocally() {
  if (mBox == Box()) return;
  // The difference of the largest numbers is infinite, that of their halves is not.
  const int halving = std::max(largestMagnitude(mBox.min), largestMagnitude(mBox.max)) > 0x1p1000 ? 1 : 0;
  const double half = halving != 0 ? 0.5 : 1.0;
  const Vec3 low = half * mBox.min, extent = half * mBox.max - low;
  const double longest = largestMagnitude(extent);
  const int exponent = longest > 0 ? std::ilogb(longest) + 1 : 0;
  const PowerOfTwo scale(-exponent);
  mLocal.resize(vertexCount());
  for (Monitor::Blocks blocks(mMonitor, vertexCount()); blocks.next();)
    for (std::uint32_t vertex = blocks.begin(), end = blocks.end(); vertex < end; ++vertex)
      mLocal[vertex] = scale * (half * point(vertex) - low);
  mDiagonal = length(scale * extent);
  mExponent = exponent + halving;
}

double CheckedMesh::toLocal(double length) const { return std::ldexp(length, -mExponent); }

double CheckedMesh::fromLocal(double value, int power) const { return std::ldexp(value, power * mExponent); }

Vec3 CheckedMesh::doubleAreaOf(std::uint32_t face) const {
  const auto vertices = corners(face);
  const Vec3 first = mLocal[vertices[0]];
  Vec3 sum{0, 0, 0}, from = mLocal[vertices[1]] - first;
  for (const std::uint32_t vertex : vertices.subspan(2)) {
    const Vec3 to = mLocal[vertex] - first;
    sum = sum + cross(from, to);
    from = to;
  }
  return sum;
}

}  // namespace util
