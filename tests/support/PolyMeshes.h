#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/Cancelled.h>
#include <facetbox/PolyMesh.h>
#include <facetbox/math/Vec3.h>

namespace support {

/// A small scene with something for every step of a clean-up: a pile of unit cubes in squares and triangles with
/// corners of their own, off by little or nothing, some twice, some turned, some with an edge that is all but zero; a
/// plate with holes of which some are none; labels and texture coordinates now and then, on some of the faces.
facetbox::PolyMesh randomScene(std::mt19937& random);

inline facetbox::PolyMesh polyMeshOf(const std::vector<util::Vec3>& points,
                                     const std::vector<std::vector<std::uint32_t>>& faces,
                                     std::vector<std::uint32_t> holes = {}) {
  facetbox::PolyMesh mesh;
  for (const util::Vec3& p : points) mesh.points.insert(mesh.points.end(), {p.x, p.y, p.z});
  for (const auto& face : faces) {
    mesh.counts.push_back(static_cast<std::uint32_t>(face.size()));
    mesh.indices.insert(mesh.indices.end(), face.begin(), face.end());
  }
  mesh.holes = std::move(holes);
  return mesh;
}
inline facetbox::PolyMesh scaledBy(facetbox::PolyMesh mesh, double factor) {
  for (double& c : mesh.points) c *= factor;
  return mesh;
}
inline facetbox::PolyMesh movedBy(facetbox::PolyMesh mesh, const util::Vec3& offset) {
  for (std::size_t i = 0; i < mesh.points.size(); ++i)
    mesh.points[i] += i % 3 == 0 ? offset.x : i % 3 == 1 ? offset.y : offset.z;
  return mesh;
}

/// Fails unless a call with such options tells how far it is, asks `leastAsked` times at least whether to go on where
/// it may as often as it can, and stops when told so. Returns its result.
template <class Options, class Call>
auto expectAskedOften(Options options, int leastAsked, Call call) {
  int asked = 0;
  std::vector<double> told;
  options.progress = [&](double fraction) { told.push_back(fraction); };
  options.isCancelled = [&] {
    // As long as the pause between two questions.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return ++asked < 0;
  };
  auto result = call(options);
  EXPECT_GE(asked, leastAsked);
  EXPECT_TRUE(std::ranges::is_sorted(told));
  EXPECT_EQ(told.front(), 0.0);
  EXPECT_EQ(told.back(), 1.0);
  for (const int allowed : {0, 1, leastAsked / 2, leastAsked - 1}) {
    asked = 0;
    options.isCancelled = [&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      return ++asked > allowed;
    };
    EXPECT_THROW(call(options), facetbox::Cancelled);
    EXPECT_EQ(asked, allowed + 1);
  }
  return result;
}

}  // namespace support
