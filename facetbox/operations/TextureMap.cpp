#include <facetbox/operations/TextureMap.h>

#include <bit>
#include <cassert>

#include <facetbox/operations/TexCoordTolerance.h>

namespace util {
namespace {

/// Three corners of a face that span the largest triangle; for faces of many corners a large one: the corner farthest
/// from the first one, and the corner that spans most with these two.
std::array<std::uint32_t, 3> largestTriangle(const MeshStorage& m, std::size_t face) {
  constexpr std::uint32_t kTryAllUpTo = 12;
  const auto corners = m.mFaces.corners(face);
  const auto n = static_cast<std::uint32_t>(corners.size());
  assert(n >= 3);
  const auto at = [&](std::uint32_t corner) { return m.mVertices[corners[corner]]; };
  std::array<std::uint32_t, 3> best{0, 1, 2};
  double bestSq = -1.0;
  const auto consider = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    const double areaSq = lengthSq(cross(at(b) - at(a), at(c) - at(a)));
    if (!(areaSq > bestSq)) return;
    best = {a, b, c};
    bestSq = areaSq;
  };
  if (n <= kTryAllUpTo) {
    for (std::uint32_t a = 0; a + 2 < n; ++a)
      for (std::uint32_t b = a + 1; b + 1 < n; ++b)
        for (std::uint32_t c = b + 1; c < n; ++c) consider(a, b, c);
    return best;
  }
  std::uint32_t farthest = 1;
  for (std::uint32_t b = 2; b < n; ++b)
    if (lengthSq(at(b) - at(0)) > lengthSq(at(farthest) - at(0))) farthest = b;
  for (std::uint32_t c = 1; c < n; ++c)
    if (c != farthest) consider(0, farthest, c);
  return best;
}

}  // namespace

TextureMap::TextureMap(const MeshStorage& m, std::size_t face, int set, const std::array<std::uint32_t, 3>& triangle) {
  assert(m.mFaces.carries(face, set));
  const auto corners = m.mFaces.corners(face);
  const auto indices = m.mFaces.cornerSet(face, set);
  const auto& pairs = m.mTexCoords[static_cast<std::size_t>(set)];
  for (const std::uint32_t corner : triangle)
    if (indices[corner] >= pairs.size()) return;
  mOrigin = m.mVertices[corners[triangle[0]]];
  const Vec3 e1 = m.mVertices[corners[triangle[1]]] - mOrigin, e2 = m.mVertices[corners[triangle[2]]] - mOrigin;
  // Dual basis of the two edges: s = dual1 . (p - origin), t = dual2 . (p - origin).
  const double d11 = dot(e1, e1), d12 = dot(e1, e2), d22 = dot(e2, e2), det = d11 * d22 - d12 * d12;
  mDual1 = (1.0 / det) * (d22 * e1 - d12 * e2);
  mDual2 = (1.0 / det) * (d11 * e2 - d12 * e1);
  mAtOrigin = pairs[indices[triangle[0]]];
  const Vec2 at1 = pairs[indices[triangle[1]]], at2 = pairs[indices[triangle[2]]];
  mStep1 = {at1.x - mAtOrigin.x, at1.y - mAtOrigin.y};
  mStep2 = {at2.x - mAtOrigin.x, at2.y - mAtOrigin.y};
  mIsDefined = true;
}

void appendTextureMaps(const MeshStorage& m, std::uint32_t face, TextureMaps& maps) {
  std::uint32_t sets = m.mFaces.mask(face) & ((1u << PrimitiveList::kTexCoordSets) - 1);
  if (sets == 0) return;
  const auto triangle = largestTriangle(m, face);
  for (; sets != 0; sets &= sets - 1)
    maps.emplace_back(std::countr_zero(sets), TextureMap(m, face, std::countr_zero(sets), triangle));
}

}  // namespace util
