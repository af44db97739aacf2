#include <facetbox/util/Triangulator.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/Polygon.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/triangles/TriangleMeshFactory.h>
#include <tests/support/Meshes.h>

namespace {

using support::Faces;
using support::Indices;
using support::kEnd;
using support::meshOf;
using support::pick;
using testing::HasSubstr;
using testing::ThrowsMessage;
using util::Mesh;
using util::TriangleMesh;
using util::Triangulator;
using util::Vec3;

constexpr double kNoise = 1e-4;  ///< of combined vertices, on contours of size 10
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::vector<double> coordinatesOf(const Mesh& mesh) {
  std::vector<double> coordinates;
  for (const Vec3& v : mesh.storage().mVertices) coordinates.insert(coordinates.end(), {v.x, v.y, v.z});
  return coordinates;
}

std::unique_ptr<TriangleMesh> trianglesOf(const Mesh& mesh, int option = 0) {
  return std::unique_ptr<TriangleMesh>(Triangulator().triangulate(mesh, coordinatesOf(mesh), option));
}

Vec3 pointOf(std::span<const double> coordinates, std::uint32_t v) {
  return {coordinates[3 * v], coordinates[3 * v + 1], coordinates[3 * v + 2]};
}

Vec3 areaVector(const TriangleMesh& mesh, std::size_t triangle) {
  const auto corner = [&](std::size_t k) {
    return pointOf(mesh.vertexCoordinates(), mesh.indices()[3 * triangle + k]);
  };
  return 0.5 * cross(corner(1) - corner(0), corner(2) - corner(0));
}

/// Whether a ray from (x, y) towards larger x leaves the contour an odd number of times.
template <class PointOf>
bool isInside(std::span<const std::uint32_t> contour, PointOf point, double x, double y) {
  bool inside = false;
  for (std::size_t i = 0; i < contour.size(); ++i) {
    const Vec3 a = point(contour[i]), b = point(contour[(i + 1) % contour.size()]);
    if ((a.y > y) != (b.y > y) && x < a.x + (y - a.y) / (b.y - a.y) * (b.x - a.x)) inside = !inside;
  }
  return inside;
}

/// Outer contours with holes, all crumpled, on a plane that no axis is parallel to. Faces 0, 1 and 2 are the holes.
/// Face 5 has none and few corners: with more, it might wind around its first corner twice.
Mesh randomMesh(std::mt19937& random) {
  std::vector<Vec3> points;
  Faces faces;
  for (int face = 0; face < 6; ++face) {
    Indices corners;
    for (int corner = pick(random, 3, face == 5 ? 4 : 9); corner > 0; --corner) {
      corners.push_back(static_cast<std::uint32_t>(points.size()));
      const double x = pick(random, 0, 8), y = pick(random, 0, 8);
      points.push_back({x, y, 0.5 * x - 0.25 * y});
    }
    faces.push_back(corners);
  }
  return meshOf(points, faces, {3, 0, 2, kEnd, 4, 1, kEnd});
}

/// At random points of the plane, triangles must lie once where contours go around an odd number of times, else never.
TEST(Triangulator, coversWhatContoursEncloseAnOddNumberOfTimes) {
  Triangulator triangulator;
  std::size_t combined = 0;
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const Mesh mesh = randomMesh(random);
    const auto& faces = mesh.storage().mFaces;
    util::TriangleMeshArrays arrays;
    arrays.vertexCoordinates = coordinatesOf(mesh);
    // Every second time mirrored: then the stored normals point the wrong way.
    if (seed % 2 != 0)
      for (std::size_t v = 0; v < mesh.storage().mVertices.size(); ++v) arrays.vertexCoordinates[3 * v] *= -1;
    const std::vector<double> given = arrays.vertexCoordinates;
    arrays.secondCoordinates = given;
    for (std::size_t v = 0; v < given.size(); v += 3)
      arrays.coordinateSets.resize(2), arrays.coordinateSets[1].push_back({given[v] + given[v + 1], 1});
    const std::unique_ptr<TriangleMesh> result(
        triangulator.triangulate(mesh, std::move(arrays), 0, Triangulator::TriangleMeshFactory()));
    const auto point = [&](std::uint32_t v) { return pointOf(result->vertexCoordinates(), v); };

    // The values of added vertices are as affine as those of the others.
    ASSERT_EQ(result->secondCoordinates().size(), result->vertexCoordinates().size());
    for (std::uint32_t v = 0; 3 * v < result->vertexCoordinates().size(); ++v) {
      EXPECT_LT(length(pointOf(result->secondCoordinates(), v) - point(v)), kNoise);
      EXPECT_NEAR(result->coordinateSets()[1][v][0], point(v).x + point(v).y, kNoise);
      EXPECT_NEAR(result->coordinateSets()[1][v][1], 1, kNoise);
    }
    combined += (result->vertexCoordinates().size() - given.size()) / 3;

    std::vector<std::uint32_t> sources;
    if (seed % 2 == 0) {
      const std::unique_ptr<Mesh> asFaces = triangulator.triangulateToFaces(mesh, &sources);
      support::expectConsistent(*asFaces);
      std::vector<std::uint32_t> indices(3 * sources.size());
      asFaces->storage().mFaces.copyCorners(indices.data());
      EXPECT_TRUE(std::ranges::equal(indices, result->indices()));
      EXPECT_TRUE(std::ranges::equal(coordinatesOf(*asFaces), result->vertexCoordinates()));
      EXPECT_TRUE(std::ranges::is_sorted(sources));
      for (std::size_t t = 0; t < sources.size(); ++t) {
        EXPECT_EQ(asFaces->storage().mFaces.normal(t), faces.normal(sources[t]));
        EXPECT_GT(dot(areaVector(*result, t), faces.normal(sources[t])), -kNoise);
      }
    }

    const auto expectedAt = [&](double x, double y) {
      std::vector<int> expected(6);
      for (const std::uint32_t face : {3u, 4u, 5u}) expected[face] = isInside(faces.corners(face), point, x, y);
      for (const auto& [face, hole] : {std::pair(3, 0), {3, 2}, {4, 1}})
        expected[face] ^= isInside(faces.corners(hole), point, x, y);
      return sources.empty() ? std::vector{0, 0, 0, expected[3] + expected[4] + expected[5], 0, 0} : expected;
    };
    for (int sample = 0; sample < 50; ++sample) {
      const double x = (seed % 2 != 0 ? -1 : 1) * pick(random, 0, 800'000) / 1e5, y = pick(random, 0, 800'000) / 1e5;
      const std::vector<int> expected = expectedAt(x, y);
      // The tessellator weighs in floats: points next to a contour may lie on the other side of it.
      if (expectedAt(x - kNoise, y - kNoise) != expected || expectedAt(x + kNoise, y - kNoise) != expected) continue;
      if (expectedAt(x - kNoise, y + kNoise) != expected || expectedAt(x + kNoise, y + kNoise) != expected) continue;
      std::vector<int> found(6);
      for (std::size_t t = 0; 3 * t < result->indices().size(); ++t)
        found[sources.empty() ? 3 : sources[t]] += isInside(result->indices().subspan(3 * t, 3), point, x, y);
      EXPECT_EQ(found, expected) << x << ' ' << y;
    }
  }
  EXPECT_GT(combined, 1000u);
}

TEST(Triangulator, agreesWithWhatIsKnownOfCollectedPolygons) {
  std::ifstream file(std::filesystem::path(FACETBOX_SHARED_DATA) / "polygons_triangulation.json");
  if (!file) GTEST_SKIP() << "no collected polygons beside the checkout";
  int areas = 0;
  for (const auto& polygon : nlohmann::json::parse(file)) {
    const std::string name = polygon["name"];
    SCOPED_TRACE(name);
    std::vector<Vec3> points;
    for (const auto& p : polygon["vertices"]) points.push_back({p[0], p[1], p[2]});
    Faces faces{polygon["faces"][0]["outer"].get<Indices>()};
    Indices holes{0};
    for (const auto& ring : polygon["faces"][0]["holes"]) {
      holes.push_back(static_cast<std::uint32_t>(faces.size()));
      faces.push_back(ring.get<Indices>());
    }
    holes.push_back(kEnd);
    const auto result = trianglesOf(meshOf(points, faces, holes));
    if (faces[0].size() < 3) {
      EXPECT_TRUE(result->indices().empty());
      continue;
    }
    double area = 0;
    for (std::size_t t = 0; 3 * t < result->indices().size(); ++t) area += length(areaVector(*result, t));
    EXPECT_EQ(result->indices().size() / 3, polygon["glu"]["triangles"].get<std::size_t>());
    EXPECT_EQ(result->vertexCoordinates().size() / 3 - points.size(), polygon["glu"]["new_points"].get<std::size_t>());
    if (name == "manifold_colinear4" || name == "manifold_degenerate4") continue;
    const double expected = polygon["odd_rule_area"];
    EXPECT_NEAR(area, expected, 1e-6 * std::max(expected, 1e-6));
    ++areas;
  }
  EXPECT_GT(areas, 100);
}

/// A long bar crossed by upright ones: four new vertices each.
Mesh crossedBars(std::uint32_t bars) {
  std::vector<Vec3> points{{-1, 0, 0}, {2.0 * bars, 0, 0}, {2.0 * bars, 1, 0}, {-1, 1, 0}};
  Faces faces{{0, 1, 2, 3}};
  Indices holes{0};
  for (std::uint32_t bar = 0; bar < bars; ++bar) {
    const double x = 2.0 * bar;
    const auto first = static_cast<std::uint32_t>(points.size());
    points.insert(points.end(), {{x, -1, 0}, {x + 1, -1, 0}, {x + 1, 2, 0}, {x, 2, 0}});
    holes.push_back(static_cast<std::uint32_t>(faces.size()));
    faces.push_back({first, first + 1, first + 2, first + 3});
  }
  holes.push_back(kEnd);
  return meshOf(points, faces, holes);
}

TEST(Triangulator, isAsGoodAsNewAfterTooManyCombinedVertices) {
  const Mesh most = crossedBars(128), tooMany = crossedBars(129);
  const auto expected = trianglesOf(most);
  EXPECT_EQ(expected->vertexCoordinates().size() / 3, most.storage().mVertices.size() + 512);
  Triangulator triangulator;
  for (int round = 0; round < 2; ++round) {
    testing::internal::CaptureStderr();
    EXPECT_THAT([&] { triangulator.triangulate(tooMany, coordinatesOf(tooMany), 0); },
                ThrowsMessage<std::runtime_error>("Triangulator: not enough space for combined vertices!"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const std::unique_ptr<TriangleMesh> result(triangulator.triangulate(most, coordinatesOf(most), 0));
    EXPECT_TRUE(std::ranges::equal(result->indices(), expected->indices()));
    EXPECT_TRUE(std::ranges::equal(result->vertexCoordinates(), expected->vertexCoordinates()));
  }
}

// Each axis becomes the next one: every face is seen edge on along the normal that it has in the mesh.
TEST(Triangulator, aTurnedCubeHasItsTwelveTrianglesFacingOutward) {
  const support::Surface cube = support::surfaceOf({{0, 0, 0}}, 2.0);
  std::vector<double> turned;
  for (const Vec3& p : cube.mPoints) turned.insert(turned.end(), {p.y, p.z, p.x});
  const std::unique_ptr<TriangleMesh> mesh(Triangulator().triangulate(meshOf(cube.mPoints, cube.mFaces), turned, 0));
  ASSERT_EQ(mesh->indices().size(), 36u);
  for (std::size_t t = 0; t < 12; ++t) {
    const Vec3 corner = pointOf(mesh->vertexCoordinates(), mesh->indices()[3 * t]);
    EXPECT_EQ(dot(areaVector(*mesh, t), corner - Vec3{1, 1, 1}), 2) << t;
  }
}

TEST(Triangulator, rejectsHoleGroupsThatCannotBeFollowed) {
  const std::vector<Vec3> points{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  const Faces faces(3, {0, 1, 2});
  const auto illegal = ThrowsMessage<std::runtime_error>("illegal hole index.");
  for (const Indices& holes : {Indices{0}, {0, 1}, {2, kEnd, 0, 1}, {0, 3, kEnd}, {1, 2, 0x7FFFFFFF, kEnd}})
    EXPECT_THAT([&] { trianglesOf(meshOf(points, faces, holes)); }, illegal) << testing::PrintToString(holes);
  // Groups of faces that the mesh does not have make no holes; a hole gives nothing, even where it heads a group.
  EXPECT_EQ(trianglesOf(meshOf(points, faces, {3, 1, kEnd, kEnd, 7}))->indices().size(), 9u);
  EXPECT_EQ(trianglesOf(meshOf(points, faces, {0, 1, kEnd, 1, 2, kEnd}))->indices().size(), 0u);
  EXPECT_THROW(Triangulator().triangulate(meshOf(points, faces), {1, 2, 3}, 0), std::invalid_argument);
}

TEST(Triangulator, survivesAnyCoordinates) {
  const double values[] = {0, 1, -1, 1e-320, 1e-170, 1e38, 1e77, -1e150, 1e151, 1e300, -1e308, kInf, -kInf, kNaN};
  testing::internal::CaptureStderr();
  for (unsigned seed = 0; seed < 2000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const int last = pick(random, 1, std::size(values) - 1);
    Mesh mesh = randomMesh(random);
    for (Vec3& v : mesh.storage().mVertices)
      for (double* c : {&v.x, &v.y, &v.z})
        if (pick(random, 0, 3) == 0) *c = values[pick(random, 0, last)];
    for (std::size_t face = 0; seed % 2 != 0 && face < 6; ++face)
      mesh.storage().mFaces.setNormal(face, {values[pick(random, 0, 13)], values[pick(random, 0, 13)], 1});
    const auto result = trianglesOf(mesh);
    for (const std::uint32_t v : result->indices()) EXPECT_LT(3 * v, result->vertexCoordinates().size());
  }
  EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Tessellation Error: "));
}

}  // namespace
