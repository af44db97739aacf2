#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/TexCoordTolerance.h>

namespace util {

/// Whether two indices name texture coordinates that are closer than the tolerance; one beyond the pairs names none.
inline bool areTexCoordsClose(const Buffer<Vec2>& pairs, std::uint32_t a, std::uint32_t b) {
  if (a >= pairs.size() || b >= pairs.size()) return false;
  const double du = pairs[a].x - pairs[b].x, dv = pairs[a].y - pairs[b].y;
  return std::sqrt(du * du + dv * dv) < kTexCoordTolerance;
}

/// The affine map from space to texture coordinates that three corners of a face define.
class TextureMap {
 public:
  /// For set `set` of a face that carries it; `triangle` are corners of the face that span some area.
  TextureMap(const MeshStorage& m, std::size_t face, int set, const std::array<std::uint32_t, 3>& triangle);

  /// Whether a pair is what the map gives for a point. Never where a corner of the triangle has no pair.
  bool agrees(const Vec3& point, const Vec2& pair) const {
    if (!mIsDefined) return false;
    const Vec3 p = point - mOrigin;
    const double s = dot(mDual1, p), t = dot(mDual2, p);
    const double du = mAtOrigin.x + s * mStep1.x + t * mStep2.x - pair.x;
    const double dv = mAtOrigin.y + s * mStep1.y + t * mStep2.y - pair.y;
    return std::sqrt(du * du + dv * dv) < kTexCoordTolerance;
  }

 private:
  bool mIsDefined = false;
  Vec3 mOrigin{}, mDual1{}, mDual2{};
  Vec2 mAtOrigin{}, mStep1{}, mStep2{};
};

/// The texture maps of a face, by its largest triangle, with their sets.
using TextureMaps = std::vector<std::pair<int, TextureMap>>;
/// Appends those of all texture-coordinate sets that a face carries. O(corners).
void appendTextureMaps(const MeshStorage& m, std::uint32_t face, TextureMaps& maps);

}  // namespace util
