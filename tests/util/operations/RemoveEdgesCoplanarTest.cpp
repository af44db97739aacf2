#include <facetbox/util/operations/RemoveEdgesCoplanar.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numeric>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include <facetbox/util/mesh/HoleAssignment.h>
#include <facetbox/util/mesh/MeshStorage.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include <facetbox/util/operations/FaceRegions.h>
#include "tests/support/Meshes.h"

namespace {

using support::expectConsistent;
using support::Faces;
using support::facesOf;
using support::holesOf;
using support::Indices;
using support::kEnd;
using support::meshOf;
using support::pick;
using util::Mesh;
using util::Vec3;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

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

/// The surface of a random pile of cubes as unit squares.
struct Surface {
  std::vector<Vec3> points;
  Faces squares;
};

Surface pileOfCubes(std::mt19937& random, int side) {
  std::set<std::array<int, 3>> cubes;
  for (int x = 0; x < side; ++x)
    for (int y = 0; y < side; ++y)
      for (int z = 0; z < side; ++z)
        if (pick(random, 0, 19) < 18) cubes.insert({x, y, z});
  Surface surface;
  std::map<std::array<int, 3>, std::uint32_t> numbers;
  const auto number = [&](std::array<int, 3> p) {
    const auto [known, isNew] = numbers.try_emplace(p, static_cast<std::uint32_t>(surface.points.size()));
    if (isNew) surface.points.push_back({p[0] * 0.5, p[1] * 0.5, p[2] * 0.5});
    return known->second;
  };
  for (const auto& cube : cubes)
    for (int axis = 0; axis < 3; ++axis)
      for (const int direction : {-1, 1}) {
        auto beyond = cube;
        beyond[axis] += direction;
        if (cubes.contains(beyond)) continue;
        Indices square;
        for (const auto& [du, dv] : {std::pair(0, 0), std::pair(1, 0), std::pair(1, 1), std::pair(0, 1)}) {
          auto corner = cube;
          corner[axis] += direction > 0;
          corner[(axis + 1) % 3] += du;
          corner[(axis + 2) % 3] += dv;
          square.push_back(number(corner));
        }
        if (direction < 0) std::ranges::reverse(square);
        surface.squares.push_back(square);
      }
  return surface;
}

/// Whether the border of every flat part passes each vertex once and no edge has more than two faces.
bool isPlain(const Surface& surface) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, int> uses;
  for (const Indices& square : surface.squares)
    for (int i = 0; i < 4; ++i)
      if (++uses[{square[i], square[(i + 1) % 4]}] > 1) return false;
  auto mesh = meshOf(surface.points, surface.squares);
  const auto twins = util::findEdgeTwins(mesh.storage().mFaces, surface.points.size());
  const std::vector<double> areas(surface.squares.size(), 1.0);
  util::FaceRegions regions(mesh.storage().mFaces, surface.points.size(), twins, areas);
  for (std::uint32_t f = 0; f < surface.squares.size(); ++f) {
    if (!regions.isFree(f)) continue;
    regions.grow(f, [&](auto, auto, std::uint32_t g, auto) {
      return mesh.storage().mFaces.normal(g) == mesh.storage().mFaces.normal(f);
    });
    const std::size_t grown = regions.members().size();
    if (!regions.resolvePinches() || regions.members().size() != grown) return false;
    regions.finish();
  }
  return true;
}

/// Squares cut in two, then inner edges of flat parts flipped at random: triangulations of the same vertices.
Faces triangulate(const Surface& surface, std::mt19937& random) {
  Faces triangles;
  for (const Indices& s : surface.squares) {
    triangles.push_back({s[0], s[1], s[2]});
    triangles.push_back({s[0], s[2], s[3]});
  }
  const auto doubleArea = [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    return util::cross(surface.points[b] - surface.points[a], surface.points[c] - surface.points[a]);
  };
  for (int round = 0; round < 3; ++round) {
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::size_t> faceOf;
    for (std::size_t f = 0; f < triangles.size(); ++f)
      for (int i = 0; i < 3; ++i) faceOf[{triangles[f][i], triangles[f][(i + 1) % 3]}] = f;
    std::set<std::size_t> changed;
    for (const auto& entry : faceOf) {
      const auto edge = entry.first;
      const std::size_t f = entry.second;
      const auto other = faceOf.find({edge.second, edge.first});
      if (other == faceOf.end() || pick(random, 0, 1) || changed.contains(f) || changed.contains(other->second))
        continue;
      const auto apex = [&](const Indices& t) {
        return *std::ranges::find_if(t, [&](std::uint32_t v) { return v != edge.first && v != edge.second; });
      };
      const std::uint32_t a = apex(triangles[f]), b = apex(triangles[other->second]);
      const Vec3 normal = doubleArea(triangles[f][0], triangles[f][1], triangles[f][2]);
      const Vec3 n1 = doubleArea(a, edge.first, b), n2 = doubleArea(b, edge.second, a);
      if (util::cross(normal, doubleArea(b, edge.second, edge.first)) != Vec3{0, 0, 0}) continue;
      // Only where both new triangles have area; the same plane keeps them parallel.
      if (!(util::dot(n1, normal) > 0) || !(util::dot(n2, normal) > 0)) continue;
      triangles[f] = {a, edge.first, b};
      triangles[other->second] = {b, edge.second, a};
      changed.insert({f, other->second});
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
    const Surface surface = pileOfCubes(random, pick(random, 3, 5));
    if (surface.squares.empty() || !isPlain(surface)) continue;
    ++solids;
    auto expected = meshOf(surface.points, surface.squares);
    const auto [area, volume] = areaAndVolume(expected);
    util::removeEdgesCoplanar(expected, 0.0, false);
    withHoles += !holesOf(expected).empty();
    for (int way = 0; way < 5; ++way) {
      auto mesh = meshOf(surface.points, triangulate(surface, random));
      EXPECT_GT(util::removeEdgesCoplanar(mesh, way * 10.0, way % 2 == 1), 0u);
      EXPECT_EQ(drawing(mesh), drawing(expected));
      expectConsistent(mesh);
      EXPECT_DOUBLE_EQ(areaAndVolume(mesh).first, area);
      EXPECT_NEAR(areaAndVolume(mesh).second, volume, 1e-9);
      const Faces before = facesOf(mesh);
      EXPECT_EQ(util::removeEdgesCoplanar(mesh, 0.0, false), 0u);
      EXPECT_EQ(facesOf(mesh), before);
      EXPECT_EQ(util::assignHoles(mesh).mClearedHoles, 0u);
    }
  }
  EXPECT_EQ(solids, 25);
  EXPECT_GT(withHoles, 3);
}

/// The slow, obvious twin of a region: everything looked at anew after every step.
std::set<std::uint32_t> growSlowly(const Faces& faces, const std::vector<double>& areas, std::uint32_t seed) {
  using Edge = std::pair<std::uint32_t, std::uint32_t>;
  std::map<Edge, std::vector<std::uint32_t>> users;
  for (std::uint32_t f = 0; f < faces.size(); ++f)
    for (std::size_t i = 0; i < faces[f].size(); ++i)
      users[{faces[f][i], faces[f][(i + 1) % faces[f].size()]}].push_back(f);
  const auto across = [&](Edge e) -> std::int64_t {
    const auto back = users.find({e.second, e.first});
    if (back == users.end() || back->second.size() != 1 || users[e].size() != 1) return -1;
    return back->second[0] == users[e][0] ? -1 : back->second[0];
  };
  const auto edgesOf = [&](std::uint32_t f) {
    std::vector<Edge> edges;
    for (std::size_t i = 0; i < faces[f].size(); ++i)
      edges.push_back({faces[f][i], faces[f][(i + 1) % faces[f].size()]});
    return edges;
  };
  std::set<std::uint32_t> all;
  for (std::uint32_t f = 0; f < faces.size(); ++f) all.insert(f);
  // Faces of `within` that are edge-connected with `start`, over edges that `passes`.
  const auto connected = [&](const std::set<std::uint32_t>& within, std::uint32_t start, auto passes) {
    std::set<std::uint32_t> reached{start};
    std::vector<std::uint32_t> open{start};
    while (!open.empty()) {
      const std::uint32_t f = open.back();
      open.pop_back();
      for (const Edge& e : edgesOf(f))
        if (const std::int64_t g = across(e); g >= 0 && passes(e) && within.contains(static_cast<std::uint32_t>(g)) &&
                                              reached.insert(static_cast<std::uint32_t>(g)).second)
          open.push_back(static_cast<std::uint32_t>(g));
    }
    return reached;
  };
  const auto anyEdge = [](const Edge&) { return true; };
  auto region = connected(all, seed, anyEdge);
  while (true) {
    std::map<std::uint32_t, std::vector<std::uint32_t>> leaving;  // border edges by vertex, as faces
    for (const std::uint32_t f : region)
      for (const Edge& e : edgesOf(f))
        if (const std::int64_t g = across(e); g < 0 || !region.contains(static_cast<std::uint32_t>(g)))
          leaving[e.first].push_back(f);
    const auto pinch = std::ranges::find_if(leaving, [](const auto& at) { return at.second.size() > 1; });
    if (pinch == leaving.end()) return region;
    const std::uint32_t v = pinch->first;
    std::set<std::uint32_t> around;
    for (const std::uint32_t f : region)
      if (std::ranges::count(faces[f], v)) around.insert(f);
    std::set<std::uint32_t> kept;
    double keptArea = -1;
    for (std::set<std::uint32_t> left = around; !left.empty();) {
      const auto fan = connected(around, *left.begin(), [&](const Edge& e) { return e.first == v || e.second == v; });
      double area = 0;
      for (const std::uint32_t f : fan) {
        area += areas[f];
        left.erase(f);
      }
      if (fan.contains(seed)) area = 1e300;
      if (area > keptArea) {
        kept = fan;
        keptArea = area;
      }
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
    const int width = pick(random, 2, 9), height = pick(random, 2, 9), missing = pick(random, 1, 5);
    std::vector<Vec3> points;
    Indices number(static_cast<std::size_t>((width + 1) * (height + 1)));
    std::iota(number.begin(), number.end(), 0u);
    std::ranges::shuffle(number, random);
    for (std::size_t i = 0; i < number.size(); ++i) points.push_back({0, 0, 0});
    const auto at = [&](int x, int y) { return number[static_cast<std::size_t>(y * (width + 1) + x)]; };
    for (int y = 0; y <= height; ++y)
      for (int x = 0; x <= width; ++x) points[at(x, y)] = {1.0 * x, 1.0 * y, 0};
    Faces faces;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        if (pick(random, 0, 9) < missing) continue;
        const std::uint32_t a = at(x, y), b = at(x + 1, y), c = at(x + 1, y + 1), d = at(x, y + 1);
        switch (pick(random, 0, 3)) {
          case 0:
            faces.push_back({a, b, c, d});
            break;
          case 1:
            faces.insert(faces.end(), {{a, b, c}, {a, c, d}});
            break;
          case 2:
            faces.insert(faces.end(), {{a, b, d}, {b, c, d}});
            break;
          default:
            faces.push_back({a, b, c});
        }
      }
    if (faces.empty()) continue;
    auto mesh = meshOf(points, faces);
    std::vector<double> areas;
    // Distinct areas: a tie between fans would hang on how their sums round.
    for (std::size_t f = 0; f < faces.size(); ++f)
      areas.push_back(1.0 + static_cast<double>((f * 37 + seed) % 101) / 128);
    const auto twins = util::findEdgeTwins(mesh.storage().mFaces, points.size());
    util::FaceRegions regions(mesh.storage().mFaces, points.size(), twins, areas);
    const auto start = static_cast<std::uint32_t>(pick(random, 0, static_cast<int>(faces.size()) - 1));
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
  EXPECT_EQ(util::removeEdgesCoplanar(mesh, 0.0, false), 7u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 2, 3}, {4, 7, 6, 5}}));
  EXPECT_EQ(holesOf(mesh), Indices({0, 1, kEnd}));
}

TEST(RemoveEdgesCoplanar, holesThatTouchLeaveARestThatIsStillSound) {
  // A 5 x 5 grid of squares without (1, 1) and (2, 2): the two openings share a corner.
  std::vector<Vec3> points;
  Faces faces;
  for (int y = 0; y <= 5; ++y)
    for (int x = 0; x <= 5; ++x) points.push_back({1.0 * x, 1.0 * y, 0});
  for (std::uint32_t y = 0; y < 5; ++y)
    for (std::uint32_t x = 0; x < 5; ++x)
      if (!(x == y && (x == 1 || x == 2))) faces.push_back({y * 6 + x, y * 6 + x + 1, y * 6 + x + 7, y * 6 + x + 6});
  auto mesh = meshOf(points, faces);
  EXPECT_GT(util::removeEdgesCoplanar(mesh, 0.0, false), 15u);
  expectConsistent(mesh);
  EXPECT_DOUBLE_EQ(areaAndVolume(mesh).first, 23.0);
  for (const Indices& face : facesOf(mesh)) EXPECT_EQ(std::set(face.begin(), face.end()).size(), face.size());
  EXPECT_EQ(util::assignHoles(mesh).mClearedHoles, 0u);
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
  util::removeEdgesCoplanar(mesh, 10.0, false);
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
    EXPECT_EQ(util::removeEdgesCoplanar(mesh, 89.0, false), 0u);
    EXPECT_EQ(facesOf(mesh), faces);
  }
  for (const double tolerance : {-1.0, kNaN}) {
    auto mesh = meshOf(points, {{0, 1, 2}, {0, 2, 3}});
    EXPECT_EQ(util::removeEdgesCoplanar(mesh, tolerance, false), 0u);
  }
  auto folded = meshOf(points, {{0, 1, 2}, {0, 2, 4}});
  EXPECT_EQ(util::removeEdgesCoplanar(folded, 200.0, false), 0u);
}

TEST(RemoveEdgesCoplanar, needlesWithoutAreaJoinAnyNeighbour) {
  // A needle 0, 4, 1 between the lower and the upper square, all three corners on one line.
  const std::vector<Vec3> points{{0, 0, 0}, {2, 0, 0}, {2, 1, 0}, {0, 1, 0}, {1, 0, 0}, {0, -1, 0}, {2, -1, 0}};
  auto mesh = meshOf(points, {{0, 1, 2, 3}, {0, 4, 1}, {5, 6, 1, 4, 0}});
  EXPECT_EQ(util::removeEdgesCoplanar(mesh, 1.0, false), 2u);
  EXPECT_EQ(mesh.storage().mFaces.size(), 1u);
  EXPECT_DOUBLE_EQ(areaAndVolume(mesh).first, 4.0);
}

TEST(RemoveEdgesCoplanar, holesOfMergedFacesPassOverAndOnesThatCouldNotStayPreventTheMerge) {
  std::vector<Vec3> points{{0, 0, 0}, {4, 0, 0}, {4, 4, 0}, {0, 4, 0}, {8, 0, 0}, {8, 4, 0},
                           {1, 1, 0}, {1, 2, 0}, {2, 1, 0}, {6, 1, 0}, {6, 2, 0}, {7, 1, 0}};
  const Faces faces{{0, 1, 2, 3}, {6, 7, 8}, {1, 4, 5, 2}, {9, 10, 11}};
  auto mesh = meshOf(points, faces, {2, 3, kEnd, 0, 1, kEnd});
  EXPECT_EQ(util::removeEdgesCoplanar(mesh, 0.0, true), 1u);
  EXPECT_EQ(facesOf(mesh), Faces({{0, 1, 4, 5, 2, 3}, {6, 7, 8}, {9, 10, 11}}));
  EXPECT_EQ(holesOf(mesh), Indices({0, 2, 1, kEnd}));

  // Corner 2 of the first square lies within 8e-4 of the hole in the second: the hole would be deleted by the next
  // call.
  points[9] = {4.0005, 3.9995, 0};
  auto close = meshOf(points, {{0, 1, 2, 3}, {1, 4, 5, 2}, {9, 10, 11}}, {1, 2, kEnd});
  EXPECT_EQ(util::removeEdgesCoplanar(close, 0.0, false), 0u);
  EXPECT_EQ(mesh.storage().mFaces.size(), 3u);
}

/// A row of unit squares with texture coordinates and one material run per square.
support::Record rowOfSquares(const std::vector<std::string>& textures, const std::vector<float>& jumps) {
  support::Record row;
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
  const auto facesLeft = [](const support::Record& record, bool compareAttributes) {
    support::Record copy = record;
    const support::Result result(Cleanup::removeEdgesCoplanar(0.5f, compareAttributes, copy.view()));
    return result->mCountCount;
  };
  const auto smooth = rowOfSquares({"a", "a", "a"}, {0, 0, 0});
  const auto seam = rowOfSquares({"a", "a", "a"}, {0, 0.01f, 0});
  const auto materials = rowOfSquares({"a", "a", "b"}, {0, 0, 0});
  auto bent = smooth;  // continuous at the edge, but stretched differently behind it
  bent.mTexCoords[10] += 0.1f;
  bent.mTexCoords[12] += 0.1f;
  bent.mTexCoords[16] += 0.1f;
  bent.mTexCoords[22] += 0.1f;
  auto beyond = smooth;
  beyond.mTexCoordIndices[5] = 999;
  EXPECT_EQ(facesLeft(smooth, true), 1);
  EXPECT_EQ(facesLeft(seam, true), 2);
  EXPECT_EQ(facesLeft(materials, true), 2);
  EXPECT_EQ(facesLeft(bent, true), 3);
  EXPECT_EQ(facesLeft(beyond, true), 3);
  for (const auto& record : {smooth, seam, materials, bent, beyond}) EXPECT_EQ(facesLeft(record, false), 1);
}

TEST(RemoveEdgesCoplanar, geometryAloneKeepsTheSeedsMaterialAndTheOwnersCornerData) {
  // The second square is larger: it is the seed, but the first square's place is where the merged face stands.
  auto row = rowOfSquares({"a", "b", "c"}, {0, 0.5f, 0});
  row.mCoords[3 * 4] = row.mCoords[3 * 5] = 2.5f;
  row.mCoords[3 * 6] = row.mCoords[3 * 7] = 3.0f;
  row.mCoords[3 * 6 + 2] = row.mCoords[3 * 7 + 2] = 4.0f;  // the third one stands upright
  const support::Result result(Cleanup::removeEdgesCoplanar(0.5f, false, row.view()));
  ASSERT_EQ(result->mCountCount, 2);
  EXPECT_EQ(support::arrayOf(result->mCounts, 2), Indices({6, 4}));
  EXPECT_EQ(support::texturesOf(*result), (std::vector<std::optional<std::string>>{"b", "c"}));
  EXPECT_EQ(support::arrayOf(result->mTexturesStartFaces, 2), Indices({0, 1}));
  EXPECT_EQ(support::arrayOf(result->mIndices, 6), Indices({0, 2, 4, 5, 3, 1}));
  EXPECT_EQ(support::arrayOf(result->mTCIndices, 6), Indices({0, 4, 5, 6, 2, 3}));
}

TEST(RemoveEdgesCoplanar, aCombedGridWithManyHolesIsMergedIntoOneFace) {
  // 200 x 200 squares without every other one of every other row: ten thousand holes, one outer loop.
  constexpr std::uint32_t kSide = 201;
  std::vector<Vec3> points;
  Faces faces;
  for (std::uint32_t y = 0; y <= kSide; ++y)
    for (std::uint32_t x = 0; x <= kSide; ++x) points.push_back({1.0 * x, 1.0 * y, 0});
  const auto at = [](std::uint32_t x, std::uint32_t y) { return y * (kSide + 1) + x; };
  for (std::uint32_t y = 0; y < kSide; ++y)
    for (std::uint32_t x = 0; x < kSide; ++x)
      if (x % 2 == 0 || y % 2 == 0) faces.push_back({at(x, y), at(x + 1, y), at(x + 1, y + 1), at(x, y + 1)});
  auto mesh = meshOf(points, faces);
  util::removeEdgesCoplanar(mesh, 0.0, false);
  expectConsistent(mesh);
  EXPECT_EQ(mesh.storage().mFaces.size(), 1u + 100 * 100);
  EXPECT_EQ(mesh.storage().mFaces.cornerCount(0), 4 * kSide);
  EXPECT_EQ(util::assignHoles(mesh).mClearedHoles, 0u);
}

}  // namespace
