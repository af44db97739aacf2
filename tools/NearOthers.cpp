#include <tools/NearOthers.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace tool {
namespace {

// Cells over all vertices, each with the object that reaches into it, or with the fact that it is of interest.
class Grid {
 public:
  Grid(const facetbox::Model& model, double reach) {
    std::array<double, 3> max;
    mMin.fill(std::numeric_limits<double>::max());
    max.fill(std::numeric_limits<double>::lowest());
    std::size_t numbers = 0;
    for (const facetbox::Object& object : model.objects) {
      const std::vector<double>& points = object.mesh.points;
      numbers += points.size();
      for (std::size_t i = 0; i < points.size(); ++i) {
        mMin[i % 3] = std::min(mMin[i % 3], points[i]);
        max[i % 3] = std::max(max[i % 3], points[i]);
      }
    }
    const double most = std::clamp(static_cast<double>(numbers), 64.0, 4e6);
    const double longest = std::max({max[0] - mMin[0], max[1] - mMin[1], max[2] - mMin[2]});
    const auto countOf = [&](std::size_t axis, double size) { return std::floor((max[axis] - mMin[axis]) / size) + 1; };
    double size = std::max(2 * reach, longest / most);
    while (size > 0 && countOf(0, size) * countOf(1, size) * countOf(2, size) > most) size *= 1.1;
    // One cell for all, where lengths overflow or there are none.
    if (!(size > 0 && std::isfinite(size) && std::isfinite(longest))) size = std::numeric_limits<double>::max();
    mScale = 1 / size;
    mReach = reach * mScale + 1e-6;  // and what rounding makes of it
    for (std::size_t axis = 0; axis < 3; ++axis)
      mCounts[axis] = std::isfinite(longest) ? static_cast<std::uint32_t>(countOf(axis, size)) : 1;
    mOwners.resize(std::size_t{mCounts[0]} * mCounts[1] * mCounts[2], kFree);
  }

  bool isShared(const double* point) const { return mOwners[cellOf(point)] == kShared; }

  // The cells within reach of a point become those of an object, and of interest if another has them.
  void claim(const double* point, std::uint32_t object) {
    forCellsAround(point, [&](std::uint32_t& owner) { owner = owner == kFree || owner == object ? object : kShared; });
  }

  // Cells within reach become of interest. Returns whether any was not.
  bool share(const double* point) {
    bool isNew = false;
    forCellsAround(point, [&](std::uint32_t& owner) { isNew |= std::exchange(owner, kShared) != kShared; });
    return isNew;
  }

  void shareAll() { std::fill(mOwners.begin(), mOwners.end(), kShared); }

 private:
  static constexpr std::uint32_t kFree = 0xFFFFFFFF, kShared = 0xFFFFFFFE;

  std::uint32_t indexOf(std::size_t axis, double place) const {
    return std::min(static_cast<std::uint32_t>(std::max(place, 0.0)), mCounts[axis] - 1);
  }
  double placeOf(const double* point, std::size_t axis) const { return (point[axis] - mMin[axis]) * mScale; }
  std::size_t cellAt(std::uint32_t x, std::uint32_t y, std::uint32_t z) const {
    return (std::size_t{z} * mCounts[1] + y) * mCounts[0] + x;
  }
  std::size_t cellOf(const double* point) const {
    return cellAt(indexOf(0, placeOf(point, 0)), indexOf(1, placeOf(point, 1)), indexOf(2, placeOf(point, 2)));
  }

  template <typename Use>
  void forCellsAround(const double* point, Use use) {
    std::uint32_t first[3], last[3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double place = placeOf(point, axis);
      first[axis] = indexOf(axis, place - mReach);
      last[axis] = indexOf(axis, place + mReach);
    }
    for (std::uint32_t z = first[2]; z <= last[2]; ++z)
      for (std::uint32_t y = first[1]; y <= last[1]; ++y)
        for (std::uint32_t x = first[0]; x <= last[0]; ++x) use(mOwners[cellAt(x, y, z)]);
  }

  std::array<double, 3> mMin;
  double mScale = 0, mReach = 0;
  std::array<std::uint32_t, 3> mCounts{};
  std::vector<std::uint32_t> mOwners;
};

template <typename Use>
void forVertices(const facetbox::Model& model, Use use) {
  for (std::uint32_t object = 0; object < model.objects.size(); ++object) {
    const std::vector<double>& points = model.objects[object].mesh.points;
    for (std::size_t i = 0; i < points.size(); i += 3) use(object, &points[i], static_cast<std::uint32_t>(i / 3));
  }
}

}  // namespace

std::vector<std::vector<std::uint32_t>> verticesNearOthers(const facetbox::Model& model, double reach) {
  Grid grid(model, reach);
  forVertices(model, [&](std::uint32_t object, const double* point, std::uint32_t) { grid.claim(point, object); });
  // What is of interest spreads from cell to cell where vertices lie at their borders: seldom far.
  bool isSpreading = true;
  for (int pass = 0; pass < 4 && isSpreading; ++pass) {
    isSpreading = false;
    forVertices(model, [&](std::uint32_t, const double* point, std::uint32_t) {
      if (grid.isShared(point)) isSpreading |= grid.share(point);
    });
  }
  if (isSpreading) grid.shareAll();
  std::vector<std::vector<std::uint32_t>> near(model.objects.size());
  forVertices(model, [&](std::uint32_t object, const double* point, std::uint32_t vertex) {
    if (grid.isShared(point)) near[object].push_back(vertex);
  });
  return near;
}

}  // namespace tool
