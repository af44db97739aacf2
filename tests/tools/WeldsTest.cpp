#include <tools/Welds.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <random>

#include <gtest/gtest.h>

namespace tool {
namespace {

// How many vertices are left where each is one with all of its groups.
std::size_t countLeft(std::size_t count, const std::vector<std::pair<std::size_t, std::vector<std::uint32_t>>>& welds) {
  std::vector<std::size_t> names(count);
  std::iota(names.begin(), names.end(), std::size_t{0});
  for (const auto& [first, groups] : welds)
    for (std::size_t v = 0; v < groups.size(); ++v)
      for (std::size_t w = 0; w < v; ++w)
        if (groups[v] == groups[w])
          std::replace(names.begin(), names.end(), std::size_t{names[first + v]}, std::size_t{names[first + w]});
  std::sort(names.begin(), names.end());
  return static_cast<std::size_t>(std::unique(names.begin(), names.end()) - names.begin());
}

TEST(Welds, acrossObjectsAreThoseOfAllVerticesTogether) {
  std::mt19937 random(3);
  std::size_t found = 0;
  for (int round = 0; round < 1000; ++round) {
    const double tolerance = std::array{0.0, 0.01, 0.05, 0.3}[random() % 4];
    // Chains of vertices along the borders of boxes that lie apart, touch or overlap.
    facetbox::Model model;
    std::vector<double> all;
    std::vector<std::pair<std::size_t, std::vector<std::uint32_t>>> apart;
    for (unsigned object = 0, count = 2 + random() % 4; object < count; ++object) {
      std::vector<double>& points = model.objects.emplace_back().mesh.points;
      const double left = 0.3 * (random() % 6), step = 0.01 + 0.01 * (random() % 9);
      for (unsigned v = 0, vertices = 1 + random() % 25; v < vertices; ++v)
        points.insert(points.end(), {left + step * (random() % 10), step * (random() % 3), random() % 9 ? 0.0 : 7.0});
      apart.emplace_back(all.size() / 3, weldGroups(points, tolerance));
      all.insert(all.end(), points.begin(), points.end());
    }
    auto together = apart;
    together.emplace_back(0, weldGroups(all, tolerance));
    const std::size_t expected = countLeft(all.size() / 3, apart) - countLeft(all.size() / 3, together);
    EXPECT_EQ(weldsAcrossObjects(model, std::vector<double>(model.objects.size(), tolerance)), expected) << round;
    found += expected > 0;
  }
  EXPECT_GT(found, 100U);
}

}  // namespace
}  // namespace tool
