#include <facetbox/triangulate.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <numbers>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/math/SpacePredicates.h>
#include <tests/support/Meshes.h>
#include <tests/support/PolyMeshes.h>

namespace {

using facetbox::describe;
using facetbox::kNone;
using facetbox::MeshView;
using facetbox::PolyMesh;
using facetbox::SkippedFace;
using facetbox::triangulate;
using facetbox::Triangulation;
using support::Indices;
using support::movedBy;
using support::oneIn;
using support::pick;
using support::scaledBy;
using util::Vec2;
using util::Vec3;
using Reason = SkippedFace::Reason;

std::uint32_t addPoint(PolyMesh& mesh, const Vec3& p) {
  mesh.points.insert(mesh.points.end(), {p.x, p.y, p.z});
  return static_cast<std::uint32_t>(mesh.points.size() / 3 - 1);
}

std::uint32_t addFace(PolyMesh& mesh, const Indices& corners) {
  mesh.indices.insert(mesh.indices.end(), corners.begin(), corners.end());
  mesh.counts.push_back(static_cast<std::uint32_t>(corners.size()));
  return static_cast<std::uint32_t>(mesh.counts.size() - 1);
}

std::uint32_t addFace(PolyMesh& mesh, const std::vector<Vec3>& points) {
  Indices corners;
  for (const Vec3& p : points) corners.push_back(addPoint(mesh, p));
  return addFace(mesh, corners);
}

Vec3 pointOf(const MeshView& mesh, const Triangulation& result, std::uint32_t v) {
  const std::size_t first = 3 * std::size_t{v}, given = mesh.points.size();
  return util::toVec3(first < given ? &mesh.points[first] : &result.madePoints.at(first - given));
}

Vec2 pairOf(const MeshView& mesh, const Triangulation& result, std::uint32_t pair) {
  const std::size_t first = 2 * std::size_t{pair}, given = mesh.texCoords.size();
  const double* const p = first < given ? &mesh.texCoords[first] : &result.madeTexCoords.at(first - given);
  return {p[0], p[1]};
}

Vec3 areaVector(const Vec3& a, const Vec3& b, const Vec3& c) { return 0.5 * cross(b - a, c - a); }

using Contours = std::vector<Indices>;

/// Per face: its outline and its holes, none for the holes themselves.
std::vector<Contours> contoursOf(const MeshView& mesh) {
  std::vector<Contours> faces;
  for (std::size_t first = 0; const std::uint32_t count : mesh.counts) {
    const auto corners = mesh.indices.subspan(first, count);
    faces.push_back({{corners.begin(), corners.end()}});
    first += count;
  }
  for (std::size_t i = 0, outer = 0; i < mesh.holes.size(); ++i) {
    const std::uint32_t face = mesh.holes[i];
    if (face == kNone) continue;
    if (i == 0 || mesh.holes[i - 1] == kNone)
      outer = face;
    else
      faces[outer].push_back(std::exchange(faces[face], {}).at(0));
  }
  return faces;
}

std::vector<std::array<std::uint32_t, 3>> trianglesOf(const Triangulation& result, std::uint32_t face) {
  std::vector<std::array<std::uint32_t, 3>> triangles;
  for (std::size_t t = 0; t < result.faces.size(); ++t)
    if (result.faces[t] == face)
      triangles.push_back({result.triangles[3 * t], result.triangles[3 * t + 1], result.triangles[3 * t + 2]});
  return triangles;
}

Vec3 areaVectorOf(const MeshView& mesh, const Triangulation& result, std::uint32_t face) {
  Vec3 sum{};
  for (const auto& [a, b, c] : trianglesOf(result, face))
    sum = sum + areaVector(pointOf(mesh, result, a), pointOf(mesh, result, b), pointOf(mesh, result, c));
  return sum;
}

/// The area between contours by the odd rule, seen along z: in each slab between corners and crossings, edges by
/// height.
double oddArea(const MeshView& mesh, const Contours& contours) {
  struct Edge {
    Vec3 a, b;
  };
  std::vector<Edge> edges;
  std::vector<double> xs;
  for (const Indices& contour : contours)
    for (std::size_t i = 0; i < contour.size(); ++i) {
      const Vec3 a = pointOf(mesh, {}, contour[i]), b = pointOf(mesh, {}, contour[(i + 1) % contour.size()]);
      edges.push_back(a.x < b.x ? Edge{a, b} : Edge{b, a});
      xs.push_back(a.x);
    }
  for (const Edge& e : edges)
    for (const Edge& f : edges) {
      const Vec3 u = e.b - e.a, v = f.b - f.a, w = f.a - e.a;
      const double s = (w.x * v.y - w.y * v.x) / (u.x * v.y - u.y * v.x), x = e.a.x + s * u.x;
      if (x > e.a.x && x < e.b.x && x > f.a.x && x < f.b.x) xs.push_back(x);
    }
  std::ranges::sort(xs);
  double area = 0;
  for (std::size_t i = 1; i < xs.size(); ++i) {
    const double middle = (xs[i - 1] + xs[i]) / 2;
    std::vector<double> ys;
    for (const auto& [a, b] : edges)
      if (a.x < middle && middle < b.x) ys.push_back(a.y + (middle - a.x) / (b.x - a.x) * (b.y - a.y));
    std::ranges::sort(ys);
    for (std::size_t k = 1; k < ys.size(); k += 2) area += (ys[k] - ys[k - 1]) * (xs[i] - xs[i - 1]);
  }
  return area;
}

/// A cut along diagonals: every edge of the contours in one triangle, all others in two that run in opposite
/// directions, no made points, no triangle without area.
void expectDiagonals(const MeshView& mesh, const Triangulation& result, std::uint32_t face, const Contours& contours,
                     bool mayTurnHoles = false) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, int> sides;
  std::size_t corners = 0;
  for (const auto& [a, b, c] : trianglesOf(result, face)) {
    for (const std::uint32_t v : {a, b, c}) ASSERT_LT(3 * std::size_t{v}, mesh.points.size());
    EXPECT_FALSE(util::areCollinear(pointOf(mesh, {}, a), pointOf(mesh, {}, b), pointOf(mesh, {}, c)))
        << a << ' ' << b << ' ' << c;
    for (const auto& [from, to] : {std::pair(a, b), {b, c}, {c, a}}) EXPECT_EQ(++sides[std::pair(from, to)], 1);
  }
  for (const Indices& contour : contours) {
    corners += contour.size();
    for (std::size_t i = 0; i < contour.size(); ++i) {
      const std::uint32_t from = contour[i], to = contour[(i + 1) % contour.size()];
      const bool isTurned = mayTurnHoles && &contour != &contours[0] && sides.contains({to, from});
      EXPECT_EQ(sides.erase(isTurned ? std::pair(to, from) : std::pair(from, to)), 1u) << from << ' ' << to;
    }
  }
  for (const auto& [side, count] : sides) EXPECT_TRUE(sides.contains({side.second, side.first}));
  EXPECT_EQ(trianglesOf(result, face).size(), corners + 2 * contours.size() - 4);
}

/// Shapes that hold for every result.
void expectSound(const MeshView& mesh, const Triangulation& result) {
  const std::size_t triangles = result.faces.size();
  ASSERT_EQ(result.triangles.size(), 3 * triangles);
  ASSERT_EQ(result.texIndices.size(), mesh.texIndices.empty() ? 0 : 3 * triangles);
  EXPECT_TRUE(std::ranges::is_sorted(result.faces));
  EXPECT_TRUE(std::ranges::is_sorted(result.skipped, std::less<>(), &SkippedFace::face));
  // Every face in exactly one way: it has triangles, is skipped, or is a hole.
  std::vector<int> ways(mesh.counts.size());
  for (std::size_t t = 0; t < triangles; ++t)
    if (t == 0 || result.faces[t] != result.faces[t - 1]) ++ways.at(result.faces[t]);
  for (const SkippedFace& skipped : result.skipped) ++ways.at(skipped.face);
  for (std::size_t i = 0; i < mesh.holes.size(); ++i)
    if (i > 0 && mesh.holes[i] != kNone && mesh.holes[i - 1] != kNone && mesh.counts[mesh.holes[i]] >= 3)
      ++ways[mesh.holes[i]];
  EXPECT_EQ(std::ranges::count(ways, 1), static_cast<std::ptrdiff_t>(ways.size()));

  // Texture coordinates on whole faces or not at all; what is made is used and finite.
  PolyMesh cut;
  cut.points.assign(mesh.points.begin(), mesh.points.end());
  cut.points.insert(cut.points.end(), result.madePoints.begin(), result.madePoints.end());
  cut.texCoords.assign(mesh.texCoords.begin(), mesh.texCoords.end());
  cut.texCoords.insert(cut.texCoords.end(), result.madeTexCoords.begin(), result.madeTexCoords.end());
  cut.counts.assign(triangles, 3);
  cut.indices = result.triangles;
  cut.texIndices = result.texIndices;
  cut.labels = result.faces;
  for (const auto& [indices, given, made] :
       {std::tuple(result.triangles, mesh.points.size() / 3, result.madePoints.size() / 3),
        {result.texIndices, mesh.texCoords.size() / 2, result.madeTexCoords.size() / 2}}) {
    std::set<std::uint32_t> used(indices.begin(), indices.end());
    used.erase(kNone);
    EXPECT_EQ(std::distance(used.lower_bound(static_cast<std::uint32_t>(given)), used.end()),
              static_cast<std::ptrdiff_t>(made));
  }
  EXPECT_EQ(facetbox::validate(cut).size(), 0u) << describe(facetbox::validate(cut).front());
}

/// Numbers of so few bits that no move of a test rounds them.
double coarse(double x) { return std::round(x * 4096) / 4096; }

Vec3 onPlane(double x, double y) { return {coarse(x), coarse(y), 0.5 * coarse(x) - 0.25 * coarse(y)}; }

/// A star around (x, y): corners at rising angles, so that it does not cross itself.
std::vector<Vec3> star(std::mt19937& random, double x, double y, double radius, int corners, bool isClockwise) {
  std::vector<Vec3> points;
  for (int i = 0; i < corners; ++i) {
    const double angle = 2 * std::numbers::pi * i / corners, r = radius * pick(random, 60, 100) / 100;
    points.push_back(onPlane(x + r * std::cos(angle), y + r * std::sin(angle)));
  }
  if (isClockwise) std::ranges::reverse(points);
  return points;
}

/// Gives each corner its own pair, an affine function of its point; faces in `bare` get none.
Vec2 mapped(const Vec3& p) { return {p.x + 2 * p.y - p.z, 0.5 * p.y + 3 * p.z + 1}; }
void addTexture(PolyMesh& mesh, const Indices& bare = {}) {
  std::size_t corner = 0;
  for (std::uint32_t face = 0; face < mesh.counts.size(); ++face)
    for (std::uint32_t k = 0; k < mesh.counts[face]; ++k, ++corner) {
      const bool isBare = std::ranges::find(bare, face) != bare.end();
      mesh.texIndices.push_back(isBare ? kNone : static_cast<std::uint32_t>(mesh.texCoords.size() / 2));
      if (isBare) continue;
      const Vec2 uv = mapped(util::toVec3(&mesh.points[3 * std::size_t{mesh.indices[corner]}]));
      mesh.texCoords.insert(mesh.texCoords.end(), {uv.x, uv.y});
    }
}

void expectMapped(const MeshView& mesh, const Triangulation& result, double noise) {
  for (std::size_t i = 0; i < result.texIndices.size(); ++i) {
    if (result.texIndices[i] == kNone) continue;
    const Vec2 uv = pairOf(mesh, result, result.texIndices[i]);
    const Vec2 expected = mapped(pointOf(mesh, result, result.triangles[i]));
    EXPECT_NEAR(uv.x, expected.x, noise);
    EXPECT_NEAR(uv.y, expected.y, noise);
  }
}

/// Stars with some holes each, holes before and behind their faces in the list, and nothing that crosses.
PolyMesh perforated(std::mt19937& random) {
  PolyMesh mesh;
  Indices bare;
  for (int face = 0; face < 4; ++face) {
    const double x = 3 * face;
    Indices holes;
    const auto addHoles = [&](double y) {
      for (int i = pick(random, 0, 3); i > 0; --i)
        holes.push_back(addFace(mesh, star(random, x + 0.2 * i - 0.4, y, 0.09, pick(random, 3, 6), oneIn(random, 2))));
    };
    addHoles(-0.1);
    const std::uint32_t outer = addFace(mesh, star(random, x, 0, 1, pick(random, 12, 130), oneIn(random, 2)));
    addHoles(0.1);
    if (oneIn(random, 4)) bare.push_back(holes.empty() ? outer : holes[0]);
    if (holes.empty() && oneIn(random, 2)) continue;
    mesh.holes.push_back(outer);
    mesh.holes.insert(mesh.holes.end(), holes.begin(), holes.end());
    mesh.holes.push_back(kNone);
  }
  if (oneIn(random, 2)) addTexture(mesh, bare);
  return mesh;
}

/// Few places for many corners: outlines that cross, touch and repeat themselves and each other.
PolyMesh crumpled(std::mt19937& random) {
  PolyMesh mesh;
  for (int face = 0; face < 6; ++face) {
    // The first corner at the origin, as the twin does not move faces there before it computes crossings.
    std::vector<Vec3> points{{0, 0, 0}};
    for (int corner = pick(random, 2, 8); corner > 0; --corner)
      points.push_back(onPlane(pick(random, -4, 4), pick(random, -4, 4)));
    addFace(mesh, points);
  }
  mesh.holes = {3, 0, 2, kNone, 4, 1, kNone};
  return mesh;
}

TEST(Triangulate, coversWhatContoursGoAroundAnOddNumberOfTimes) {
  std::size_t made = 0, inexact = 0;
  for (unsigned seed = 0; seed < 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const bool isCrumpled = seed % 3 != 0;
    PolyMesh mesh = isCrumpled ? crumpled(random) : perforated(random);
    if (isCrumpled) addTexture(mesh);
    const Triangulation result = triangulate(mesh);
    expectSound(mesh, result);
    expectMapped(mesh, result, 1e-12);
    made += result.madePoints.size() / 3;
    const std::vector<Contours> faces = contoursOf(mesh);
    for (std::uint32_t face = 0; face < faces.size(); ++face) {
      const bool hasNoArea = std::ranges::count(result.skipped, SkippedFace{face, Reason::noArea}) > 0;
      if (faces[face].empty() || hasNoArea) continue;
      SCOPED_TRACE(face);
      Vec3 outline{};
      const auto at = [&](std::size_t i) { return pointOf(mesh, {}, faces[face][0][i]); };
      for (std::size_t i = 2; i < faces[face][0].size(); ++i) outline = outline + areaVector(at(0), at(i - 1), at(i));
      const double found = areaVectorOf(mesh, result, face).z;
      const double expected = oddArea(mesh, faces[face]);
      EXPECT_NEAR(std::fabs(found), expected, 0.01 * expected);
      inexact += std::fabs(std::fabs(found) - expected) > 1e-11;
      EXPECT_TRUE(std::fabs(outline.z) < 1e-9 || found * outline.z >= 0);
      if (!isCrumpled) expectDiagonals(mesh, result, face, faces[face], true);
    }
  }
  EXPECT_GT(made, 5000u);
  // Where edges overlap and others cross them there, the tessellator moves crossings.
  EXPECT_LE(inexact, 2u);
}

Vec3 anywhere(std::mt19937& random) {
  const auto number = [&] { return pick(random, -1000, 1000) / 1000.0; };
  const double x = number(), y = number();
  return {x, y, number()};
}

TEST(Triangulate, cutsQuadsAlongTheBetterDiagonal) {
  int concave = 0;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const bool isFlat = seed % 2 == 0;
    std::vector<Vec3> p = star(random, 0, 0, 1, 4, oneIn(random, 2));
    if (isFlat && oneIn(random, 2)) p[2] = onPlane(p[0].x * 0.25, p[0].y * 0.25);
    if (!isFlat)
      for (Vec3& q : p) q = anywhere(random);
    PolyMesh mesh;
    Indices corners{0, 1, 2, 3};
    for (const Vec3& q : p) addPoint(mesh, q);
    for (int i = 0; i < 4; ++i) {
      addFace(mesh, corners);
      std::rotate(corners.begin(), corners.begin() + 1, corners.end());
    }
    const Triangulation result = triangulate(mesh);
    expectSound(mesh, result);
    const auto smallest = [&](std::size_t a) {
      const Vec3 first = areaVector(p[a], p[a + 1], p[a + 2]), second = areaVector(p[a], p[a + 2], p[(a + 3) % 4]),
                 sum = first + second;
      return std::min(dot(first, sum), dot(second, sum)) / length(sum);
    };
    const bool has02 =
        std::ranges::any_of(trianglesOf(result, 0), [](auto t) { return std::ranges::count(t, 1u) == 0; });
    for (std::uint32_t face = 0; face < 4; ++face) {
      expectDiagonals(mesh, result, face, {{0, 1, 2, 3}});
      // Wherever the list of corners begins.
      for (const auto& t : trianglesOf(result, face))
        EXPECT_EQ(has02, std::ranges::count(t, 1u) == 0 || std::ranges::count(t, 3u) == 0);
    }
    EXPECT_TRUE(std::max(smallest(0), smallest(1)) < 1e-9 || smallest(has02 ? 0 : 1) > 0);
    concave += isFlat && std::min(smallest(0), smallest(1)) < 0;
  }
  EXPECT_GT(concave, 100);
}

TEST(Triangulate, cutsTwistedFacesAlongDiagonals) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PolyMesh mesh;
    std::vector<Vec3> knot, ramp;
    // Corners that lie behind each other, but no edges that cross.
    for (int i = pick(random, 5, 12); i > 0; --i) {
      knot.push_back(anywhere(random));
      if (i % 2 != 0) continue;
      knot.back().x = pick(random, -1, 1);
      knot.back().y = pick(random, -1, 1);
    }
    addFace(mesh, knot);
    // A winding ramp: twice the same way, out and back, so that it hides itself as seen from anywhere.
    const int steps = pick(random, 3, 100);
    const auto at = [](double angle, double r) { return Vec3{r * std::cos(angle), 0.1 * angle, r * std::sin(angle)}; };
    for (int i = 0; i < steps; ++i) ramp.push_back(at(0.4 * i, 1));
    ramp.push_back(at(0.4 * (steps - 1), 0.75));
    for (int i = steps; i-- > 0;) ramp.push_back(at(0.4 * i, 0.5));
    addFace(mesh, ramp);
    addTexture(mesh);
    const Triangulation result = triangulate(mesh);
    expectSound(mesh, result);
    expectMapped(mesh, result, 0);
    for (const std::uint32_t face : {0u, 1u}) expectDiagonals(mesh, result, face, contoursOf(mesh)[face]);
    // Rung by rung, if not always along the better diagonal.
    double area = 0;
    for (const auto& [a, b, c] : trianglesOf(result, 1))
      area += length(areaVector(pointOf(mesh, {}, a), pointOf(mesh, {}, b), pointOf(mesh, {}, c)));
    EXPECT_NEAR(area / (0.15 * (steps - 1)), 1, 0.1);
  }
}

TEST(Triangulate, leavesNoTriangleWithoutArea) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // Columns on a grid, and a box with a hole: corners wherever grid lines cross the outline.
    const auto alongEdges = [&](const std::vector<Vec2>& corners, int oneOf) {
      std::vector<Vec3> points;
      for (std::size_t i = 0; i < corners.size(); ++i) {
        const Vec2 a = corners[i], b = corners[(i + 1) % corners.size()];
        const int n = static_cast<int>(std::max(std::fabs(b.x - a.x), std::fabs(b.y - a.y)));
        for (int k = 0; k < n; ++k)
          if (k == 0 || oneIn(random, oneOf))
            points.push_back(onPlane(a.x + (b.x - a.x) * k / n, a.y + (b.y - a.y) * k / n));
      }
      if (oneIn(random, 2)) std::ranges::reverse(points);
      std::rotate(points.begin(), points.begin() + pick(random, 0, 3), points.end());
      return points;
    };
    PolyMesh mesh;
    const double columns = pick(random, 1, 9), height = pick(random, 1, 5);
    std::vector<Vec2> outline{{columns, 0}, {0, 0}};
    for (int i = 0; i < columns; ++i) {
      const double y = pick(random, 1, 4);
      if (outline.back().y == y) outline.pop_back();
      outline.push_back({1.0 * i, y});
      outline.push_back({i + 1.0, y});
    }
    const int oneOf = pick(random, 1, 3);
    addFace(mesh, alongEdges(outline, oneOf));
    addFace(mesh, alongEdges({{0, 0}, {columns, 0}, {columns, height}, {0, height}}, oneOf));
    const auto outer = addFace(mesh, alongEdges({{0, 0}, {9, 0}, {9, 9}, {0, 9}}, oneOf));
    mesh.holes = {outer, addFace(mesh, alongEdges({{2, 2}, {6, 2}, {6, 5}, {2, 5}}, oneOf)),
                  addFace(mesh, alongEdges({{7, 7}, {8, 7}, {8, 8}}, oneOf)), kNone};
    const Triangulation result = triangulate(mesh);
    expectSound(mesh, result);
    const std::vector<Contours> faces = contoursOf(mesh);
    for (std::uint32_t face = 0; face <= outer; ++face) {
      SCOPED_TRACE(face);
      expectDiagonals(mesh, result, face, faces[face], true);
      EXPECT_NEAR(std::fabs(areaVectorOf(mesh, result, face).z), oddArea(mesh, faces[face]), 1e-11);
    }
  }
}

TEST(Triangulate, isTheSameAnywhereAndInAnyUnit) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh = seed % 2 != 0 ? perforated(random) : crumpled(random);
    const Triangulation expected = triangulate(mesh);
    for (const int exponent : {-900, -20, -1, 20, 900}) {
      Triangulation scaled = expected;
      for (double& x : scaled.madePoints) x = std::ldexp(x, exponent);
      EXPECT_EQ(triangulate(scaledBy(mesh, std::ldexp(1.0, exponent))), scaled) << exponent;
    }
    for (const Vec3& offset : {Vec3{85227.4375, 446522.0625, 12.25}, {-1e7, 1e7, 1e7}}) {
      Triangulation moved = triangulate(movedBy(mesh, offset));
      ASSERT_EQ(moved.madePoints.size(), expected.madePoints.size());
      for (std::size_t i = 0; i < moved.madePoints.size(); ++i) {
        const double made = moved.madePoints[i] - std::array{offset.x, offset.y, offset.z}[i % 3];
        EXPECT_NEAR(made, expected.madePoints[i], 2e-9);
      }
      moved.madePoints = expected.madePoints;
      EXPECT_EQ(moved, expected);
    }
  }
}

TEST(Triangulate, makesAPointWhereAnOutlineCrossesItself) {
  // 3   1   Two lobes of equal size: their areas cancel out.
  // |\ /|
  // | X |
  // |/ \|
  // 0   2
  PolyMesh mesh;
  addFace(mesh, {{0, 0, 5}, {0, 2, 2 + 5.0}, {0, 2, 5}, {0, 0, 2 + 5.0}});
  addTexture(mesh);
  const Triangulation result = triangulate(mesh);
  EXPECT_EQ(result.madePoints, (std::vector<double>{0, 1, 6}));
  EXPECT_EQ(result.faces, (Indices{0, 0}));
  EXPECT_EQ(result.madeTexCoords.size(), 2u);
  expectMapped(mesh, result, 0);
}

TEST(Triangulate, makesNoPointWhereCornersMeet) {
  // A square whose hole is reached by a bridge from corner 0 to corner 4; both ends are visited twice.
  PolyMesh mesh;
  for (const Vec3& p : {Vec3{0, 0, 0}, {3, 0, 0}, {3, 3, 0}, {0, 3, 0}, {1, 1, 0}, {1, 2, 0}, {2, 2, 0}, {2, 1, 0}})
    addPoint(mesh, p);
  addFace(mesh, Indices{0, 1, 2, 3, 0, 4, 5, 6, 7, 4});
  addTexture(mesh);
  Triangulation result = triangulate(mesh);
  EXPECT_EQ(result.faces.size(), 8u);
  EXPECT_TRUE(result.madePoints.empty() && result.madeTexCoords.empty());
  EXPECT_EQ(length(areaVectorOf(mesh, result, 0)), 8);
  // The texture has a seam there: the mean.
  mesh.texCoords[0] += 2;
  result = triangulate(mesh);
  EXPECT_TRUE(result.madePoints.empty());
  EXPECT_EQ(result.madeTexCoords, (std::vector<double>{1 + mapped({0, 0, 0}).x, mapped({0, 0, 0}).y}));
}

/// A bar crossed by upright ones: four crossings each.
std::uint32_t addCrossedBars(PolyMesh& mesh, int bars) {
  const std::uint32_t outer = addFace(mesh, {{-1, 0, 0}, {2.0 * bars, 0, 0}, {2.0 * bars, 1, 0}, {-1, 1, 0}});
  mesh.holes.push_back(outer);
  for (int bar = 0; bar < bars; ++bar) {
    const double x = 2.0 * bar;
    mesh.holes.push_back(addFace(mesh, {{x, -1, 0}, {x + 1, -1, 0}, {x + 1, 2, 0}, {x, 2, 0}}));
  }
  mesh.holes.push_back(kNone);
  return outer;
}

TEST(Triangulate, leavesOutOnlyTheFaceThatCrossesTooOften) {
  testing::internal::CaptureStderr();
  PolyMesh mesh;
  addFace(mesh, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
  const std::uint32_t tooMany = addCrossedBars(mesh, 129);
  const std::uint32_t most = addCrossedBars(mesh, 128);
  addTexture(mesh);
  Triangulation result = triangulate(mesh);
  expectSound(mesh, result);
  EXPECT_EQ(result.skipped, (std::vector<SkippedFace>{{tooMany, Reason::tooManyCrossings}}));
  EXPECT_EQ(result.madePoints.size(), 3 * 512u);
  EXPECT_EQ(result.madeTexCoords.size(), 2 * 512u);
  expectMapped(mesh, result, 1e-12);
  EXPECT_EQ(result.faces.front(), 0u);
  EXPECT_EQ(result.faces.back(), most);

  // Hundreds of millions of crossings: to compute all of them would take days.
  mesh = {};
  std::vector<Vec3> points;
  std::mt19937 random(1);
  for (int i = 0; i < 30'000; ++i)
    points.push_back(onPlane(pick(random, 0, 9999) / 100.0, pick(random, 0, 9999) / 100.0));
  addFace(mesh, points);
  EXPECT_EQ(triangulate(mesh).skipped, (std::vector<SkippedFace>{{0, Reason::tooManyCrossings}}));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Triangulate, saysWhichFacesHaveNoTriangles) {
  PolyMesh mesh;
  const std::vector<Vec3> square{{0, 0, 0}, {9, 0, 0}, {9, 9, 0}, {0, 9, 0}};
  addFace(mesh, {{1, 1, 1}, {2, 2, 2}, {3, 3, 3}});
  addFace(mesh, std::vector<Vec3>{{1, 1, 1}, {2, 2, 2}});
  addFace(mesh, square);
  addFace(mesh, square);
  addFace(mesh, square);
  addFace(mesh, std::vector<Vec3>{{1, 1, 0}});
  addFace(mesh, std::vector<Vec3>(5, {7, 7, 7}));
  addFace(mesh, Indices{5, 6, 7, 5, 6, 7});
  mesh.holes = {3, 2, kNone, 4, 5, kNone};
  const Triangulation result = triangulate(mesh);
  std::string text;
  for (const SkippedFace& skipped : result.skipped) text += describe(skipped) + "\n";
  EXPECT_EQ(text,
            "Face 0 has no triangles: its corners lie on one line.\n"
            "Face 1 has no triangles: it has fewer than three corners.\n"
            "Face 3 has no triangles: its outline and its holes leave nothing.\n"
            "Face 5 has no triangles: it has fewer than three corners.\n"
            "Face 6 has no triangles: its corners lie on one line.\n"
            "Face 7 has no triangles: its outline and its holes leave nothing.\n");
  EXPECT_EQ(result.faces, (Indices{4, 4}));
  EXPECT_EQ(describe(SkippedFace{7, Reason::tooManyCrossings}),
            "Face 7 has no triangles: its outline and its holes cross in more than 512 points.");
  EXPECT_EQ(triangulate(MeshView{}), Triangulation{});
}

TEST(Triangulate, takesAnyArrays) {
  constexpr double kValues[] = {0, 1, -1, 0.5, 1e-320, 1e-170, 1e38, -1e150, 1e300, -1.7e308, 1.7e308};
  int rejected = 0;
  testing::internal::CaptureStderr();
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PolyMesh mesh = oneIn(random, 2) ? perforated(random) : crumpled(random);
    if (mesh.texIndices.empty() && oneIn(random, 2)) addTexture(mesh);
    for (std::vector<double>* const numbers : {&mesh.points, &mesh.texCoords})
      for (double& x : *numbers)
        if (oneIn(random, 6)) x = kValues[pick(random, 0, pick(random, 1, 10))];
    for (Indices* const array : {&mesh.counts, &mesh.indices, &mesh.texIndices, &mesh.holes})
      if (oneIn(random, 8) && !array->empty())
        (*array)[random() % array->size()] = oneIn(random, 2) ? kNone : static_cast<std::uint32_t>(pick(random, 0, 9));
    if (oneIn(random, 8) && !mesh.holes.empty()) mesh.holes.pop_back();
    const auto problems = facetbox::validate(mesh);
    if (std::ranges::any_of(problems, &facetbox::Problem::isFatal)) {
      ++rejected;
      EXPECT_THROW(triangulate(mesh), facetbox::InvalidMesh);
    } else {
      expectSound(mesh, triangulate(mesh));
    }
  }
  EXPECT_GT(rejected, 300);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Triangulate, tellsHowFarItIsAndStopsWhenAsked) {
  const support::Surface grid = support::gridOf(80, 80, [](unsigned, unsigned) { return false; });
  const PolyMesh mesh = support::polyMeshOf(grid.mPoints, grid.mFaces);
  const auto call = [&](const facetbox::TriangulateOptions& options) { return triangulate(mesh, options); };
  EXPECT_EQ(support::expectAskedOften(facetbox::TriangulateOptions{}, 40, call), triangulate(mesh));
}

}  // namespace
