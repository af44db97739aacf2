#include <facetbox/util/operations/RemoveEdgesCoplanar.h>

#include <facetbox/util/mesh/HoleAssignment.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include <facetbox/util/operations/FaceRegions.h>
#include <tests/support/Meshes.h>

namespace {

using namespace support;
using util::removeEdgesCoplanar;

/// The cycle from its lowest vertex on.
Indices fromLowest(Indices cycle) {
  std::rotate(cycle.begin(), std::ranges::min_element(cycle), cycle.end());
  return cycle;
}

/// Each face with the boundaries of its holes, as a set: what is drawn, wherever it stands in the lists. Faces that
/// were merged start at their lowest vertex; a single square has kept its own start.
std::multiset<std::pair<Indices, std::set<Indices>>> drawing(const Mesh& mesh) {
  const Faces faces = facesOf(mesh);
  const auto& table = mesh.storage().mHoles;
  const auto outerOf = table.outerOfHoles(faces.size());
  std::multiset<std::pair<Indices, std::set<Indices>>> result;
  for (std::uint32_t f = 0; f < faces.size(); ++f) {
    if (!outerOf.empty() && outerOf[f] != kEnd) continue;
    std::set<Indices> holes;
    for (std::uint32_t h = 0; h < faces.size(); ++h)
      if (!outerOf.empty() && outerOf[h] == f) holes.insert(fromLowest(faces[h]));
    result.insert({fromLowest(faces[f]), holes});
  }
  return result;
}

/// Area of all faces less that of the holes, and the volume that the faces enclose; a hole runs against its face.
std::pair<double, double> areaAndVolume(const Mesh& mesh) {
  const auto& m = mesh.storage();
  const auto outerOf = m.mHoles.outerOfHoles(m.mFaces.size());
  double area = 0, volume = 0;
  for (std::size_t f = 0; f < m.mFaces.size(); ++f) {
    const bool isHole = !outerOf.empty() && outerOf[f] != kEnd;
    const double size = util::computePolygonArea(m.mVertices, m.mFaces.corners(f), m.mFaces.normal(f));
    area += isHole ? -size : size;
    volume += size * util::dot(m.mFaces.normal(f), m.mVertices[m.mFaces.corners(f)[0]]) / 3.0;
  }
  return {area, volume};
}

/// Whether the border of every flat part passes each vertex once and no edge has more than two faces.
bool isPlain(const Surface& surface) {
  std::set<Edge> used;
  for (const Indices& square : surface.mFaces)
    for (const Edge& edge : edgesOf(square))
      if (!used.insert(edge).second) return false;
  const Mesh mesh = meshOf(surface.mPoints, surface.mFaces);
  const auto& faces = mesh.storage().mFaces;
  const auto twins = util::findEdgeTwins(faces, surface.mPoints.size());
  const std::vector<double> areas(surface.mFaces.size(), 1.0);
  util::FaceRegions regions(faces, surface.mPoints.size(), twins, areas);
  for (std::uint32_t f = 0; f < faces.size(); ++f) {
    if (!regions.isFree(f)) continue;
    regions.grow(f, [&](auto, auto, std::uint32_t g, auto) { return faces.normal(g) == faces.normal(f); });
    const std::size_t grown = regions.members().size();
    if (!regions.resolvePinches() || regions.members().size() != grown) return false;
    regions.finish();
  }
  return true;
}

/// Squares cut in two, then inner edges of flat parts flipped at random: triangulations of the same vertices.
Faces triangulate(const Surface& surface, std::mt19937& random) {
  Faces triangles;
  for (const Indices& s : surface.mFaces) triangles.insert(triangles.end(), {{s[0], s[1], s[2]}, {s[0], s[2], s[3]}});
  const auto normalOf = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    return util::cross(surface.mPoints[b] - surface.mPoints[a], surface.mPoints[c] - surface.mPoints[a]);
  };
  for (int flips = 0; flips < 2 * static_cast<int>(triangles.size()); ++flips) {
    Indices& t = triangles[below(random, triangles.size())];
    std::rotate(t.begin(), t.begin() + pick(random, 0, 2), t.end());
    for (Indices& other : triangles)
      for (int turn = 0; turn < 3; ++turn) {
        std::rotate(other.begin(), other.begin() + 1, other.end());
        if (other[0] != t[1] || other[1] != t[0]) continue;
        // Only where both new triangles have area; the same plane keeps them parallel.
        const std::uint32_t u = t[0], w = t[1], a = t[2], b = other[2];
        const Vec3 normal = normalOf(u, w, a), n1 = normalOf(a, u, b), n2 = normalOf(b, w, a);
        if (util::cross(normal, normalOf(b, w, u)) != Vec3{0, 0, 0} || !(util::dot(n1, normal) > 0) ||
            !(util::dot(n2, normal) > 0))
          continue;
        t = {a, u, b};
        other = {b, w, a};
      }
  }
  std::ranges::shuffle(triangles, random);
  for (Indices& t : triangles) std::rotate(t.begin(), t.begin() + pick(random, 0, 2), t.end());
  return triangles;
}

TEST(RemoveEdgesCoplanar, aSolidComesBackAsItsPolygonsHoweverItWasTriangulated) {
  int solids = 0, withHoles = 0;
  for (unsigned seed = 0; solids < 25 && seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::set<std::array<int, 3>> cubes;
    const int side = pick(random, 3, 5);
    for (int i = 0; i < side * side * side; ++i)
      if (!oneIn(random, 10)) cubes.insert({i % side, i / side % side, i / side / side});
    const Surface surface = surfaceOf(cubes, 0.5);
    if (!isPlain(surface)) continue;
    ++solids;
    Mesh expected = meshOf(surface.mPoints, surface.mFaces);
    const auto [area, volume] = areaAndVolume(expected);
    removeEdgesCoplanar(expected, 0.0, false);
    withHoles += !holesOf(expected).empty();
    for (int way = 0; way < 5; ++way) {
      Mesh mesh = meshOf(surface.mPoints, triangulate(surface, random));
      EXPECT_GT(removeEdgesCoplanar(mesh, way * 10.0, way % 2 == 1), 0u);
      EXPECT_EQ(drawing(mesh), drawing(expected));
      expectConsistent(mesh);
      EXPECT_DOUBLE_EQ(areaAndVolume(mesh).first, area);
      EXPECT_NEAR(areaAndVolume(mesh).second, volume, 1e-9);
      const Faces before = facesOf(mesh);
      EXPECT_EQ(removeEdgesCoplanar(mesh, 0.0, false), 0u);
      EXPECT_EQ(facesOf(mesh), before);
      EXPECT_EQ(util::assignHoles(mesh).mClearedHoles, 0u);
    }
  }
  EXPECT_EQ(solids, 25);
  EXPECT_GT(withHoles, 3);
}

/// The slow, obvious twin of a region: everything looked at anew after every step.
std::set<std::uint32_t> growSlowly(const Faces& faces, const std::vector<double>& areas, std::uint32_t seed) {
  std::map<Edge, Indices> users;
  std::set<std::uint32_t> all;
  for (std::uint32_t f = 0; f < faces.size(); ++f) {
    all.insert(f);
    for (const Edge& e : edgesOf(faces[f])) users[e].push_back(f);
  }
  // The face on the other side of a clean edge; kEnd for none.
  const auto across = [&](const Edge& e) {
    const auto back = users.find({e.second, e.first});
    if (back == users.end() || back->second.size() != 1 || users[e].size() != 1) return kEnd;
    return back->second[0] == users[e][0] ? kEnd : back->second[0];
  };
  // Faces of `within` that are edge-connected with `start`, over edges that `passes`.
  const auto connected = [&](const std::set<std::uint32_t>& within, std::uint32_t start, auto passes) {
    std::set<std::uint32_t> reached{start};
    Indices open{start};
    for (std::size_t at = 0; at < open.size(); ++at)
      for (const Edge& e : edgesOf(Indices(faces[open[at]])))
        if (passes(e) && within.contains(across(e)) && reached.insert(across(e)).second) open.push_back(across(e));
    return reached;
  };
  const auto anyEdge = [](const Edge&) { return true; };
  auto region = connected(all, seed, anyEdge);
  while (true) {
    std::map<std::uint32_t, int> leaving;  // number of border edges by vertex
    for (const std::uint32_t f : region)
      for (const Edge& e : edgesOf(faces[f])) leaving[e.first] += !region.contains(across(e));
    const auto pinch = std::ranges::find_if(leaving, [](const auto& at) { return at.second > 1; });
    if (pinch == leaving.end()) return region;
    const std::uint32_t v = pinch->first;
    std::set<std::uint32_t> around, kept;
    for (const std::uint32_t f : region)
      if (std::ranges::count(faces[f], v)) around.insert(f);
    double keptArea = -1;
    for (const std::uint32_t first : around) {
      const auto fan = connected(around, first, [&](const Edge& e) { return e.first == v || e.second == v; });
      double area = fan.contains(seed) ? 1e300 : 0;
      for (const std::uint32_t f : fan) area += areas[f];
      if (area > keptArea) kept = fan, keptArea = area;
    }
    for (const std::uint32_t f : around)
      if (!kept.contains(f)) region.erase(f);
    region = connected(region, seed, anyEdge);
  }
}

TEST(FaceRegions, trimsPinchedRegionsLikeTheSlowTwin) {
  std::size_t trimmed = 0;
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int missing = pick(random, 1, 5);
    const Surface grid =
        gridOf(pick(random, 2, 9), pick(random, 2, 9), [&](auto...) { return pick(random, 0, 9) < missing; });
    Indices number(grid.mPoints.size());
    std::iota(number.begin(), number.end(), 0u);
    std::ranges::shuffle(number, random);
    Faces faces;
    for (const Indices& s : grid.mFaces) {
      const std::uint32_t a = number[s[0]], b = number[s[1]], c = number[s[2]], d = number[s[3]];
      const Faces ways[] = {{{a, b, c, d}}, {{a, b, c}, {a, c, d}}, {{a, b, d}, {b, c, d}}, {{a, b, c}}};
      const Faces& way = ways[below(random, 4)];
      faces.insert(faces.end(), way.begin(), way.end());
    }
    if (faces.empty()) continue;
    std::vector<double> areas;
    // Distinct areas: a tie between fans would hang on how their sums round.
    for (std::size_t f = 0; f < faces.size(); ++f)
      areas.push_back(1.0 + static_cast<double>((f * 37 + seed) % 101) / 128);
    const Mesh mesh = meshOf(grid.mPoints, faces);
    const auto twins = util::findEdgeTwins(mesh.storage().mFaces, grid.mPoints.size());
    util::FaceRegions regions(mesh.storage().mFaces, grid.mPoints.size(), twins, areas);
    const std::uint32_t start = below(random, faces.size());
    regions.grow(start, [](auto...) { return true; });
    const std::size_t grown = regions.members().size();
    ASSERT_TRUE(regions.resolvePinches());
    const auto expected = growSlowly(faces, areas, start);
    EXPECT_EQ(regions.members(), Indices(expected.begin(), expected.end()));
    trimmed += regions.members().size() < grown;
  }
  EXPECT_GT(trimmed, 100u);
}

TEST(RemoveEdgesCoplanar, aFrameThatIsPinchedOnlyOnTheWayBecomesAFaceWithAHole) {
  //  3-----------2
  //  | \  7-6  / |     eight triangles around a square opening; growing from any of them passes
  //  |   |  |    |     through states whose border visits a vertex twice
  //  | / 4--5  \ |
  //  0-----------1
  const std::vector<Vec3> points{{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0},
                                 {1, 1, 0}, {3, 1, 0}, {3, 3, 0}, {1, 3, 0}};
  auto mesh = meshOf(points, {{0, 1, 4}, {1, 5, 4}, {1, 2, 5}, {2, 6, 5}, {2, 3, 6}, {3, 7, 6}, {3, 0, 7}, {0, 4, 7}});
  EXPECT_EQ(removeEdgesCoplanar(mesh, 0.0, false), 7u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2, 3}, {4, 7, 6, 5}}));
  EXPECT_EQ(holesOf(mesh), Indices({0, 1, kEnd}));
}

TEST(RemoveEdgesCoplanar, isHeldAgainstTheSeedSoThatNothingDrifts) {
  // A strip bent by 4 degrees at every fold, the first square a little larger: with 10 degrees patches of the seed's
  // two neighbours on its one side, not the whole strip.
  std::vector<Vec3> points;
  double x = 0, z = 0;
  for (int i = 0; i <= 12; ++i) {
    points.insert(points.end(), {{x, 0, z}, {x, 1, z}});
    const double length = i == 0 ? 1.5 : 1.0, angle = i * 4.0 / 57.29577951308232;
    x += length * std::cos(angle);
    z += length * std::sin(angle);
  }
  Faces faces;
  for (std::uint32_t i = 0; i < 12; ++i) faces.push_back({2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1});
  auto mesh = meshOf(points, faces);
  removeEdgesCoplanar(mesh, 10.0, false);
  EXPECT_EQ(facesOf(mesh)[0].size(), 8u);
  for (std::size_t f = 0; f < mesh.storage().mFaces.size(); ++f)
    EXPECT_LE(mesh.storage().mFaces.cornerCount(f), 12u);  // at most two neighbours on either side
}

TEST(RemoveEdgesCoplanar, joinsOnlyOverCleanEdges) {
  const std::vector<Vec3> points{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1}};
  for (const Faces& faces : {Faces{{0, 1, 2}, {0, 3, 2}},                // the same direction
                             Faces{{0, 1, 2}, {0, 2, 3}, {0, 4, 2}},     // three faces
                             Faces{{0, 1, 2}, {0, 2, 3}, {0, 1, 2}}}) {  // a double face
    auto mesh = meshOf(points, faces);
    mesh.storage().mFaces.setNormal(1, mesh.storage().mFaces.normal(0));
    EXPECT_EQ(removeEdgesCoplanar(mesh, 89.0, false), 0u);
    EXPECT_EQ(facesOf(mesh), faces);
  }
  for (const double tolerance : {-1.0, kNaN}) {
    auto mesh = meshOf(points, {{0, 1, 2}, {0, 2, 3}});
    EXPECT_EQ(removeEdgesCoplanar(mesh, tolerance, false), 0u);
  }
  auto folded = meshOf(points, {{0, 1, 2}, {0, 2, 4}});
  EXPECT_EQ(removeEdgesCoplanar(folded, 200.0, false), 0u);
}

TEST(RemoveEdgesCoplanar, needlesWithoutAreaJoinAnyNeighbour) {
  // A needle 0, 4, 1 between the lower and the upper square, all three corners on one line.
  const std::vector<Vec3> points{{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {0, 1, 0}, {1, 0, 0}, {0, -1, 0}, {2, -1, 0}};
  auto mesh = meshOf(points, {{0, 1, 2, 3}, {0, 4, 1}, {5, 6, 1, 4, 0}});
  EXPECT_EQ(removeEdgesCoplanar(mesh, 1.0, false), 2u);
  EXPECT_EQ(mesh.storage().mFaces.size(), 1u);
  EXPECT_DOUBLE_EQ(areaAndVolume(mesh).first, 4.0);
}

TEST(RemoveEdgesCoplanar, holesOfMergedFacesPassOverAndOnesThatCouldNotStayPreventTheMerge) {
  std::vector<Vec3> points{{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {8, 0, 0}, {8, 4, 0},
                           {1, 1, 0}, {1, 2, 0}, {2, 1, 0}, {6, 1, 0}, {6, 2, 0}, {7, 1, 0}};
  const Faces faces{{0, 1, 2, 3}, {6, 7, 8}, {1, 4, 5, 2}, {9, 10, 11}};
  auto mesh = meshOf(points, faces, {2, 3, kEnd, 0, 1, kEnd});
  EXPECT_EQ(removeEdgesCoplanar(mesh, 0.0, true), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 4, 5, 2, 3}, {6, 7, 8}, {9, 10, 11}}));
  EXPECT_EQ(holesOf(mesh), Indices({0, 2, 1, kEnd}));

  // Corner 2 of the first square lies within 8e-4 of the hole in the second: the hole would be deleted by the next
  // call.
  points[9] = {4.0005, 3.9995, 0};
  auto close = meshOf(points, {{0, 1, 2, 3}, {1, 4, 5, 2}, {9, 10, 11}}, {1, 2, kEnd});
  EXPECT_EQ(removeEdgesCoplanar(close, 0.0, false), 0u);
  EXPECT_EQ(mesh.storage().mFaces.size(), 3u);
}

/// A row of unit squares with texture coordinates and one material run per square.
Record rowOfSquares(const std::vector<std::string>& textures, const std::vector<float>& jumps) {
  Record row;
  const auto count = static_cast<std::uint32_t>(textures.size());
  for (std::uint32_t i = 0; i <= count; ++i)
    for (const float y : {0.0f, 1.0f}) row.mCoords.insert(row.mCoords.end(), {static_cast<float>(i), y, 0.0f});
  float shift = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    shift += jumps[i];
    row.mIndices.insert(row.mIndices.end(), {2 * i, 2 * i + 2, 2 * i + 3, 2 * i + 1});
    const auto pair = static_cast<std::uint32_t>(row.mTexCoords.size() / 2);
    const float u = static_cast<float>(i) * 0.25f + shift;
    row.mTexCoords.insert(row.mTexCoords.end(), {u, 0, u + 0.25f, 0, u + 0.25f, 1, u, 1});
    row.mTexCoordIndices.insert(row.mTexCoordIndices.end(), {pair, pair + 1, pair + 2, pair + 3});
    row.mCounts.push_back(4);
    row.mTextures.push_back(textures[i]);
    row.mStarts.push_back(i);
  }
  return row;
}

TEST(RemoveEdgesCoplanar, attributesKeepFacesApartWhenAskedFor) {
  const auto smooth = rowOfSquares({"a", "a", "a"}, {0, 0, 0});
  auto bent = smooth, beyond = smooth;
  for (const int u : {10, 12, 16, 22}) bent.mTexCoords[u] += 0.1f;  // continuous, but stretched differently
  beyond.mTexCoordIndices[5] = 999;
  for (const auto& [record, faces] : {std::pair(smooth, 1),
                                      {rowOfSquares({"a", "a", "a"}, {0, 0.01f, 0}), 2},
                                      {rowOfSquares({"a", "a", "b"}, {0, 0, 0}), 2},
                                      {bent, 3},
                                      {beyond, 3}}) {
    Record copy = record;
    EXPECT_EQ(Result(Cleanup::removeEdgesCoplanar(0.5f, true, copy.view()))->mCountCount, faces);
    EXPECT_EQ(Result(Cleanup::removeEdgesCoplanar(0.5f, false, copy.view()))->mCountCount, 1);
  }
}

TEST(RemoveEdgesCoplanar, geometryAloneKeepsTheSeedsMaterialAndTheOwnersCornerData) {
  // The second square is larger: it is the seed, but the first square's place is where the merged face stands.
  auto row = rowOfSquares({"a", "b", "c"}, {0, 0.5f, 0});
  row.mCoords[3 * 4] = row.mCoords[3 * 5] = 2.5f;
  row.mCoords[3 * 6] = row.mCoords[3 * 7] = 3.0f;
  row.mCoords[3 * 6 + 2] = row.mCoords[3 * 7 + 2] = 4.0f;  // the third one stands upright
  const Result result(Cleanup::removeEdgesCoplanar(0.5f, false, row.view()));
  ASSERT_EQ(result->mCountCount, 2);
  EXPECT_EQ(arrayOf(result->mCounts, 2), Indices({6, 4}));
  EXPECT_EQ(texturesOf(*result), (std::vector<std::optional<std::string>>{"b", "c"}));
  EXPECT_EQ(arrayOf(result->mTexturesStartFaces, 2), Indices({0, 1}));
  EXPECT_EQ(arrayOf(result->mIndices, 6), Indices({0, 2, 4, 5, 3, 1}));
  EXPECT_EQ(arrayOf(result->mTCIndices, 6), Indices({0, 4, 5, 6, 2, 3}));
}

}  // namespace
