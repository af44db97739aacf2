#include <facetbox/PolyMesh.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using facetbox::describe;
using facetbox::InvalidMesh;
using facetbox::kNone;
using facetbox::MeshView;
using facetbox::PolyMesh;
using facetbox::Problem;
using facetbox::validate;
using Kind = Problem::Kind;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

/// A square with a square hole, and a triangle beside them:
///
///   3-----------2
///   |   7---6   |   8
///   |   |   |   |   |  .
///   |   4---5   |   9---10
///   0-----------1
PolyMesh plate() {
  PolyMesh mesh;
  mesh.points = {0, 0, 0, 3, 0, 0, 3, 3, 0, 0, 3, 0, 1, 1, 0, 2, 1, 0, 2, 2, 0, 1, 2, 0, 4, 2, 0, 4, 1, 0, 5, 1, 0};
  mesh.counts = {4, 4, 3};
  mesh.indices = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  mesh.holes = {0, 1, kNone};
  return mesh;
}

std::string problemsOf(const MeshView& mesh, std::size_t limit = 100) {
  std::string text;
  for (const Problem& problem : validate(mesh, limit))
    text += describe(problem) + (problem.isFatal ? "" : " (fine)") + "\n";
  return text;
}

template <class Edit>
std::string problemsAfter(Edit edit) {
  PolyMesh mesh = plate();
  edit(mesh);
  return problemsOf(mesh);
}

TEST(Validate, namesWhatIsWrongAndWhere) {
  EXPECT_EQ(problemsOf(plate()), "");
  EXPECT_EQ(problemsOf({}), "");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) { m.points.pop_back(); }),
            "points holds 32 numbers, which is not a multiple of three.\n");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) { m.indices.pop_back(); }),
            "The counts add up to 11 corners, but there are 10 indices.\n");
  // Counts whose sum would wrap around in 32 bits.
  EXPECT_EQ(problemsAfter([](PolyMesh& m) {
              m.counts = {4, 4, 0xFFFFFFFFu, 4};
            }),
            "The counts add up to 4294967307 corners, but there are 11 indices.\n");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) { m.points[7] = kNaN; }),
            "Vertex 2 has a coordinate that is infinite or not a number.\n");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) { m.indices[6] = 11; }),
            "Face 1, corner 2: vertex 11 does not exist (the mesh has 11 vertices).\n");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) {
              m.counts = {4, 4, 1, 2};
            }),
            "Face 2: 1 corner, fewer than three; the face is left out. (fine)\n"
            "Face 3: 2 corners, fewer than three; the face is left out. (fine)\n");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) { m.labels = {1, 2}; }), "There are 2 labels for 3 faces.\n");
}

TEST(Validate, looksAtTextureCoordinatesCornerByCorner) {
  const auto textured = [](std::vector<std::uint32_t> pairs) {
    return problemsAfter([&](PolyMesh& m) {
      m.texCoords = {0, 0, 1, 0, 1, 1};
      m.texIndices = std::move(pairs);
    });
  };
  constexpr std::uint32_t N = kNone;
  EXPECT_EQ(textured({0, 1, 2, 0, N, N, N, N, 2, 1, 0}), "");
  EXPECT_EQ(textured({0, 1, 2, 0, N, N, 1, N, 2, 1, 0}),
            "Face 1, corner 0: no texture coordinates, but other corners of the face have some.\n"
            "Face 1, corner 1: no texture coordinates, but other corners of the face have some.\n"
            "Face 1, corner 3: no texture coordinates, but other corners of the face have some.\n");
  EXPECT_EQ(textured({0, 1, 2, 3, N, N, N, N, 2, 1, 0}),
            "Face 0, corner 3: texture coordinate pair 3 does not exist (the mesh has 3 pairs).\n");
  EXPECT_EQ(textured({0, 1}), "There are 2 texIndices for 11 corners.\n");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) { m.texCoords = {0}; }), "texCoords holds 1 numbers, which is odd.\n");
  EXPECT_EQ(problemsAfter([](PolyMesh& m) {
              m.texCoords = {0, 0, 0, -INFINITY};
            }),
            "Texture coordinate pair 1 has a number that is infinite or not a number.\n");
}

TEST(Validate, looksAtHoleGroups) {
  const auto grouped = [](std::vector<std::uint32_t> holes) {
    return problemsAfter([&](PolyMesh& m) { m.holes = std::move(holes); });
  };
  constexpr std::uint32_t N = kNone;
  EXPECT_EQ(grouped({0, 1, 2, N}), "");
  EXPECT_EQ(grouped({0, N, 2, 1, N}), "");
  EXPECT_EQ(grouped({0, 1}), "The last group of holes does not end with kNone.\n");
  EXPECT_EQ(grouped({N, 0, 1, N, N}),
            "Entry 0 of holes ends a group that names no outer face.\n"
            "Entry 4 of holes ends a group that names no outer face.\n");
  EXPECT_EQ(grouped({0, 3, N}), "Entry 1 of holes names face 3, which does not exist (the mesh has 3 faces).\n");
  EXPECT_EQ(grouped({0, 1, N, 2, 1, N}), "Entry 4 of holes names face 1 a second time.\n");
  EXPECT_EQ(grouped({0, 1, N, 0, 2, N}), "Entry 3 of holes names face 0 a second time.\n");
  EXPECT_EQ(grouped({0, 0, N}), "Entry 1 of holes makes face 0 both an outer face and a hole.\n");
  EXPECT_EQ(grouped({0, 1, N, 1, 2, N}), "Entry 3 of holes makes face 1 both an outer face and a hole.\n");
}

TEST(Validate, stopsAtTheLimitAndCountsTheRest) {
  PolyMesh mesh = plate();
  for (std::uint32_t& index : mesh.indices) index += 100;
  EXPECT_EQ(problemsOf(mesh, 1),
            "Face 0, corner 0: vertex 100 does not exist (the mesh has 11 vertices).\nAnd 10 more.\n");
  const auto none = validate(mesh, 0);
  ASSERT_EQ(none.size(), 1u);
  EXPECT_TRUE(none[0].isFatal);
  // What is left out does no harm, however often.
  mesh = plate();
  mesh.counts.assign(11, 1);
  mesh.holes.clear();
  EXPECT_FALSE(validate(mesh, 3).back().isFatal);
  // It does not hide what is fatal.
  mesh.indices[10] = 11;
  EXPECT_EQ(problemsOf(mesh, 2),
            "Face 0: 1 corner, fewer than three; the face is left out. (fine)\n"
            "Face 10, corner 0: vertex 11 does not exist (the mesh has 11 vertices).\n"
            "And 10 more. (fine)\n");

  const InvalidMesh error({{.kind = Kind::countsDoNotAddUp, .value = 1, .limit = 2}, {.kind = Kind::more, .value = 7}});
  EXPECT_STREQ(error.what(), "The counts add up to 2 corners, but there are 1 indices.\nAnd 7 more.");
  EXPECT_EQ(error.problems().size(), 2u);
}

/// The same question as a list of conditions, for one corner and one entry at a time.
bool isFit(const PolyMesh& m) {
  const auto finite = [](double x) { return std::isfinite(x); };
  if (m.points.size() % 3 != 0 || m.texCoords.size() % 2 != 0) return false;
  if (!std::ranges::all_of(m.points, finite) || !std::ranges::all_of(m.texCoords, finite)) return false;
  std::size_t at = 0;
  for (const std::uint32_t count : m.counts) {
    std::size_t textured = 0;
    for (std::uint32_t k = 0; k < count; ++k, ++at) {
      if (at >= m.indices.size() || m.indices[at] >= m.points.size() / 3) return false;
      if (m.texIndices.empty()) continue;
      if (at >= m.texIndices.size()) return false;
      if (m.texIndices[at] == kNone) continue;
      if (m.texIndices[at] >= m.texCoords.size() / 2) return false;
      ++textured;
    }
    if (textured != 0 && textured != count) return false;
  }
  if (at != m.indices.size() || (!m.texIndices.empty() && at != m.texIndices.size())) return false;
  if (!m.labels.empty() && m.labels.size() != m.counts.size()) return false;
  std::set<std::uint32_t> named;
  for (std::size_t i = 0; i < m.holes.size(); ++i) {
    const bool opens = i == 0 || m.holes[i - 1] == kNone, closes = m.holes[i] == kNone;
    if (opens && closes) return false;
    if (!closes && (m.holes[i] >= m.counts.size() || !named.insert(m.holes[i]).second)) return false;
  }
  return m.holes.empty() || m.holes.back() == kNone;
}

TEST(Validate, findsAnyDamageToASoundMesh) {
  std::mt19937 random(7);
  const auto below = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };
  std::size_t fit = 0, unfit = 0;
  for (int round = 0; round < 20000; ++round) {
    // More faces than one run of the fast look, at times.
    PolyMesh mesh;
    const std::size_t faces = round % 50 == 0 ? 1500 + below(600) : 1 + below(6), vertices = 3 + below(8);
    for (std::size_t i = 0; i < 3 * vertices; ++i) mesh.points.push_back(static_cast<double>(below(10)));
    const bool isTextured = below(2) == 0;
    if (isTextured) mesh.texCoords.assign(2 * (1 + below(5)), 0.5);
    for (std::size_t f = 0; f < faces; ++f) {
      mesh.counts.push_back(static_cast<std::uint32_t>(below(10) == 0 ? below(3) : 3 + below(3)));
      const bool isBare = below(4) == 0;
      for (std::uint32_t k = 0; k < mesh.counts.back(); ++k) {
        mesh.indices.push_back(static_cast<std::uint32_t>(below(vertices)));
        if (isTextured)
          mesh.texIndices.push_back(isBare ? kNone : static_cast<std::uint32_t>(below(mesh.texCoords.size() / 2)));
      }
      if (below(3) == 0) mesh.holes.insert(mesh.holes.end(), {static_cast<std::uint32_t>(f), kNone});
    }
    const auto spoil = [&](auto& values, auto value) {
      if (!values.empty()) values[below(values.size())] = value;
    };
    const auto any = static_cast<std::uint32_t>(below(2) == 0 ? below(12) : kNone);
    switch (below(9)) {
      case 0:
        spoil(mesh.points, below(2) == 0 ? kNaN : HUGE_VAL);
        break;
      case 1:
        spoil(mesh.indices, any);
        break;
      case 2:
        spoil(mesh.texIndices, any);
        break;
      case 3:
        spoil(mesh.holes, any);
        break;
      case 4:
        spoil(mesh.counts, any);
        break;
      case 5:
        mesh.points.resize(below(mesh.points.size() + 1));
        break;
      case 6:
        mesh.holes.resize(below(mesh.holes.size() + 1));
        break;
      case 7:
        mesh.labels.assign(faces + below(2), 1);
        break;
      default:
        break;
    }
    const auto problems = validate(mesh);
    const bool isSound = std::ranges::none_of(problems, &Problem::isFatal);
    ASSERT_EQ(isSound, isFit(mesh)) << round << "\n" << problemsOf(mesh);
    ++(isSound ? fit : unfit);
  }
  EXPECT_GT(std::min(fit, unfit), 4000u);
}

}  // namespace
