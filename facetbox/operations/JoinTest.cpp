#include <facetbox/operations/JoinTest.h>

#include <algorithm>

namespace util {
namespace {

/// A face of many corners that so many of them have kept out of regions, each time another one than the time before,
/// joins none any more. As the corner that decided last is asked first, all regions that come across such a face cost
/// no more than so many looks at all of its corners.
constexpr std::uint8_t kMostScans = 64;
constexpr std::size_t kFewCornersToScan = 16;

}  // namespace

/// Whether a neighbor continues the region's material, and its texture coordinates along their common edge.
bool JoinTest::attributesAgree(std::uint32_t face, std::uint32_t corner, std::uint32_t neighbor,
                               std::uint32_t twin) const {
  if (mRuns.materialOf(neighbor) != mRuns.materialOf(mSeed)) return false;
  const auto cornerIn = [&](std::uint32_t f, std::uint32_t position) {
    return position - static_cast<std::uint32_t>(m.mFaces.offset(f));
  };
  const auto after = [&](std::uint32_t f, std::uint32_t c) { return c + 1 == m.mFaces.cornerCount(f) ? 0 : c + 1; };
  const std::uint32_t here = cornerIn(face, corner), there = cornerIn(neighbor, twin);
  return std::ranges::all_of(mTextureMaps, [&](const auto& setAndMap) {
    const int set = setAndMap.first;
    const auto& pairs = m.mTexCoords[static_cast<std::size_t>(set)];
    const auto ours = m.mFaces.cornerSet(face, set), theirs = m.mFaces.cornerSet(neighbor, set);
    return areTexCoordsClose(pairs, ours[here], theirs[after(neighbor, there)]) &&
           areTexCoordsClose(pairs, ours[after(face, here)], theirs[there]);
  });
}

/// Whether all corners of a face continue the seed's texture mapping and, where the face has no plane of its own or all
/// corners are tested, lie in that of the seed as seen from the common edge, which starts at `corner`.
bool JoinTest::cornersFit(std::uint32_t face, std::uint32_t corner) {
  const auto vertices = m.mFaces.corners(face);
  const Vec3& edgeStart = m.mVertices[m.mFaces.vertexAt(corner)];
  const auto fits = [&](std::uint32_t i) {
    const Vec3& p = m.mVertices[vertices[i]];
    if ((mTestsAllCorners || !mPlanes.hasPlane(face)) &&
        !mNormalTest.staysInPlane(p - edgeStart, m.mFaces.normal(mSeed)))
      return false;
    return std::ranges::all_of(mTextureMaps, [&](const auto& setAndMap) {
      const auto& [set, map] = setAndMap;
      const auto& pairs = m.mTexCoords[static_cast<std::size_t>(set)];
      const std::uint32_t pair = m.mFaces.cornerSet(face, set)[i];
      return pair < pairs.size() && map.agrees(p, pairs[pair]);
    });
  };
  if (vertices.size() <= kFewCornersToScan) {
    for (std::uint32_t i = 0; i < vertices.size(); ++i)
      if (!fits(i)) return false;
    return true;
  }
  if (mScans.empty()) mScans.resize(mPlanes.areas().size(), {0, 0});
  Scan& scan = mScans[face];
  if (scan.count != 0 && (scan.count == kMostScans || !fits(scan.corner))) return false;
  for (std::uint32_t i = 0; i < vertices.size(); ++i) {
    if (fits(i)) continue;
    scan = {i, static_cast<std::uint8_t>(scan.count + 1)};
    return false;
  }
  return true;
}

}  // namespace util
