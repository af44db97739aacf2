#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include <facetbox/math/Box.h>
#include <facetbox/math/OverlapsBox.h>
#include <facetbox/math/Vec3.h>

/// The slow twin of the octree of boxes.
namespace support {

using util::Box;
using util::Vec3;
using Cells = std::vector<std::uint32_t>;
using Items = std::vector<unsigned>;

/// Whether a box meets the volume that eight corners span: its inner sphere lies within, or a triangle of the surface
/// overlaps it.
inline bool meetsVolume(const std::array<Vec3, 8>& c, const Vec3& center, const Vec3& half) {
  const double r = std::min({std::fabs(half.x), std::fabs(half.y), std::fabs(half.z)});
  const auto inside = [&](const Vec3& p, const Vec3& a, const Vec3& b) {
    const Vec3 n = cross(a, b) / length(cross(a, b));
    return dot(n, center) < dot(n, p) - r;
  };
  if (inside(c[0], c[1] - c[0], c[3] - c[0]) && inside(c[5], c[4] - c[5], c[6] - c[5]) &&
      inside(c[0], c[3] - c[0], c[4] - c[0]) && inside(c[1], c[5] - c[1], c[2] - c[1]) &&
      inside(c[6], c[7] - c[6], c[2] - c[6]) && inside(c[1], c[0] - c[1], c[5] - c[1]))
    return true;
  constexpr std::size_t kTriangles[12][3] = {{0, 1, 2}, {0, 2, 3}, {4, 5, 6}, {4, 6, 7}, {2, 3, 7}, {2, 7, 6},
                                             {0, 1, 4}, {1, 4, 5}, {0, 3, 7}, {0, 7, 4}, {1, 2, 6}, {1, 6, 5}};
  return std::ranges::any_of(kTriangles, [&](const std::size_t(&t)[3]) {
    return util::overlapsBox(&c[t[0]].x, &c[t[1]].x, &c[t[2]].x, &center.x, &half.x);
  });
}

inline bool meetsVolume(const std::array<Vec3, 8>& corners, const Box& box) {
  if (box.min.x > box.max.x || box.min.y > box.max.y || box.min.z > box.max.z) return false;
  return meetsVolume(corners, box.min + (box.max - box.min) / 2, (box.max - box.min) / 2);
}

inline std::array<double, 3> arrayOf(const Vec3& v) { return {v.x, v.y, v.z}; }

/// The records of a tree in one list, each with its cell; all looked at in every query.
class PlainOctree {
 public:
  explicit PlainOctree(double halfSize) : mHalfSize(halfSize) {}

  struct Record {
    Box box;
    unsigned item;
    std::uint32_t cell;
  };
  struct Cube {
    std::array<double, 3> center;
    double halfSize;
  };

  std::uint32_t cellOf(const Box& box) const {
    std::uint32_t cell = 0;
    std::array<double, 3> c = mCenter;
    double h = mHalfSize;
    const auto min = arrayOf(box.min), max = arrayOf(box.max);
    for (int descents = 0; descents < 4; ++descents) {
      std::array<bool, 3> low{}, high{};
      for (int a = 0; a < 3; ++a) {
        low[a] = c[a] >= max[a];
        high[a] = !low[a] && min[a] >= c[a];
        if (!low[a] && !high[a]) return cell;
      }
      h = h / 2;
      cell = 8 * cell + 1 + (high[2] ? 4 : 0) + (high[1] ? 2 : 0) + (high[0] ? 1 : 0);
      for (int a = 0; a < 3; ++a) c[a] += high[a] ? h : -h;
    }
    return cell;
  }

  /// The way from the root to a cell; comparing ways compares by depth first, children by number.
  static Cells wayTo(std::uint32_t cell) {
    Cells way;
    for (; cell != 0; cell = (cell - 1) / 8) way.insert(way.begin(), cell);
    return way;
  }

  Cube cubeOf(std::uint32_t cell) const {
    Cube cube{mCenter, mHalfSize};
    for (const std::uint32_t step : wayTo(cell)) {
      cube.halfSize /= 2;
      for (int a = 0; a < 3; ++a) cube.center[a] += ((step - 1) >> a & 1) != 0 ? cube.halfSize : -cube.halfSize;
    }
    return cube;
  }

  void insert(const Box& box, unsigned item) { mRecords.push_back({box, item, cellOf(box)}); }

  std::vector<Record> sorted() const {
    std::vector<Record> records = mRecords;
    std::ranges::stable_sort(records, {}, [](const Record& r) { return wayTo(r.cell); });
    return records;
  }

  void ensureContains(const Box& box) {
    bool contained = true;
    for (int a = 0; a < 3; ++a)
      contained =
          contained && arrayOf(box.max)[a] <= mCenter[a] + mHalfSize && mCenter[a] - mHalfSize <= arrayOf(box.min)[a];
    if (contained || !hasPlace(box)) return;
    const std::vector<Record> records = sorted();
    Box all = box;
    for (const Record& r : records)
      if (hasPlace(r.box)) all.extend(r.box);
    double half = 0;
    for (int a = 0; a < 3; ++a) {
      mCenter[a] = (arrayOf(all.min)[a] + arrayOf(all.max)[a]) / 2;
      half = std::max(half, (arrayOf(all.max)[a] - arrayOf(all.min)[a]) / 2);
    }
    while (half > mHalfSize) mHalfSize *= 2;
    mRecords.clear();
    for (const Record& r : records) insert(r.box, r.item);
  }

  /// Boxes beyond 1e300 do not move the root; where they are empty, they are not beyond.
  static bool hasPlace(const Box& box) {
    bool isNear = true;
    for (std::size_t a = 0; a < 3; ++a) {
      const double min = arrayOf(box.min)[a], max = arrayOf(box.max)[a];
      isNear = isNear && (min > max || (std::fabs(min) <= 1e300 && std::fabs(max) <= 1e300));
    }
    return isNear;
  }

  /// Items whose boxes meet the volume, in the order that is promised.
  Items queryFrustum(const std::array<Vec3, 8>& corners) const {
    Items found;
    for (const Record& r : sorted()) {
      const Cells way = wayTo(r.cell);
      const auto meets = [&](std::uint32_t cell) {
        const Cube cube = cubeOf(cell);
        return meetsVolume(corners, {cube.center[0], cube.center[1], cube.center[2]},
                           {cube.halfSize, cube.halfSize, cube.halfSize});
      };
      if (meets(0) && std::ranges::all_of(way, meets) && meetsVolume(corners, r.box)) found.push_back(r.item);
    }
    return found;
  }

  std::array<double, 3> center() const { return mCenter; }
  double halfSize() const { return mHalfSize; }

 private:
  std::vector<Record> mRecords;
  std::array<double, 3> mCenter{0, 0, 0};
  double mHalfSize;
};

}  // namespace support
