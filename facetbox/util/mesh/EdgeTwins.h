#pragma once

#include <cstddef>
#include <cstdint>

#include <facetbox/util/Buffer.h>
#include <facetbox/util/mesh/PrimitiveList.h>

namespace util {

/// Where two faces meet cleanly: an edge that exactly two different faces use, once each, in opposite directions.
struct EdgeTwins {
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  /// Per position of the corner pool: the corner at which the other face's run of the edge starts, or kNone where the
  /// edge that leaves the corner is no clean one.
  Buffer<std::uint32_t> mTwinOf;
  /// Per position of the corner pool: the face that the corner belongs to. Undefined where it belongs to none.
  Buffer<std::uint32_t> mFaceOf;
};

/// Finds the twins of a face list whose vertex indices are below `vertexCount` and below 2^31. O(vertices + corners),
/// O(corners log corners) around a vertex that very many edges share.
EdgeTwins findEdgeTwins(const PrimitiveList& faces, std::size_t vertexCount);

}  // namespace util
