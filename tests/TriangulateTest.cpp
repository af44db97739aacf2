#include <facetbox/triangulate.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/util/Triangulator.h>
#include <tests/support/Meshes.h>

namespace {

using facetbox::describe;
using facetbox::kNone;
using facetbox::MeshView;
using facetbox::PolyMesh;
using facetbox::SkippedFace;
using facetbox::triangulate;
using facetbox::Triangulation;
using support::Indices;
using support::oneIn;
using support::pick;
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

/// Per face: what a plain sum over its corners says.
std::vector<Vec3> areaVectorsOf(const MeshView& mesh) {
  std::vector<Vec3> sums;
  std::size_t first = 0;
  for (const std::uint32_t count : mesh.counts) {
    const auto at = [&](std::size_t i) { return util::toVec3(&mesh.points[3 * std::size_t{mesh.indices[first + i]}]); };
    Vec3 sum{};
    for (std::size_t i = 1; i + 1 < count; ++i) sum = sum + areaVector(at(0), at(i), at(i + 1));
    sums.push_back(sum);
    first += count;
  }
  return sums;
}

std::vector<Vec3> areaVectorsOf(const MeshView& mesh, const Triangulation& result) {
  std::vector<Vec3> sums(mesh.counts.size());
  for (std::size_t t = 0; t < result.faces.size(); ++t) {
    const auto at = [&](std::size_t k) { return pointOf(mesh, result, result.triangles[3 * t + k]); };
    sums.at(result.faces[t]) = sums.at(result.faces[t]) + areaVector(at(0), at(1), at(2));
  }
  return sums;
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

PolyMesh movedBy(PolyMesh mesh, const Vec3& offset) {
  for (std::size_t i = 0; i < mesh.points.size(); i += 3) {
    mesh.points[i] += offset.x;
    mesh.points[i + 1] += offset.y;
    mesh.points[i + 2] += offset.z;
  }
  return mesh;
}

PolyMesh scaledBy(PolyMesh mesh, int exponent) {
  for (double& x : mesh.points) x = std::ldexp(x, exponent);
  return mesh;
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

TEST(Triangulate, coversFacesLessTheirHoles) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh = perforated(random);
    const Triangulation result = triangulate(mesh);
    expectSound(mesh, result);
    EXPECT_TRUE(result.skipped.empty() && result.madePoints.empty() && result.madeTexCoords.empty());

    const std::vector<Vec3> areas = areaVectorsOf(mesh);
    std::vector<double> expected, found;
    for (const Vec3& area : areas) expected.push_back(length(area));
    std::vector<std::size_t> triangles(mesh.counts.begin(), mesh.counts.end());
    for (std::size_t& count : triangles) count -= 2;
    std::vector<bool> isTextured(mesh.counts.size(), !mesh.texIndices.empty());
    std::size_t corner = 0;
    for (std::size_t face = 0; face < mesh.counts.size() && !mesh.texIndices.empty(); corner += mesh.counts[face++])
      isTextured[face] = mesh.texIndices[corner] != kNone;
    for (std::size_t i = 0, outer = 0; i < mesh.holes.size(); ++i) {
      const std::uint32_t face = mesh.holes[i];
      if (face == kNone || i == 0 || mesh.holes[i - 1] == kNone) {
        outer = face;
        continue;
      }
      expected[outer] -= std::exchange(expected[face], 0);
      triangles[outer] += mesh.counts[face] + 2;
      triangles[face] = 0;
      isTextured[outer] = isTextured[outer] && isTextured[face];
    }
    for (std::size_t face = 0; face < areas.size(); ++face)
      found.push_back(dot(areaVectorsOf(mesh, result)[face], areas[face]) / length(areas[face]));
    for (std::size_t face = 0; face < areas.size(); ++face) {
      EXPECT_NEAR(found[face], expected[face], 1e-13);
      EXPECT_EQ(std::ranges::count(result.faces, face), static_cast<std::ptrdiff_t>(triangles[face]));
    }
    for (std::size_t i = 0; i < result.texIndices.size(); ++i)
      EXPECT_EQ(result.texIndices[i] != kNone, isTextured[result.faces[i / 3]]);
    expectMapped(mesh, result, 1e-15);
  }
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

/// How many of the triangles' corners are made points, and how many of these do not lie on two edges of their face and
/// its holes, or at the end of one.
std::pair<int, int> countMadeCorners(const PolyMesh& mesh, const Triangulation& result) {
  std::vector<std::vector<std::pair<Vec3, Vec3>>> edges(6);
  std::size_t first = 0;
  for (std::size_t face = 0; face < 6; first += mesh.counts[face++])
    for (std::size_t i = 0; i < mesh.counts[face]; ++i) {
      const auto at = [&](std::size_t k) { return pointOf(mesh, result, mesh.indices[first + k % mesh.counts[face]]); };
      edges[std::array{3, 4, 3, 3, 4, 5}[face]].emplace_back(at(i), at(i + 1));
    }
  int made = 0, astray = 0;
  for (std::size_t i = 0; i < result.triangles.size(); ++i) {
    if (3 * result.triangles[i] < mesh.points.size()) continue;
    const Vec3 p = pointOf(mesh, result, result.triangles[i]);
    int meeting = 0;
    for (const auto& [a, b] : edges[result.faces[i / 3]]) {
      const double before = length(p - a), after = length(b - p), all = length(b - a);
      if (before < 1e-12 || after < 1e-12) meeting -= 100;
      meeting += before <= all && after <= all && length(cross(p - a, b - a)) < 1e-13 * all;
    }
    ++made;
    astray += meeting < 2;
  }
  return {made, astray};
}

TEST(Triangulate, hasTheTrianglesOfTheTriangulatorWithPointsInFullPrecision) {
  int made = 0, astray = 0;
  util::Triangulator triangulator;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PolyMesh mesh = crumpled(random);
    addTexture(mesh);
    const Triangulation result = triangulate(mesh);
    expectSound(mesh, result);
    expectMapped(mesh, result, 1e-12);
    const auto [madeHere, astrayHere] = countMadeCorners(mesh, result);
    made += madeHere;
    astray += astrayHere;

    const std::vector<float> coords(mesh.points.begin(), mesh.points.end());
    const std::vector<std::int32_t> counts(mesh.counts.begin(), mesh.counts.end());
    const util::Mesh asWorkingMesh("", static_cast<int>(coords.size()), coords.data(), mesh.indices.data(), 6,
                                   counts.data(), mesh.holes.data(), static_cast<int>(mesh.holes.size()), nullptr);
    std::vector<std::uint32_t> faces;
    const auto expected = triangulator.triangulateToFaces(asWorkingMesh, &faces);
    // Where the area vector vanishes, the triangulator looks along y, whatever the face.
    const auto areas = areaVectorsOf(mesh);
    if (std::ranges::any_of(areas, [](const Vec3& area) { return length(area) < 1e-9; })) continue;
    ASSERT_EQ(result.faces, faces);
    for (std::size_t i = 0; i < result.triangles.size(); ++i) {
      const Vec3& p = expected->storage().mVertices[expected->storage().mFaces.corners(i / 3)[i % 3]];
      EXPECT_LT(length(pointOf(mesh, result, result.triangles[i]) - p), 1e-5);
    }
  }
  // Where edges overlap and others cross them there, the tessellator moves crossings.
  EXPECT_GT(made, 80'000);
  EXPECT_LT(astray, made / 300) << made;
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
      EXPECT_EQ(triangulate(scaledBy(mesh, exponent)), scaled) << exponent;
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
  EXPECT_EQ(length(areaVectorsOf(mesh, result)[0]), 8);
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
  mesh.holes = {3, 2, kNone, 4, 5, kNone};
  const Triangulation result = triangulate(mesh);
  std::string text;
  for (const SkippedFace& skipped : result.skipped) text += describe(skipped) + "\n";
  EXPECT_EQ(text,
            "Face 0 has no triangles: its corners lie on one line.\n"
            "Face 1 has no triangles: it has fewer than three corners.\n"
            "Face 3 has no triangles: its outline and its holes leave nothing.\n"
            "Face 5 has no triangles: it has fewer than three corners.\n"
            "Face 6 has no triangles: its corners lie on one line.\n");
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

/// Points, faces and texture coordinates of an OBJ file.
PolyMesh readObj(const std::filesystem::path& path) {
  PolyMesh mesh;
  std::ifstream file(path);
  for (std::string line, word; std::getline(file, line);) {
    std::istringstream in(line);
    in >> word;
    if (word == "v" || word == "vt") {
      std::vector<double>& to = word == "v" ? mesh.points : mesh.texCoords;
      double x;
      for (std::size_t n = word == "v" ? 3 : 2; n > 0 && in >> x; --n) to.push_back(x);
    } else if (word == "f") {
      mesh.counts.push_back(0);
      const auto numberOf = [](long given, std::size_t count) {
        return static_cast<std::uint32_t>(given < 0 ? given + static_cast<long>(count) : given - 1);
      };
      for (long vertex, pair; in >> vertex; ++mesh.counts.back()) {
        mesh.indices.push_back(numberOf(vertex, mesh.points.size() / 3));
        const bool hasPair = in.peek() == '/' && in.ignore() && in.peek() != '/' && in >> pair;
        mesh.texIndices.push_back(hasPair ? numberOf(pair, mesh.texCoords.size() / 2) : kNone);
        while (!in.eof() && !std::isspace(in.peek())) in.ignore();
      }
    }
    word.clear();
  }
  return mesh;
}

TEST(Triangulate, keepsTheAreaVectorsOfModels) {
  const auto folder = std::filesystem::path(FACETBOX_SHARED_DATA) / "models";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "no models beside the checkout";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".obj") continue;
    SCOPED_TRACE(entry.path().filename());
    const PolyMesh mesh = readObj(entry.path());
    const Triangulation result = triangulate(mesh);
    expectSound(mesh, result);
    const std::vector<Vec3> expected = areaVectorsOf(mesh), found = areaVectorsOf(mesh, result);
    // But for faces whose outline crosses itself as it is seen.
    std::set<std::uint32_t> crossing;
    for (std::size_t i = 0; i < result.triangles.size(); ++i)
      if (3 * std::size_t{result.triangles[i]} >= mesh.points.size()) crossing.insert(result.faces[i / 3]);
    EXPECT_LE(crossing.size(), 2u);
    for (std::uint32_t face = 0; face < expected.size(); ++face)
      EXPECT_TRUE(crossing.contains(face) ||
                  length(found[face] - expected[face]) <= 1e-12 * (length(expected[face]) + 1e-3))
          << face;
    EXPECT_EQ(triangulate(scaledBy(mesh, 20)).triangles, result.triangles);
    EXPECT_EQ(triangulate(scaledBy(mesh, -20)).triangles, result.triangles);
  }
}

}  // namespace
