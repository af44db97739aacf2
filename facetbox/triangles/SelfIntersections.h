#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/base/Monitor.h>

namespace util {

/// Triangles, and the faces that they are parts of.
struct FaceTriangles {
  std::span<const double> points;          ///< x, y, z per vertex, finite
  std::span<const std::uint32_t> corners;  ///< three vertices per triangle
  std::span<const std::uint32_t> faces;    ///< of each triangle; empty where triangles are faces themselves
  /// Whether a vertex is a corner of a face of more than three corners: what two faces share by number counts, not only
  /// what two triangles share. Not asked where `faces` is empty.
  std::function<bool(std::uint32_t face, std::uint32_t vertex)> isCornerOf;
};

struct SelfIntersections {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;  ///< lower face first, ascending, each once
  bool isComplete = true;                                      ///< false: the limit was reached
};

/// The pairs of different faces whose triangles meet elsewhere than in what they share (see meetElsewhere()).
/// @param limit    of pairs; where there are more, that many of them are returned, the same ones each time
/// @param monitor  may be null
/// O(n log n) and the pairs of triangles whose boxes meet.
SelfIntersections findSelfIntersections(const FaceTriangles& triangles, std::size_t limit, Monitor* monitor = nullptr);

}  // namespace util
