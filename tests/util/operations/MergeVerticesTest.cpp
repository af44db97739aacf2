#include <facetbox/util/operations/MergeVertices.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include <facetbox/util/RuntimeErrorST.h>
#include <facetbox/util/mesh/Maintenance.h>
#include <facetbox/util/mesh/MeshStorage.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include "tests/support/Meshes.h"

namespace {

using support::expectConsistent;
using support::Faces;
using support::facesOf;
using support::Indices;
using support::kEnd;
using support::meshOf;
using support::pick;
using util::Mesh;
using util::Vec3;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// The slow, obvious twin: lists of members, comparing all pairs, walking whole faces.
class SlowGroups {
 public:
  SlowGroups(const std::vector<Vec3>& vertices, double tolerance) : mGroupOf(vertices.size(), -1) {
    for (std::uint32_t v = 0; v < vertices.size(); ++v) {
      if (mGroupOf[v] != -1) continue;
      Indices group{v};
      for (std::uint32_t w = v + 1; w < vertices.size(); ++w)
        if (mGroupOf[w] == -1 && util::lengthSq(vertices[w] - vertices[v]) <= tolerance * tolerance) group.push_back(w);
      if (group.size() < 2) continue;
      for (const std::uint32_t w : group) mGroupOf[w] = static_cast<std::int64_t>(mGroups.size());
      mGroups.push_back(group);
    }
  }

  void removeFromGroup(std::uint32_t v) {
    Indices& group = mGroups[mGroupOf[v]];
    if (group.size() == 2) {
      for (const std::uint32_t w : group) mGroupOf[w] = -1;
      group.clear();
      return;
    }
    group.erase(std::ranges::find(group, v));
    mGroupOf[v] = -1;
  }

  void guardPinches(const Faces& faces) {
    bool changed = true;
    while (changed) {
      changed = false;
      for (const Indices& face : faces) {
        const auto n = static_cast<std::int64_t>(face.size());
        if (n <= 3) continue;
        std::map<std::int64_t, std::int64_t> counts;
        for (const std::uint32_t v : face)
          if (mGroupOf[v] != -1) ++counts[mGroupOf[v]];
        for (const auto& [g, c] : counts) {
          if (!(1 < c && c <= n - 2)) continue;
          const auto isIn = [&, group = g](std::int64_t k) { return mGroupOf[face[(k + n) % n]] == group; };
          std::int64_t lead = 0, last = -1;
          while (isIn(lead)) ++lead;
          for (std::int64_t k = 0; k < n && !mGroups[g].empty(); ++k) {
            if (!isIn(k + lead)) continue;
            const bool away = last != -1 && k - last > 1;
            if (!away) {
              if (isIn(k + lead - 1) || isIn(k + lead + 1)) continue;
              last = k;
            }
            removeFromGroup(face[(k + lead) % n]);
            changed = true;
          }
        }
      }
    }
  }

  void guardHoles(const Faces& faces, const std::vector<std::pair<std::uint32_t, Indices>>& holeGroups) {
    for (const auto& [outer, holes] : holeGroups) {
      std::vector<std::int64_t> met;
      const auto meet = [&](std::uint32_t face) {
        for (const std::uint32_t v : faces[face]) met.push_back(mGroupOf[v]);
      };
      meet(outer);
      for (const std::uint32_t hole : holes) {
        for (const std::uint32_t v : faces[hole])
          if (mGroupOf[v] != -1 && std::ranges::count(met, mGroupOf[v]) > 0) removeFromGroup(v);
        meet(hole);
      }
    }
  }

  void guardFaces(const std::vector<Vec3>& vertices, const Faces& faces, const std::vector<Vec3>& normals) {
    for (std::size_t f = 0; f < faces.size(); ++f) {
      Indices merged;
      for (const std::uint32_t v : faces[f]) {
        const std::uint32_t seed = mGroupOf[v] == -1 ? v : mGroups[mGroupOf[v]].front();
        if (merged.empty() || merged.back() != seed) merged.push_back(seed);
      }
      while (merged.size() > 1 && merged.front() == merged.back()) merged.pop_back();
      if (merged.size() < 3) continue;
      Indices sorted = merged;
      std::ranges::sort(sorted);
      Vec3 normal;
      util::computeFaceNormal(vertices, merged, normal);
      if (std::ranges::adjacent_find(sorted) == sorted.end() && !(util::dot(normal, normals[f]) <= 0.0)) continue;
      for (const std::uint32_t v : faces[f])
        if (mGroupOf[v] != -1 && mGroups[mGroupOf[v]].front() != v) removeFromGroup(v);
    }
  }

  /// What every vertex is merged into.
  Indices representatives() const {
    Indices rep(mGroupOf.size());
    for (std::uint32_t v = 0; v < rep.size(); ++v) rep[v] = mGroupOf[v] == -1 ? v : mGroups[mGroupOf[v]].front();
    return rep;
  }

 private:
  std::vector<Indices> mGroups;
  std::vector<std::int64_t> mGroupOf;
};

/// mergeVertices by the twin, on a copy.
std::pair<std::unique_ptr<Mesh>, std::uint64_t> mergeSlowly(
    const Mesh& mesh, double tolerance, const std::vector<std::pair<std::uint32_t, Indices>>& holes) {
  auto merged = std::unique_ptr<Mesh>(mesh.clone(true));
  util::MeshStorage& m = merged->storage();
  const std::vector<Vec3> vertices(m.mVertices.begin(), m.mVertices.end());
  const Faces faces = facesOf(mesh);
  std::vector<Vec3> normals;
  for (std::size_t f = 0; f < faces.size(); ++f) normals.push_back(m.mFaces.normal(f));

  SlowGroups groups(vertices, tolerance);
  groups.guardPinches(faces);
  groups.guardHoles(faces, holes);
  if (tolerance > 0.15) groups.guardFaces(vertices, faces, normals);
  const Indices rep = groups.representatives();

  Indices newIndex(vertices.size());
  std::uint32_t kept = 0;
  for (std::uint32_t v = 0; v < rep.size(); ++v) {
    newIndex[v] = rep[v] == v ? kept++ : newIndex[rep[v]];
    if (rep[v] == v) m.mVertices[newIndex[v]] = vertices[v];
  }
  m.mVertices.resize(kept);
  for (std::size_t f = 0; f < m.mFaces.size(); ++f)
    for (std::uint32_t& v : m.mFaces.corners(f)) v = newIndex[v];
  util::sanitizeFaces(*merged);
  util::removeUnusedVertices(*merged);
  util::recomputeFaceNormals(*merged);
  return {std::move(merged), vertices.size() - kept};
}

std::vector<Vec3> verticesOf(const Mesh& mesh) {
  return {mesh.storage().mVertices.begin(), mesh.storage().mVertices.end()};
}

TEST(MergeVertices, equalsTheSlowTwinOnRandomGrids) {
  for (unsigned seed = 0; seed < 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Both below and above the size where a vertex that does not find itself is an error.
    const int vertexCount = seed % 20 == 0 ? 1200 : pick(random, 1, 60);
    const int side = seed % 20 == 0 ? 12 : pick(random, 1, 4);
    const double unit = seed % 3 == 0 ? 1.0 : 0.125;
    std::vector<Vec3> points;
    for (int v = 0; v < vertexCount; ++v)
      points.push_back({unit * pick(random, -side, side), unit * pick(random, -side, side),
                        unit * pick(random, 0, seed % 2 ? 0 : side)});
    Faces faces;
    for (int f = pick(random, 1, vertexCount); f > 0; --f) {
      Indices face(static_cast<std::size_t>(pick(random, 3, f % 11 == 0 ? 40 : 8)));
      for (std::uint32_t& v : face) v = static_cast<std::uint32_t>(pick(random, 0, vertexCount - 1));
      faces.push_back(face);
    }
    std::vector<std::pair<std::uint32_t, Indices>> groups;
    Indices holes;
    if (seed % 4 == 0 && faces.size() > 4) {
      groups = {{0, {2, 3}}, {1, {4}}};
      holes = {0, 2, 3, kEnd, 1, 4, kEnd};
    }
    const auto mesh = meshOf(points, faces, holes);
    const double tolerance = unit * std::vector{0.0, 1.0, -1.0, 1.42, 2.0, 0.999, 7.5}[seed % 7];
    SCOPED_TRACE(tolerance);
    const auto [expected, expectedCount] = mergeSlowly(mesh, tolerance, groups);
    Mesh merged(mesh);
    EXPECT_EQ(util::mergeVertices(merged, tolerance), expectedCount);
    EXPECT_EQ(facesOf(merged), facesOf(*expected));
    EXPECT_EQ(verticesOf(merged), verticesOf(*expected));
    EXPECT_EQ(support::holesOf(merged), support::holesOf(*expected));
    expectConsistent(merged);
  }
}

TEST(MergeVertices, findsThePairsThatAPlainComparisonFindsAtEveryScale) {
  // Distances at, just below and just above the tolerance, far from the origin, tiny, and with squares that underflow.
  for (const double scale : {1.0, 1e-30, 1e-155, 1e-165, 5e-324, 1e12, 1e150})
    for (const double offset : {0.0, 0.5, 1e6, 1e16, -3.25})
      for (unsigned seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(testing::Message() << scale << " " << offset << " " << seed);
        std::mt19937 random(seed);
        const double tolerance = scale * pick(random, 0, 3);
        std::vector<Vec3> points;
        const auto coordinate = [&] {
          const double x = offset * scale + scale * pick(random, -6, 6);
          const int nudge = pick(random, 0, 4);
          return nudge == 0 ? std::nextafter(x, kInfinity) : nudge == 1 ? std::nextafter(x, -kInfinity) : x;
        };
        for (int v = 0; v < 40; ++v) points.push_back({coordinate(), coordinate(), coordinate()});
        Faces faces;
        for (std::uint32_t v = 0; v + 2 < 40; ++v) faces.push_back({v, v + 1, v + 2});
        const auto mesh = meshOf(points, faces);
        SlowGroups groups(points, tolerance);
        if (tolerance > 0.15) {
          std::vector<Vec3> normals;
          for (std::size_t f = 0; f < faces.size(); ++f) normals.push_back(mesh.storage().mFaces.normal(f));
          groups.guardFaces(points, faces, normals);
        }
        const Indices rep = groups.representatives();
        std::uint64_t expected = 0;
        for (std::uint32_t v = 0; v < rep.size(); ++v) expected += rep[v] != v;
        Mesh merged(mesh);
        EXPECT_EQ(util::mergeVertices(merged, tolerance), expected);
      }
}

TEST(MergeVertices, measuresToTheSeedAloneAndInclusively) {
  const auto count = [](double tolerance) {
    auto mesh = meshOf({{0, 0, 0}, {0.6, 0, 0}, {1.2, 0, 0}, {0, 9, 0}, {5, 5, 0}}, {{0, 3, 4}, {1, 3, 4}, {2, 3, 4}});
    const std::uint64_t merged = util::mergeVertices(mesh, tolerance);
    return std::pair(merged, mesh.storage().mVertices.size());
  };
  EXPECT_EQ(count(1.0), std::pair(std::uint64_t{1}, std::size_t{4}));
  EXPECT_EQ(count(0.5), std::pair(std::uint64_t{0}, std::size_t{5}));
  auto tied = meshOf({{0, 0, 0}, {0.125, 0, 0}, {4, 0, 0}, {0, 4, 0}}, {{0, 2, 3}, {1, 2, 3}});
  EXPECT_EQ(util::mergeVertices(tied, 0.125), 1u);
}

TEST(MergeVertices, doesNotPinchAQuadWhoseOppositeCornersAreClose) {
  auto mesh = meshOf({{0, 0, 0}, {4, 0.0, 0}, {0.1, 0.1, 0}, {0, 4, 0}}, {{0, 1, 2, 3}});
  EXPECT_EQ(util::mergeVertices(mesh, 0.15), 0u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2, 3}}));
}

TEST(MergeVertices, guardsAgainstTurnedFacesOnlyAbove015) {
  // Welding 1 to 0 turns the thin triangle 1, 2, 3 over.
  const std::vector<Vec3> points{{0, 0, 0}, {0.14, 0, 0}, {0.07, 1, 0}, {0.0699, 5, 0}, {-5, 0, 0}};
  for (const auto& [tolerance, merged] : {std::pair(0.15, 1u), std::pair(0.15000001, 0u)}) {
    auto mesh = meshOf(points, {{1, 3, 2}, {0, 2, 4}});
    EXPECT_EQ(util::mergeVertices(mesh, tolerance), merged) << tolerance;
  }
}

TEST(MergeVertices, alwaysTidiesUpButLeavesAMeshWithoutFaces) {
  auto mesh = meshOf({{0, 0, 0}, {9, 9, 9}, {1, 0, 0}, {0, 1, 0}}, {{0, 2, 3}});
  mesh.storage().mFaces.setNormal(0, {1, 0, 0});
  EXPECT_EQ(util::mergeVertices(mesh, 0.0), 0u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2}}));
  EXPECT_EQ(mesh.storage().mFaces.normal(0), (Vec3{0, 0, 1}));

  auto bare = meshOf({{0, 0, 0}, {0, 0, 0}}, {});
  EXPECT_EQ(util::mergeVertices(bare, 1.0), 0u);
  EXPECT_EQ(bare.storage().mVertices.size(), 2u);
}

TEST(MergeVertices, reportsAVertexThatDoesNotFindItselfFrom1000On) {
  for (const double bad : {kNaN, kInfinity}) {
    std::vector<Vec3> points(1000, Vec3{0, 0, 0});
    for (std::uint32_t v = 0; v < 1000; ++v) points[v] = {v % 10 * 1.0, v / 10 % 10 * 1.0, v / 100 * 1.0};
    points[997] = {1.5, bad, -2};
    auto mesh = meshOf(points, {{0, 1, 11}, {997, 5, 6}});
    try {
      util::mergeVertices(mesh, 0.25);
      FAIL() << "nothing thrown";
    } catch (const util::RuntimeErrorST& error) {
      EXPECT_EQ(std::string(error.what()), std::string("Merge failed : Vertex (1.5, ") +
                                               (std::isnan(bad) ? "nan" : "inf") + ", -2) not found in octree.");
    }
    EXPECT_EQ(mesh.storage().mVertices.size(), 1000u);
    points.pop_back();
    auto smaller = meshOf(points, {{0, 1, 11}, {997, 5, 6}});
    EXPECT_EQ(util::mergeVertices(smaller, 0.25), 0u);
  }
}

TEST(MergeVertices, keepsAHoleWhoseCornerIsNearItsOuterFace) {
  // The hole's corner 4 lies 0.1 from the outer corner 0, its corner 6 at 0.1 from corner 8 of a later hole.
  const std::vector<Vec3> points{{0, 0, 0},     {4, 0, 0},     {4, 4, 0},       {0, 4, 0}, {0.07, 0.07, 0}, {1, 0.5, 0},
                                 {1.5, 1.5, 0}, {0.5, 1.0, 0}, {1.57, 1.57, 0}, {3, 2, 0}, {2, 3, 0}};
  auto mesh = meshOf(points, {{0, 1, 2, 3}, {4, 7, 6, 5}, {8, 10, 9}}, {0, 1, 2, kEnd});
  EXPECT_EQ(util::mergeVertices(mesh, 0.12), 0u);
  EXPECT_EQ(support::holesOf(mesh), Indices({0, 1, 2, kEnd}));
}

TEST(MergeVertices, survivesHugeTolerancesAndCrowds) {
  std::vector<Vec3> points;
  std::mt19937 random(1);
  for (int v = 0; v < 20000; ++v)
    points.push_back({1e-3 * pick(random, 0, 9), 1e-3 * pick(random, 0, 9), 1e-3 * pick(random, 0, 9)});
  Faces faces;
  for (std::uint32_t v = 0; v + 2 < points.size(); v += 3) faces.push_back({v, v + 1, v + 2});
  for (const double tolerance : {0.0, 1e-3, 1.5e-3, 0.01, 1.0, 1e200, kInfinity}) {
    SCOPED_TRACE(tolerance);
    auto mesh = meshOf(points, faces);
    util::mergeVertices(mesh, tolerance);
    expectConsistent(mesh);
    EXPECT_LE(mesh.storage().mVertices.size(), 1000u);
  }
  auto mesh = meshOf(points, faces);
  EXPECT_THROW(util::mergeVertices(mesh, kNaN), util::RuntimeErrorST);
}

TEST(MergeVertices, pinchGuardIsLinearInALongDoubledOutline) {
  // 50,000 pairs of consecutive equal corners: every pair is a group of its own in one face.
  std::vector<Vec3> points;
  Indices face;
  for (std::uint32_t i = 0; i < 100000; ++i) {
    const double angle = 6.283185307179586 * (i / 2) / 50000;
    points.push_back({100 * std::cos(angle), 100 * std::sin(angle), 0});
    face.push_back(i);
  }
  auto mesh = meshOf(points, {face});
  EXPECT_EQ(util::mergeVertices(mesh, 0.0), 50000u);
  EXPECT_EQ(facesOf(mesh)[0].size(), 50000u);
}

}  // namespace
