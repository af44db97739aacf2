#pragma once

#include <cstdint>

namespace util {

/// The vertices at the other ends of a vertex's edges, as long as they are no more than two. A vertex that follows
/// itself in a face is its own neighbor.
struct VertexNeighbors {
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  std::uint32_t first = kNone;
  std::uint32_t second = kNone;  ///< equal to `first` for "none" and "more than two"

  void add(std::uint32_t v) {
    if (v == first || v == second) return;
    if (first == kNone)
      first = v;
    else
      second = second == kNone ? v : first;
  }
  /// Makes them more than two, for good.
  void addMany() { first = second = 0; }

  bool areOneOrTwo() const { return first != second; }
  bool areTwo() const { return first != second && second != kNone; }
};

}  // namespace util
