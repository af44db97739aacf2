#include <tools/Welds.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <unordered_map>

#include <facetbox/clean.h>
#include <tools/NearOthers.h>

namespace tool {
namespace {

// Numbers, of which some become one.
class Classes {
 public:
  explicit Classes(std::size_t count) : mParents(count), mCount(count) {
    std::iota(mParents.begin(), mParents.end(), std::uint32_t{0});
  }
  std::size_t count() const { return mCount; }
  void unite(std::uint32_t a, std::uint32_t b) {
    a = rootOf(a);
    b = rootOf(b);
    if (a == b) return;
    mParents[std::max(a, b)] = std::min(a, b);
    --mCount;
  }

 private:
  std::uint32_t rootOf(std::uint32_t number) {
    while (mParents[number] != number) number = mParents[number] = mParents[mParents[number]];
    return number;
  }

  std::vector<std::uint32_t> mParents;
  std::size_t mCount;
};

// The vertices of all objects that others might be welded to.
struct AllVertices {
  std::vector<double> mPoints;
  std::vector<std::vector<double>> mOwnPoints;       // per object
  std::vector<std::vector<std::uint32_t>> mNumbers;  // per object and vertex

  AllVertices(const facetbox::Model& model, double reach) {
    const std::vector<std::vector<std::uint32_t>> near = verticesNearOthers(model, reach);
    std::unordered_map<std::uint32_t, std::uint32_t> numberOf;  // by that in the file
    for (std::size_t i = 0; i < near.size(); ++i) {
      const facetbox::Object& object = model.objects[i];
      std::vector<std::uint32_t>& numbers = mNumbers.emplace_back();
      std::vector<double>& own = mOwnPoints.emplace_back();
      for (const std::uint32_t v : near[i]) {
        const double* const point = &object.mesh.points[std::size_t{3} * v];
        const auto next = static_cast<std::uint32_t>(mPoints.size() / 3);
        numbers.push_back(
            object.fileVertices.empty() ? next : numberOf.try_emplace(object.fileVertices[v], next).first->second);
        own.insert(own.end(), point, point + 3);
        if (numbers.back() == next) mPoints.insert(mPoints.end(), point, point + 3);
      }
    }
  }
};

// Whether no two of a few points are near each other: quicker than to weld them.
bool areFewAndApart(const std::vector<double>& points, double tolerance) {
  constexpr std::size_t kFew = 3 * 64;
  if (points.size() > kFew) return false;
  for (std::size_t i = 0; i < points.size(); i += 3)
    for (std::size_t k = i + 3; k < points.size(); k += 3)
      if (std::max({std::fabs(points[i] - points[k]), std::fabs(points[i + 1] - points[k + 1]),
                    std::fabs(points[i + 2] - points[k + 2])}) <= tolerance * (1 + 1e-9))
        return false;
  return true;
}

}  // namespace

// Every vertex gets a triangle of its own, with two points far outside the box: no face prevents anything.
std::vector<std::uint32_t> weldGroups(const std::vector<double>& points, double tolerance) {
  const auto vertexCount = static_cast<std::uint32_t>(points.size() / 3);
  if (vertexCount == 0) return {};
  std::array<double, 3> min, max;
  min.fill(std::numeric_limits<double>::max());
  max.fill(std::numeric_limits<double>::lowest());
  for (std::size_t i = 0; i < points.size(); ++i) {
    min[i % 3] = std::min(min[i % 3], points[i]);
    max[i % 3] = std::max(max[i % 3], points[i]);
  }
  facetbox::PolyMesh probe{.points = points, .counts = std::vector<std::uint32_t>(vertexCount, 3)};
  const double away = 4 * (std::hypot(max[0] - min[0], max[1] - min[1], max[2] - min[2]) + tolerance) + 1;
  for (const double side : {1.0, -1.0})
    for (std::size_t axis = 0; axis < 3; ++axis)
      probe.points.push_back(max[axis] + away * (axis == 0 ? 1.0 : axis == 1 ? side : 0.5));
  std::vector<std::uint32_t> groups(vertexCount);
  std::iota(groups.begin(), groups.end(), std::uint32_t{0});
  if (!std::all_of(probe.points.end() - 6, probe.points.end(), [](double c) { return std::isfinite(c); }))
    return groups;
  for (std::uint32_t v = 0; v < vertexCount; ++v)
    probe.indices.insert(probe.indices.end(), {v, vertexCount, vertexCount + 1});
  const facetbox::Step weld = facetbox::MergeVertices{tolerance};
  groups = facetbox::clean(probe, {&weld, 1}).vertexMap;
  groups.resize(vertexCount);
  return groups;
}

std::size_t weldsAcrossObjects(const facetbox::Model& model, const std::vector<double>& tolerances) {
  if (model.objects.size() < 2) return 0;
  const double reach = *std::max_element(tolerances.begin(), tolerances.end());
  const AllVertices all(model, reach);
  Classes classes(all.mPoints.size() / 3);
  const auto uniteAll = [&classes](const std::vector<std::uint32_t>& groups, auto numberOf) {
    std::vector<std::uint32_t> firsts(groups.size(), facetbox::kNone);
    for (std::uint32_t v = 0; v < groups.size(); ++v) {
      std::uint32_t& first = firsts[groups[v]];
      if (first == facetbox::kNone) first = numberOf(v);
      classes.unite(first, numberOf(v));
    }
  };
  for (std::size_t object = 0; object < model.objects.size(); ++object)
    if (!areFewAndApart(all.mOwnPoints[object], tolerances[object]))
      uniteAll(weldGroups(all.mOwnPoints[object], tolerances[object]),
               [&](std::uint32_t vertex) { return all.mNumbers[object][vertex]; });
  const std::size_t apart = classes.count();
  uniteAll(weldGroups(all.mPoints, reach), [](std::uint32_t vertex) { return vertex; });
  return apart - classes.count();
}

}  // namespace tool
