#include <facetbox/operations/MergeVertices.h>

#include <facetbox/util/RuntimeErrorST.h>
#include <tests/support/PlainMesh.h>

namespace {

using namespace support;

/// The slow, obvious twin: lists of members, comparing all pairs, walking whole faces.
class SlowGroups {
 public:
  SlowGroups(const PlainMesh& mesh, double tolerance) : mMesh(mesh), mGroupOf(mesh.mVertices.size(), -1) {
    for (std::uint32_t v = 0; v < mGroupOf.size(); ++v) {
      if (mGroupOf[v] != -1) continue;
      Indices group{v};
      for (std::uint32_t w = v + 1; w < mGroupOf.size(); ++w)
        if (mGroupOf[w] == -1 && lengthSq(mesh.mVertices[w] - mesh.mVertices[v]) <= tolerance * tolerance)
          group.push_back(w);
      if (group.size() < 2) continue;
      for (const std::uint32_t w : group) mGroupOf[w] = std::ssize(mGroups);
      mGroups.push_back(group);
    }
    guardPinches();
    guardHoles();
    if (tolerance > 0.15) guardFaces();
  }

  /// What a vertex is merged into.
  std::uint32_t seedOf(std::uint32_t v) const { return mGroupOf[v] == -1 ? v : mGroups[mGroupOf[v]].front(); }

 private:
  void removeFromGroup(std::uint32_t v) {
    Indices& group = mGroups[mGroupOf[v]];
    const Indices leaving = group.size() == 2 ? group : Indices{v};
    for (const std::uint32_t w : leaving) mGroupOf[w] = -1;
    std::erase_if(group, [&](std::uint32_t w) { return mGroupOf[w] == -1; });
  }

  void guardPinches() {
    for (bool changed = true; changed;) {
      changed = false;
      for (const PlainFace& plain : mMesh.mFaces) {
        const Indices& face = plain.mCorners;
        const auto n = std::ssize(face);
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

  void guardHoles() {
    for (const auto& [outer, holes] : mMesh.mHoles) {
      std::set<std::int64_t> met;
      const auto meet = [&](std::uint32_t face) {
        for (const std::uint32_t v : mMesh.mFaces[face].mCorners) met.insert(mGroupOf[v]);
      };
      meet(outer);
      for (const std::uint32_t hole : holes) {
        for (const std::uint32_t v : mMesh.mFaces[hole].mCorners)
          if (mGroupOf[v] != -1 && met.contains(mGroupOf[v])) removeFromGroup(v);
        meet(hole);
      }
    }
  }

  void guardFaces() {
    for (const PlainFace& face : mMesh.mFaces) {
      Indices merged;
      for (const std::uint32_t v : face.mCorners)
        if (merged.empty() || merged.back() != seedOf(v)) merged.push_back(seedOf(v));
      while (merged.size() > 1 && merged.front() == merged.back()) merged.pop_back();
      if (merged.size() < 3) continue;
      const Vec3 normal = normalOf(mMesh.mVertices, merged);
      if (std::set(merged.begin(), merged.end()).size() == merged.size() && !(dot(normal, face.mNormal) <= 0.0))
        continue;
      for (const std::uint32_t v : face.mCorners)
        if (seedOf(v) != v) removeFromGroup(v);
    }
  }

  const PlainMesh& mMesh;
  std::vector<Indices> mGroups;
  std::vector<std::int64_t> mGroupOf;
};

std::uint64_t mergeSlowly(PlainMesh& mesh, double tolerance) {
  if (mesh.mFaces.empty()) return 0;
  const SlowGroups groups(mesh, tolerance);
  std::uint64_t merged = 0;
  for (std::uint32_t v = 0; v < mesh.mVertices.size(); ++v) merged += groups.seedOf(v) != v;
  for (PlainFace& face : mesh.mFaces)
    for (std::uint32_t& v : face.mCorners) v = groups.seedOf(v);
  sanitizeFaces(mesh);
  removeUnusedVertices(mesh);
  for (PlainFace& face : mesh.mFaces) face.mNormal = normalOf(mesh.mVertices, face.mCorners);
  return merged;
}

/// Both ways; returns how many vertices were merged.
std::uint64_t expectLikeTwin(const Mesh& mesh, double tolerance) {
  PlainMesh twin = plainOf(mesh);
  Mesh merged(mesh);
  const std::uint64_t expected = mergeSlowly(twin, tolerance);
  EXPECT_EQ(util::mergeVertices(merged, tolerance), expected);
  expectSame(merged, twin);
  return expected;
}

//   3---2 7---6          3---2---5
//   |   | |   |   ==>    |   |   |
//   0---1 4---5          0---1---4
TEST(MergeVertices, weldsTwoSquaresAlongTheirSide) {
  Mesh mesh = meshOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {1.01, 0, 0}, {2, 0, 0}, {2, 1, 0}, {1.01, 1, 0}},
                     {{0, 1, 2, 3}, {4, 5, 6, 7}});
  EXPECT_EQ(util::mergeVertices(mesh, 0.02), 2u);
  EXPECT_EQ(facesOf(mesh), (Faces{{0, 1, 2, 3}, {1, 4, 5, 2}}));
}

TEST(MergeVertices, equalsTheSlowTwinOnRandomGrids) {
  std::uint64_t merged = 0;
  for (unsigned seed = 0; seed < 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Both below and above the size where a vertex that does not find itself is an error.
    const int vertexCount = seed % 60 == 0 ? 1200 : pick(random, 1, 60);
    const int side = seed % 60 == 0 ? 12 : pick(random, 1, 4);
    const double unit = seed % 3 == 0 ? 1.0 : 0.125;
    std::vector<Vec3> points;
    for (int v = 0; v < vertexCount; ++v)
      points.push_back({unit * pick(random, -side, side), unit * pick(random, -side, side),
                        unit * pick(random, 0, seed % 2 ? 0 : side)});
    Faces faces;
    for (int f = pick(random, 0, vertexCount); f > 0; --f)
      faces.push_back(randomIndices(random, pick(random, 3, f % 11 == 0 ? 40 : 8), vertexCount));
    const bool withHoles = seed % 4 == 0 && faces.size() > 4;
    const Indices holes = withHoles ? Indices{0, 2, 3, kEnd, 1, 4, kEnd} : Indices{};
    constexpr std::array kTolerances{0.0, 1.0, -1.0, 1.42, 2.0, 7.5, kNaN, -kInfinity};
    merged += expectLikeTwin(meshOf(points, faces, holes), unit * kTolerances[below(random, 8)]);
  }
  EXPECT_GT(merged, 5000u);
}

TEST(MergeVertices, takesPinchesApartInTheOrderOfTheTwinsPasses) {
  // A few places with many vertices each, in faces that go there again and again: every look undoes others.
  std::uint64_t merged = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int vertexCount = pick(random, 6, 40), places = pick(random, 1, 4);
    std::vector<Vec3> points;
    for (int v = 0; v < vertexCount; ++v)
      points.push_back(oneIn(random, 4) ? Vec3{10.0 * v, 5, 0} : Vec3{1.0 * pick(random, 0, places), 0, 0});
    Faces faces;
    for (int f = pick(random, 1, 30); f > 0; --f) {
      Indices& face =
          faces.emplace_back(randomIndices(random, pick(random, 4, oneIn(random, 4) ? 30 : 6), vertexCount));
      // Runs of neighbors, some over the end.
      const std::uint32_t turn = below(random, face.size());
      if (oneIn(random, 2)) std::ranges::sort(face, {}, [&](std::uint32_t v) { return points[v].x; });
      std::rotate(face.begin(), face.begin() + turn, face.end());
    }
    merged += expectLikeTwin(meshOf(points, faces), 0.125);
    if (HasFailure()) return;
  }
  EXPECT_GT(merged, 10000u);
}

TEST(MergeVertices, findsThePairsThatAPlainComparisonFindsAtEveryScale) {
  // Distances at, just below and just above the tolerance, far from the origin, tiny, and with squares that underflow.
  for (const double scale : {1.0, 1e-30, 1e-155, 1e-165, 5e-324, 1e12, 1e150})
    for (const double offset : {0.0, 0.5, 1e6, 1e16, -3.25})
      for (unsigned seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(testing::Message() << scale << " " << offset << " " << seed);
        std::mt19937 random(seed);
        const double tolerance = scale * pick(random, 0, 3);
        std::vector<Vec3> points(40);
        for (Vec3& p : points)
          for (double* c : {&p.x, &p.y, &p.z}) {
            *c = offset * scale + scale * pick(random, -6, 6);
            const int nudge = pick(random, -2, 2);
            if (nudge % 2 != 0) *c = std::nextafter(*c, nudge * kInfinity);
          }
        Faces faces;
        for (std::uint32_t v = 0; v + 2 < 40; ++v) faces.push_back({v, v + 1, v + 2});
        expectLikeTwin(meshOf(points, faces), tolerance);
      }
}

TEST(MergeVertices, findsPairsWhoseDistanceRoundsDownToTheTolerance) {
  // q - p is half an ulp above 1 and rounds to 1; p + 1 rounds to the neighbor below q. Between the two a leaf of the
  // search ends, once a crowd has made leaves as small as they get. So the search has to reach farther than 1.
  constexpr double kUlp = 0x1p-52;
  for (int axis = 0; axis < 3; ++axis)
    for (const double sign : {1.0, -1.0})
      for (const double corner : {1.25, 3.75}) {
        SCOPED_TRACE(testing::Message() << axis << " " << sign << " " << corner);
        std::vector<Vec3> points;
        for (int i = 0; i < 343; ++i) points.push_back({-20 + 1.01 * (i % 7), 1.01 * (i / 7 % 7), 1.01 * (i / 49)});
        for (int ulps = -8; ulps <= 8; ++ulps) {
          const double q = corner + ulps * (corner > 2 ? 2 : 1) * kUlp, p = q - 1 - kUlp / 2, y = 3.0 * ulps;
          points.push_back({p, y, 0});
          points.push_back({q, y, 0});
        }
        for (Vec3& p : points) {
          p = sign * p;
          p = axis == 0 ? p : axis == 1 ? Vec3{p.z, p.x, p.y} : Vec3{p.y, p.z, p.x};
        }
        Faces faces;
        for (std::uint32_t v = 0; v + 2 < points.size(); v += 2) faces.push_back({v, v + 1, v + 2});
        expectLikeTwin(meshOf(points, faces), 1);
      }
}

TEST(MergeVertices, guardsAgainstTurnedFacesOnlyAbove015) {
  //       3
  //       |          Welding 1 to 0 turns the thin triangle 1, 3, 2 over.
  //       2
  // 4---0   1
  const std::vector<Vec3> points{{0, 0, 0}, {0.14, 0, 0}, {0.07, 1, 0}, {0.0699, 5, 0}, {-5, 0, 0}};
  for (const auto& [tolerance, merged] : {std::pair(0.15, 1u), std::pair(0.15000001, 0u)})
    EXPECT_EQ(expectLikeTwin(meshOf(points, {{1, 3, 2}, {0, 2, 4}}), tolerance), merged);
}

TEST(MergeVertices, reportsAVertexThatDoesNotFindItselfFrom1000On) {
  for (const double bad : {kNaN, kInfinity}) {
    std::vector<Vec3> points = gridOf(49, 19, [](auto...) { return true; }).mPoints;
    points[997] = {1.5, bad, -2};
    Mesh mesh = meshOf(points, {{0, 1, 11}, {997, 5, 6}});
    try {
      util::mergeVertices(mesh, 0.25);
      FAIL() << "nothing thrown";
    } catch (const util::RuntimeErrorST& error) {
      EXPECT_EQ(std::string(error.what()), std::string("Merge failed : Vertex (1.5, ") +
                                               (std::isnan(bad) ? "nan" : "inf") + ", -2) not found in octree.");
    }
    EXPECT_EQ(mesh.storage().mVertices.size(), 1000u);
    points.pop_back();
    expectLikeTwin(meshOf(points, {{0, 1, 11}, {997, 5, 6}}), 0.25);
  }
}

}  // namespace
