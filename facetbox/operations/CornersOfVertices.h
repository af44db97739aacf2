#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/mesh/PrimitiveList.h>

namespace util {

/// A corner of a face by its place.
struct FaceCorner {
  std::uint32_t face;
  std::uint32_t position;  ///< within the face
};

/// The corners at the marked vertices, for each vertex by face and position. O(vertices + corners).
class CornersOfVertices {
 public:
  CornersOfVertices(const PrimitiveList& faces, const std::vector<bool>& marked, Monitor* monitor)
      : mEnds(marked.size() + 1, 0) {
    forEachMarked(faces, marked, monitor, [&](std::uint32_t v, FaceCorner) { ++mEnds[v + 1]; });
    for (std::size_t v = 1; v < mEnds.size(); ++v) mEnds[v] += mEnds[v - 1];
    mCorners.resize(mEnds.back());
    // Filling moves the start of the corners of v, kept in mEnds[v], to their end.
    forEachMarked(faces, marked, monitor, [&](std::uint32_t v, FaceCorner corner) { mCorners[mEnds[v]++] = corner; });
  }

  std::span<const FaceCorner> operator[](std::size_t v) const {
    const std::size_t begin = v == 0 ? 0 : mEnds[v - 1];
    return {mCorners.data() + begin, mEnds[v] - begin};
  }

 private:
  template <class Use>
  static void forEachMarked(const PrimitiveList& faces, const std::vector<bool>& marked, Monitor* monitor, Use use) {
    for (Monitor::Blocks blocks(monitor, faces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
        const auto corners = faces.corners(face);
        for (std::size_t i = 0; i < corners.size(); ++i)
          if (marked[corners[i]])
            use(corners[i], FaceCorner{static_cast<std::uint32_t>(face), static_cast<std::uint32_t>(i)});
      }
  }

  Buffer<std::uint32_t> mEnds;
  Buffer<FaceCorner> mCorners;
};

}  // namespace util
