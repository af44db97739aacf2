#include <facetbox/check.h>
#include <facetbox/clean.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

#include <gtest/gtest.h>

#include <facetbox/mesh/WorkingMesh.h>
#include <tests/support/CleanCheck.h>
#include <tests/support/Meshes.h>
#include <tests/support/PolyMeshes.h>

namespace {

using namespace facetbox;
using namespace support;

Cleaned clean(const PolyMesh& mesh, std::vector<Step> steps) { return facetbox::clean(mesh, steps); }

/// A random scene's clean-up, all steps in some order.
std::vector<Step> randomSteps(std::mt19937& random, double unit) {
  std::vector<Step> steps = {MergeVertices{0.1 * unit},
                             RemoveZeroEdges{0.1 * unit},
                             RemoveZeroFaces{1e-3 * unit * unit},
                             RemoveDoubleFaces{oneIn(random, 2)},
                             ConformNormals{},
                             MergeCoplanar{oneIn(random, 2) ? 0.5 : 8.0, oneIn(random, 2)},
                             RemoveColinear{0.5, oneIn(random, 2)}};
  std::shuffle(steps.begin() + 1, steps.end(), random);
  steps.resize(static_cast<std::size_t>(pick(random, 1, 7)));
  return steps;
}

/// The same steps for a mesh `factor` times as large.
std::vector<Step> scaled(std::vector<Step> steps, double factor) {
  for (Step& step : steps) {
    if (auto* merge = std::get_if<MergeVertices>(&step)) merge->tolerance *= factor;
    if (auto* edges = std::get_if<RemoveZeroEdges>(&step)) edges->threshold *= factor;
    if (auto* faces = std::get_if<RemoveZeroFaces>(&step)) faces->threshold *= factor * factor;
  }
  return steps;
}

Indices firstNumbers(std::size_t count) {
  Indices numbers(count);
  std::iota(numbers.begin(), numbers.end(), 0u);
  return numbers;
}

TEST(Clean, withoutStepsNothingChanges) {
  int unchanged = 0;
  for (unsigned seed = 0; seed < 50; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh = randomScene(random);
    const Cleaned cleaned = clean(mesh, {});
    if (!cleaned.droppedHoles.empty()) continue;
    EXPECT_EQ(cleaned.mesh, mesh);
    ++unchanged;
    const Indices vertices = firstNumbers(mesh.points.size() / 3), faces = firstNumbers(mesh.counts.size());
    EXPECT_EQ(cleaned.vertexMap, vertices);
    EXPECT_EQ(cleaned.vertexSources, vertices);
    EXPECT_EQ(cleaned.faceMap, faces);
    EXPECT_EQ(cleaned.sources, faces);
  }
  EXPECT_GT(unchanged, 10);
}

// What the narrow way through floats deleted: coordinates that a float cannot tell apart.
TEST(Clean, keepsSmallFacesFarFromTheOrigin) {
  const double x = 85227.43, y = 446522.057, side = 0.02;
  const PolyMesh square{.points = {x, y, 0, x + side, y, 0, x + side, y + side, 0, x, y + side, 0},
                        .counts = {4},
                        .indices = {0, 1, 2, 3}};
  EXPECT_EQ(clean(square, allSteps(0.001, side * std::sqrt(2))).mesh.points, square.points);
}

/// Each map fits the others, and points at what is there.
void expectMapsFit(const PolyMesh& mesh, const Cleaned& cleaned) {
  const std::size_t faces = cleaned.mesh.counts.size(), vertices = cleaned.mesh.points.size() / 3;
  ASSERT_EQ(cleaned.vertexMap.size(), mesh.points.size() / 3);
  ASSERT_EQ(cleaned.faceMap.size(), mesh.counts.size());
  ASSERT_EQ(cleaned.vertexSources.size(), vertices);
  ASSERT_EQ(cleaned.sourceOffsets.size(), faces + 1);
  for (std::uint32_t v = 0; v < vertices; ++v) {
    const std::uint32_t source = cleaned.vertexSources[v];
    EXPECT_EQ(cleaned.vertexMap.at(source), v);
    for (std::size_t axis = 0; axis < 3; ++axis)
      EXPECT_EQ(cleaned.mesh.points[3 * v + axis], mesh.points[3 * source + axis]);
  }
  for (const std::uint32_t v : cleaned.vertexMap) EXPECT_TRUE(v == kNone || v < vertices);
  std::size_t mapped = 0;
  for (const std::uint32_t f : cleaned.faceMap) mapped += f != kNone;
  EXPECT_EQ(cleaned.sources.size(), mapped);
  for (std::size_t f = 0; f < faces; ++f) {
    EXPECT_LE(cleaned.sourceOffsets[f], cleaned.sourceOffsets[f + 1]);
    for (std::size_t i = cleaned.sourceOffsets[f]; i < cleaned.sourceOffsets[f + 1]; ++i) {
      EXPECT_EQ(cleaned.faceMap[cleaned.sources[i]], f);
      if (i > cleaned.sourceOffsets[f]) {
        EXPECT_LT(cleaned.sources[i - 1], cleaned.sources[i]);
      }
    }
  }
}

TEST(Clean, mapsFitAndStepsAddUp) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh = randomScene(random);
    const std::vector<Step> steps = randomSteps(random, 1);
    const Cleaned cleaned = clean(mesh, steps, {.measures = true});
    expectMapsFit(mesh, cleaned);
    EXPECT_EQ(clean(mesh, steps).mesh, cleaned.mesh);
    EXPECT_EQ(cleaned.steps.front().measuresBefore, measure(clean(mesh, {}).mesh));
    EXPECT_EQ(cleaned.steps.back().measuresAfter, measure(cleaned.mesh));
    EXPECT_TRUE(validate(cleaned.mesh).empty());
    ASSERT_EQ(cleaned.steps.size(), steps.size());
    for (std::size_t i = 0; i < steps.size(); ++i) {
      EXPECT_EQ(cleaned.steps[i].step, steps[i]);
      if (i > 0) {
        EXPECT_EQ(cleaned.steps[i].before, cleaned.steps[i - 1].after);
        EXPECT_EQ(cleaned.steps[i].measuresBefore, cleaned.steps[i - 1].measuresAfter);
      }
    }
    EXPECT_EQ(cleaned.steps.back().after.vertices, cleaned.mesh.points.size() / 3);
    EXPECT_EQ(cleaned.steps.back().after.corners, cleaned.mesh.indices.size());
  }
}

TEST(Clean, mergedFacesAreWhatTheyAreMadeOf) {
  int merged = 0;
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh =
        clean(randomScene(random), {MergeVertices{0.1}, RemoveZeroEdges{0.1}, RemoveDoubleFaces{}}).mesh;
    const Cleaned cleaned = clean(mesh, {MergeCoplanar{oneIn(random, 2) ? 1.0 : 8.0, oneIn(random, 2)}});
    EXPECT_EQ(faultOfMergedAreas(mesh, cleaned), "");
    merged += cleaned.mesh.counts.size() < mesh.counts.size();
  }
  EXPECT_GT(merged, 100);
}

// Two halves of a frame: the hole takes the place of the second one, so no face goes.
TEST(Clean, aHoleInPlaceOfTheLastFaceIsNotMadeOfIt) {
  const PolyMesh halves{.points = {0, 0, 0, 2, 0, 0, 2, 1, 0, 1, 1, 0, 1, 3, 0, 2, 3, 0,
                                   2, 4, 0, 0, 4, 0, 4, 0, 0, 4, 4, 0, 3, 3, 0, 3, 1, 0},
                        .counts = {8, 8},
                        .indices = {0, 1, 2, 3, 4, 5, 6, 7, 1, 8, 9, 6, 5, 10, 11, 2}};
  const Cleaned merged = clean(halves, {MergeCoplanar{0}});
  EXPECT_EQ(merged.mesh.holes, (Indices{0, 1, kNone}));
  EXPECT_EQ(merged.faceMap, (Indices{0, 0}));
  EXPECT_EQ(merged.sourceOffsets, (Indices{0, 2, 2}));
}

// One call for all steps gives what a call for each gives. Limits follow the mesh's size, which steps may change a
// little: that touches no face here.
TEST(Clean, chainsGiveWhatTheirStepsGive) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh = randomScene(random);
    const std::vector<Step> steps = randomSteps(random, 1);
    const Cleaned chain = clean(mesh, steps);
    PolyMesh apart = mesh;
    Indices vertexMap = firstNumbers(mesh.points.size() / 3), faceMap = firstNumbers(mesh.counts.size());
    for (const Step& step : steps) {
      const Cleaned one = clean(apart, {step});
      apart = one.mesh;
      for (std::uint32_t& v : vertexMap) v = v == kNone ? v : one.vertexMap[v];
      for (std::uint32_t& f : faceMap) f = f == kNone ? f : one.faceMap[f];
    }
    EXPECT_EQ(chain.mesh, apart);
    EXPECT_EQ(chain.vertexMap, vertexMap);
    EXPECT_EQ(chain.faceMap, faceMap);
  }
}

// Both sides of a sheet, cut along different diagonals. What the first search has found does not hold for merged faces.
TEST(Clean, mergingBringsDoublesToLight) {
  const PolyMesh sheet{.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0},
                       .counts = {3, 3, 3, 3},
                       .indices = {0, 1, 2, 0, 2, 3, 0, 3, 1, 1, 3, 2}};
  const Cleaned cleaned = clean(sheet, {RemoveDoubleFaces{}, MergeCoplanar{1}, RemoveDoubleFaces{}});
  EXPECT_EQ(cleaned.faceMap, (Indices{0, 0, kNone, kNone}));
}

/// Edges with one use.
std::size_t openEdgesOf(const PolyMesh& mesh) { return check(mesh).openEdges.size(); }

/// A box of which the sides x = 0 and y = 0 meet in two edges: the corner (0, 0) is cut off at the top by a needle.
PolyMesh boxWithANeedle() {
  return {.points = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1, 1, 0, 1, 1, 1, 1, 0, 1, 1, 0.02, 0, 1},
          .counts = {4, 5, 4, 4, 4, 4, 3},
          .indices = {3, 2, 1, 0, 0, 1, 5, 8, 4, 1, 2, 6, 5, 2, 3, 7, 6, 3, 0, 4, 7, 8, 5, 6, 7, 8, 7, 4}};
}

TEST(Clean, whatCollapsesLeavesTheMeshClosed) {
  const PolyMesh box = boxWithANeedle();
  ASSERT_TRUE(check(box).isClosed);
  const Cleaned byEdges = clean(box, {RemoveZeroEdges{.1}});
  EXPECT_TRUE(check(byEdges.mesh).isClosed);
  EXPECT_EQ(byEdges.vertexMap, (Indices{0, 1, 2, 3, 4, 5, 6, 7, 4}));
  EXPECT_EQ(byEdges.faceMap, (Indices{0, 1, 2, 3, 4, 5, kNone}));
  EXPECT_EQ(openEdgesOf(clean(box, {RemoveZeroFaces{.1}}).mesh), 3u);
  EXPECT_EQ(clean(box, {RemoveZeroFaces{.threshold = .1, .keepClosed = true}}).mesh, box);
  // Nothing would be open without a face that lies beside it all, nor with a needle at the rim gone.
  const PolyMesh alone{.points = {0, 0, 0, 1, 0, 0, 1, .1, 0, .5, 1, 0, 2, 2, 2, 2, 2, 3, 2, 2.1, 3},
                       .counts = {3, 3, 3},
                       .indices = {0, 1, 2, 0, 2, 3, 4, 5, 6}};
  EXPECT_EQ(clean(alone, {RemoveZeroFaces{.threshold = .1, .keepClosed = true}}).faceMap, (Indices{kNone, 0, kNone}));
}

TEST(Clean, doublesGoAsFarAsTheMeshStaysClosed) {
  const std::vector<double> points{0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0, 0, 1};
  const auto facesLeft = [&](const Indices& counts, const Indices& indices, bool keepClosed) {
    const PolyMesh mesh{.points = points, .counts = counts, .indices = indices};
    return clean(mesh, {RemoveDoubleFaces{.keepClosed = keepClosed}}).mesh.counts.size();
  };
  for (const bool keepClosed : {false, true}) {
    EXPECT_EQ(facesLeft({4, 4}, {0, 1, 2, 3, 1, 2, 3, 0}, keepClosed), 1u) << "the same side twice";
    // A face that visits a vertex twice is not its own double, but may be another one's, from any beginning.
    EXPECT_EQ(facesLeft({5}, {0, 1, 2, 0, 3}, keepClosed), 1u);
    EXPECT_EQ(facesLeft({5, 5, 5}, {0, 1, 2, 0, 3, 0, 3, 0, 1, 2, 0, 1, 0, 2, 3}, keepClosed), 2u);
  }
  EXPECT_EQ(facesLeft({4, 4}, {0, 1, 2, 3, 3, 2, 1, 0}, true), 2u) << "both sides of a sheet";
  EXPECT_EQ(facesLeft({3, 3, 3, 3}, {0, 1, 2, 2, 1, 0, 2, 1, 0, 0, 1, 2}, true), 2u) << "each of them twice";
  EXPECT_EQ(facesLeft({4, 4}, {0, 1, 2, 3, 3, 2, 1, 0}, false), 1u);
  // A wall inside: two pyramids over one base, whose sides close each of them.
  EXPECT_EQ(facesLeft({3, 3, 3, 3, 3, 3, 3, 3},
                      {0, 2, 1, 0, 1, 4, 1, 2, 4, 2, 0, 4, 0, 1, 2, 1, 0, 3, 2, 1, 3, 0, 2, 3}, true),
            7u);
  const Cleaned collapsed = clean(PolyMesh{.points = points, .counts = {6}, .indices = {0, 0, 1, 2, 2, 3}},
                                  {RemoveDoubleFaces{}, RemoveDoubleFaces{}});
  EXPECT_EQ(collapsed.mesh.counts, Indices{4});
  EXPECT_EQ(collapsed.steps[0].cornersCollapsed, 2u);
  EXPECT_EQ(collapsed.steps[1].cornersCollapsed, 0u);
}

// A face that comes back to its first corner, and repeats another one.
TEST(Clean, areasAreRightAfterACollapse) {
  const PolyMesh mesh{
      .points = {1, -4, 4, 4, 6, -5, 3, 5, -3, -5, 8, 0, 7, -4, 4}, .counts = {8}, .indices = {4, 2, 1, 4, 3, 0, 0, 2}};
  const PolyMesh collapsed = clean(mesh, {RemoveZeroEdges{.1}}).mesh;
  const Step byArea = RemoveZeroFaces{9.25};
  EXPECT_EQ(clean(collapsed, {byArea}).mesh.counts, Indices{7});
  EXPECT_EQ(clean(mesh, {RemoveZeroEdges{.1}, byArea}).mesh, collapsed);
}

// A turned face without area, which welding is not to turn over.
TEST(Clean, normalsAreRightAfterTurning) {
  const PolyMesh mesh{
      .points = {0, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 1, 1, 1, 0, 1, 0, 1, 1, 1, 0},
      .counts = {6, 5, 4, 3},
      .indices = {5, 3, 7, 10, 0, 6, 4, 0, 6, 3, 7, 3, 4, 6, 9, 7, 7, 1}};
  const PolyMesh turned = clean(mesh, {ConformNormals{}}).mesh;
  EXPECT_EQ(clean(mesh, {ConformNormals{}, MergeVertices{1.25}}).mesh, clean(turned, {MergeVertices{1.25}}).mesh);
}

TEST(Clean, aSecondRunOfAllStepsChangesNothing) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh = randomScene(random);
    const std::vector<Step> steps = allSteps(std::ldexp(1.0, -static_cast<int>(random() % 12)), 4);
    const Cleaned once = clean(mesh, steps);
    EXPECT_EQ(clean(once.mesh, steps).mesh, once.mesh);
  }
}

// The hole is none without corner 3, and corner 5 of the wall is straight without the hole.
TEST(Clean, straightensOnWhereAHoleHasGone) {
  const PolyMesh mesh{.points = {-10, -10, 0, 10, -10, 0,    10, 10,  0, 0,  10.5, 0, -10, 10, 0, -.2, 9,
                                 0,   .2,  9, 0,  0,   10.3, 0,  -.2, 9, -5, -.2,  9, 5,   -3, 9, 0},
                      .counts = {5, 3, 4},
                      .indices = {0, 1, 2, 3, 4, 5, 7, 6, 8, 5, 9, 10},
                      .holes = {0, 1, kNone}};
  const Cleaned cleaned = clean(mesh, {RemoveColinear{10}});
  EXPECT_EQ(cleaned.steps[0].droppedHoles.size(), 1u);
  EXPECT_EQ(cleaned.mesh.counts, (Indices{4, 3}));
  EXPECT_TRUE(cleaned.mesh.holes.empty());
}

TEST(Clean, doesNotDependOnTheUnit) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const PolyMesh mesh = randomScene(random);
    const std::vector<Step> steps = randomSteps(random, 1);
    const Cleaned plain = clean(mesh, steps);
    for (const int power : {-1000, -20, -1, 7, 20, 900}) {
      SCOPED_TRACE(power);
      const double factor = std::ldexp(1.0, power);
      std::vector<Step> larger = scaled(steps, factor);
      // The square of the largest unit is no double.
      if (std::abs(power) > 500) std::erase_if(larger, [](const Step& s) { return s.index() == 2; });
      if (larger.size() != steps.size()) continue;
      const Cleaned other = clean(scaledBy(mesh, factor), larger);
      EXPECT_EQ(scaledBy(other.mesh, 1 / factor), plain.mesh);
      EXPECT_EQ(other.faceMap, plain.faceMap);
      EXPECT_EQ(other.droppedHoles, plain.droppedHoles);
    }
  }
}

TEST(Clean, doesNotDependOnThePlace) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    // In steps of 2^-10, so that moving it rounds nothing.
    PolyMesh mesh = randomScene(random);
    for (double& c : mesh.points) c = std::nearbyint(c * 1024) / 1024;
    const std::vector<Step> steps = randomSteps(random, 1);
    const Cleaned plain = clean(mesh, steps);
    for (const double far : {85227.5, 1e7, -3e9}) {
      SCOPED_TRACE(far);
      const Cleaned other = clean(movedBy(mesh, {far, far, far}), steps);
      EXPECT_EQ(other.mesh.indices, plain.mesh.indices);
      EXPECT_EQ(other.mesh.holes, plain.mesh.holes);
      EXPECT_EQ(other.faceMap, plain.faceMap);
      EXPECT_EQ(other.vertexMap, plain.vertexMap);
    }
  }
}

TEST(Clean, labelsAndTexturesStayWithTheirFaces) {
  // Two squares of label 7 with texture coordinates, one of label 9 without, side by side.
  const PolyMesh mesh{.points = {0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 0, 1, 0, 1, 1, 0, 2, 1, 0, 3, 1, 0},
                      .counts = {4, 4, 4},
                      .indices = {0, 1, 5, 4, 1, 2, 6, 5, 2, 3, 7, 6},
                      .texCoords = {0, 0, .1, 0, .2, 0, 0, .1, .1, .1, .2, .1},
                      .texIndices = {0, 1, 4, 3, 1, 2, 5, 4, kNone, kNone, kNone, kNone},
                      .labels = {7, 7, 9}};
  const Cleaned cleaned = clean(mesh, {MergeCoplanar{1}, RemoveColinear{1}});
  EXPECT_EQ(cleaned.mesh.labels, (Indices{7, 9}));
  EXPECT_EQ(cleaned.mesh.indices, (Indices{0, 1, 4, 3, 1, 2, 5, 4}));
  EXPECT_EQ(cleaned.mesh.texIndices, (Indices{0, 2, 5, 3, kNone, kNone, kNone, kNone}));
  EXPECT_EQ(cleaned.faceMap, (Indices{0, 0, 1}));
  // Different labels never join, however much else agrees; without attributes they do.
  PolyMesh plain = mesh;
  plain.texIndices = {};
  EXPECT_EQ(clean(plain, {MergeCoplanar{1, true}}).mesh.labels, (Indices{7, 9}));
  EXPECT_EQ(clean(plain, {MergeCoplanar{1, false}}).mesh.labels, (Indices{7}));
}

TEST(Clean, tellsHowFarItIsAndStopsWhenAsked) {
  const Surface grid = gridOf(150, 150, [](unsigned x, unsigned y) { return x % 5 == 2 && y % 5 == 2; });
  const PolyMesh mesh = polyMeshOf(grid.mPoints, grid.mFaces);
  const std::vector<Step> steps = allSteps(1e-3, 200);
  const Cleaned plain = clean(mesh, steps);

  std::vector<std::pair<std::size_t, double>> told;
  int asked = 0;
  CleanOptions options;
  options.progress = [&](std::size_t step, double fraction) { told.emplace_back(step, fraction); };
  options.isCancelled = [&] { return ++asked < 0; };
  EXPECT_EQ(facetbox::clean(mesh, steps, options).mesh, plain.mesh);
  EXPECT_TRUE(std::ranges::is_sorted(told));
  for (std::size_t step = 0; step < steps.size(); ++step) {
    EXPECT_TRUE(std::ranges::count(told, std::pair(step, 0.0)));
    EXPECT_TRUE(std::ranges::count(told, std::pair(step, 1.0)));
  }
  EXPECT_EQ(told.back(), std::pair(steps.size() - 1, 1.0));

  for (int allowed = 0; allowed < 14; ++allowed) {
    asked = 0;
    options.isCancelled = [&] { return ++asked > allowed; };
    EXPECT_THROW(facetbox::clean(mesh, steps, options), Cancelled);
    EXPECT_EQ(asked, allowed + 1);
  }
  options.isCancelled = [&]() -> bool { throw std::runtime_error("the caller's own"); };
  EXPECT_THROW(facetbox::clean(mesh, steps, options), std::runtime_error);
}

TEST(Clean, refusesWhatItCannotUse) {
  const PolyMesh triangle{.points = {0, 0, 0, 1, 0, 0, 0, 1, 0}, .counts = {3}, .indices = {0, 1, 2}};
  for (const double value : {kNaN, kInfinity, -1.0}) {
    EXPECT_THROW(clean(triangle, {MergeVertices{value}}), std::invalid_argument);
    EXPECT_THROW(clean(triangle, {ConformNormals{}, RemoveColinear{value}}), std::invalid_argument);
  }
  PolyMesh broken = triangle;
  broken.indices[1] = 3;
  EXPECT_THROW(clean(broken, {}), InvalidMesh);
}

TEST(Clean, leavesOutFacesOfFewCorners) {
  const PolyMesh mesh{.points = {0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 5, 5},
                      .counts = {2, 3, 0, 1},
                      .indices = {0, 3, 0, 1, 2, 3},
                      .labels = {1, 2, 3, 4}};
  const Cleaned cleaned = clean(mesh, {});
  EXPECT_EQ(cleaned.leftOut.size(), 3u);
  EXPECT_EQ(cleaned.faceMap, (Indices{kNone, 0, kNone, kNone}));
  EXPECT_EQ(cleaned.vertexMap, (Indices{0, 1, 2, kNone}));
  EXPECT_EQ(cleaned.mesh.labels, (Indices{2}));
  EXPECT_EQ(cleaned.mesh.indices, (Indices{0, 1, 2}));
}

TEST(Clean, worksWithCoordinatesOfAnySize) {
  const double large = std::numeric_limits<double>::max(), tiny = std::numeric_limits<double>::denorm_min();
  for (const double unit : {large, large / 8, 1e-310, tiny, 1.0}) {
    PolyMesh mesh{.points = {-unit, -unit, 0, unit, -unit, 0, unit, unit, 0, -unit, unit, 0},
                  .counts = {3, 3},
                  .indices = {0, 1, 2, 0, 2, 3}};
    // A vertex that no face uses, anywhere.
    mesh.points.insert(mesh.points.end(), {large, -large, tiny});
    const Cleaned cleaned = clean(mesh, {MergeVertices{0}, RemoveZeroEdges{0}, MergeCoplanar{1}, ConformNormals{}});
    const Cleaned merged = clean(mesh, {MergeVertices{large}});
    EXPECT_NO_THROW(clean(mesh, allSteps(unit / 1024, unit))) << unit;
    if (unit > tiny) {
      EXPECT_EQ(cleaned.mesh.counts, Indices{4}) << unit;
    }
    EXPECT_EQ(merged.mesh.counts.empty(), unit < large) << unit;
  }
  const double leg = 0x1p500;
  const PolyMesh triangle{.points = {0, 0, 0, leg, 0, 0, 0, leg, 0}, .counts = {3}, .indices = {0, 1, 2}};
  EXPECT_EQ(clean(triangle, {RemoveZeroFaces{leg * leg / 4}}).mesh, triangle);
  EXPECT_TRUE(clean(triangle, {RemoveZeroFaces{leg * leg}}).mesh.counts.empty());
}

TEST(MeshFrame, takesAwayWhatCanBeTakenExactly) {
  for (unsigned seed = 0; seed < 2000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PolyMesh mesh{.counts = {3}, .indices = {0, 1, 2}};
    const double size = std::ldexp(1.0, pick(random, -300, 300)), far = size * pick(random, -3, 3) * 1e3;
    for (int i = 0; i < 9; ++i) mesh.points.push_back(far + size * pick(random, -1000, 1000) / 999);
    const util::MeshFrame frame = util::frameOf(mesh);
    util::Vec3 low{9, 9, 9}, high{-9, -9, -9};
    for (std::size_t v = 0; v < 3; ++v) {
      const util::Vec3 p = util::toVec3(&mesh.points[3 * v]);
      EXPECT_EQ(frame.fromFrame(frame.toFrame(p)), p);
      const util::Vec3 q = frame.toFrame(p);
      EXPECT_LE(util::largestMagnitude(q), 4);
      low = {std::min(low.x, q.x), std::min(low.y, q.y), std::min(low.z, q.z)};
      high = {std::max(high.x, q.x), std::max(high.y, q.y), std::max(high.z, q.z)};
    }
    const double longest = util::largestMagnitude(high - low);
    EXPECT_TRUE(longest >= 1 && longest < 2) << longest;
    EXPECT_NEAR(frame.diagonal, util::length(high - low), 1e-15);
  }
}

}  // namespace
