#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <utility>

#include <facetbox/base/Buffer.h>

namespace util {

/// Finds the faces that visit a vertex twice.
class RepeatedVisits {
 public:
  explicit RepeatedVisits(std::size_t vertexCount) : mVertexCount(vertexCount) {}

  /// To be asked once for each face.
  bool anyIn(std::uint32_t face, std::span<const std::uint32_t> corners) {
    const std::size_t n = corners.size();
    if (n <= kFewCornersToCompare) {
      for (std::size_t i = 1; i < n; ++i)
        for (std::size_t j = 0; j < i; ++j)
          if (corners[i] == corners[j]) return true;
      return false;
    }
    if (mLastVisitors.empty()) mLastVisitors.resize(mVertexCount, std::numeric_limits<std::uint32_t>::max());
    for (const std::uint32_t v : corners)
      if (std::exchange(mLastVisitors[v], face) == face) return true;
    return false;
  }

 private:
  static constexpr std::size_t kFewCornersToCompare = 8;  // up to here comparing each with each is cheaper

  std::size_t mVertexCount;
  Buffer<std::uint32_t> mLastVisitors;  // the last face at each vertex; allocated for the first face of many corners
};

}  // namespace util
