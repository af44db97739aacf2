#include <facetbox/check.h>

#include <cmath>

#include <facetbox/math/Box.h>

#include <tests/support/ExactNumbers.h>
#include <tests/support/Meshes.h>
#include <tests/support/PlainCheck.h>
#include <tests/support/PolyMeshes.h>

namespace {

using facetbox::check;
using facetbox::CheckOptions;
using facetbox::Defects;
using facetbox::kNone;
using facetbox::PolyMesh;
using support::below;
using support::oneIn;
using support::pick;
using support::polyMeshOf;
using util::Vec3;
using Pairs = std::vector<Defects::Pair>;
using Numbers = std::vector<std::uint32_t>;

Defects checkAll(const PolyMesh& mesh) {
  CheckOptions options;
  options.selfIntersections = true;
  return check(mesh, options);
}

void expectSameLists(const Defects& a, const Defects& b) {
  EXPECT_EQ(a.sameVertices, b.sameVertices);
  EXPECT_EQ(a.unusedVertices, b.unusedVertices);
  EXPECT_EQ(a.leftOutFaces, b.leftOutFaces);
  EXPECT_EQ(a.zeroEdges, b.zeroEdges);
  EXPECT_EQ(a.zeroFaces, b.zeroFaces);
  EXPECT_EQ(a.repeatedCorners, b.repeatedCorners);
  EXPECT_EQ(a.doubleFaces, b.doubleFaces);
  EXPECT_EQ(a.openEdges, b.openEdges);
  EXPECT_EQ(a.overusedEdges, b.overusedEdges);
  EXPECT_EQ(a.sameDirectionEdges, b.sameDirectionEdges);
  EXPECT_EQ(a.tCorners, b.tCorners);
  EXPECT_EQ(a.components, b.components);
  EXPECT_EQ(a.componentCount, b.componentCount);
  EXPECT_EQ(a.isClosed, b.isClosed);
  EXPECT_EQ(a.isOriented, b.isOriented);
}

/// A few faces on a small grid: places and vertices are repeated, faces repeat others, some are too small.
PolyMesh randomMesh(std::mt19937& random) {
  std::vector<Vec3> points(static_cast<std::size_t>(pick(random, 3, 30)));
  for (Vec3& p : points) p = {1.0 * pick(random, 0, 4), 1.0 * pick(random, 0, 3), 1.0 * pick(random, 0, 1)};
  support::Faces faces(static_cast<std::size_t>(pick(random, 0, 12)));
  for (Numbers& face : faces) {
    const auto corners = static_cast<std::size_t>(oneIn(random, 20) ? pick(random, 0, 12) : pick(random, 3, 5));
    if (oneIn(random, 3)) {
      face = faces[below(random, faces.size())];
      if (!face.empty()) std::rotate(face.begin(), face.begin() + below(random, face.size()), face.end());
      if (oneIn(random, 2)) std::ranges::reverse(face);
    } else {
      face = support::randomIndices(random, corners, points.size());
    }
  }
  Numbers holes, free;
  for (std::uint32_t face = 0; face < faces.size(); ++face) free.push_back(face);
  std::ranges::shuffle(free, random);
  while (free.size() > 2 && oneIn(random, 2)) {
    for (int i = pick(random, 1, 3); i > 0 && !free.empty(); --i, free.pop_back()) holes.push_back(free.back());
    holes.push_back(kNone);
  }
  return polyMeshOf(points, faces, holes);
}

TEST(Check, agreesWithComparingEverythingWithEverything) {
  std::mt19937 random(1);
  std::size_t tCorners = 0, doubles = 0;
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(round);
    const PolyMesh mesh = randomMesh(random);
    const Defects found = check(mesh), expected = support::plainCheck(mesh);
    expectSameLists(found, expected);
    EXPECT_EQ(found.boxMin, expected.boxMin);
    EXPECT_EQ(found.boxMax, expected.boxMax);
    EXPECT_NEAR(found.area, expected.area, 1e-9);
    EXPECT_NEAR(found.volume, expected.volume, 1e-9);
    if (HasFailure()) return;
    tCorners += found.tCorners.size();
    doubles += found.doubleFaces.size();
  }
  EXPECT_GT(tCorners, 500u);
  EXPECT_GT(doubles, 500u);
}

TEST(Check, findsTCornersOfLongSlantingEdges) {
  std::mt19937 random(2);
  std::size_t tCorners = 0;
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    std::vector<Vec3> points;
    support::Faces faces;
    for (std::uint32_t v = 0; v < 900; v += 3) {
      for (int i = 0; i < 3; ++i)
        points.push_back({pick(random, 0, 64) / 4.0, pick(random, 0, 64) / 4.0, pick(random, 0, round % 3) / 4.0});
      faces.push_back({v, v + 1, v + 2});
    }
    const PolyMesh mesh = polyMeshOf(points, faces, {});
    const Defects found = check(mesh), expected = support::plainCheck(mesh);
    EXPECT_EQ(found.tCorners, expected.tCorners);
    tCorners += found.tCorners.size();
  }
  EXPECT_GT(tCorners, 300u);
}

/// Self-intersections without those of faces that cross themselves.
Pairs pairsOfPlainFaces(const Defects& defects) {
  const Pairs& all = defects.selfIntersections;
  Pairs pairs;
  for (const Defects::Pair& pair : all)
    if (std::ranges::count(all, Defects::Pair{pair[0], pair[0]}) +
            std::ranges::count(all, Defects::Pair{pair[1], pair[1]}) ==
        0)
      pairs.push_back(pair);
  return pairs;
}

TEST(Check, placeAndUnitDoNotMatter) {
  std::mt19937 random(2);
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(round);
    const PolyMesh mesh = randomMesh(random);
    const Defects expected = checkAll(mesh);
    for (const int exponent : {-1000, -20, 20, 300}) {
      const Defects found = checkAll(support::scaledBy(mesh, std::ldexp(1.0, exponent)));
      expectSameLists(found, expected);
      EXPECT_EQ(found.selfIntersections, expected.selfIntersections);
      EXPECT_EQ(found.area, std::ldexp(expected.area, 2 * exponent));
      EXPECT_EQ(found.volume, std::ldexp(expected.volume, 3 * exponent));
    }
    const Defects found = checkAll(support::movedBy(mesh, {0x1p40, -85227.4375, -85227.4375}));
    expectSameLists(found, expected);
    // Points where an outline crosses itself are rounded, which depends on the place.
    EXPECT_EQ(pairsOfPlainFaces(found), pairsOfPlainFaces(expected));
    EXPECT_EQ(found.area, expected.area);
    EXPECT_EQ(found.volume, expected.volume);
    if (HasFailure()) return;
  }
}

TEST(Check, holesThatAreNoneAreListedAndTakenAtTheirWord) {
  using Reason = facetbox::DroppedHole::Reason;
  const auto square = [](double x, double y, double size) {
    return std::vector<Vec3>{{x, y, 0}, {x + size, y, 0}, {x + size, y + size, 0}, {x, y + size, 0}};
  };
  std::vector<Vec3> points;
  support::Faces faces;
  for (const auto& corners :
       {square(0, 0, 9), square(1, 1, 1), square(8, 8, 2), square(20, 0, 1), square(1.5, 1.5, 1)}) {
    faces.emplace_back();
    for (const Vec3& p : corners) {
      faces.back().push_back(static_cast<std::uint32_t>(points.size()));
      points.push_back(p);
    }
  }
  const Defects defects = check(polyMeshOf(points, faces, {0, 1, 2, 3, 4, kNone}));
  EXPECT_EQ(defects.droppedHoles, std::vector<facetbox::DroppedHole>(
                                      {{0, 2, Reason::crosses}, {0, 3, Reason::outside}, {0, 4, Reason::overlaps}}));
  EXPECT_EQ(defects.area, 81 - 1 - 4 - 1 - 1);
  EXPECT_EQ(defects.componentCount, 1u);
}

TEST(Check, findsEachDefectInTheSmallestMeshThatHasIt) {
  //   3---2---5
  //   |   8   |     8 lies in the edge 1-2, 6 and 7 at the places of 0 and 1
  //   0---1---4
  const std::vector<Vec3> points{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0},  {2, 0, 0},
                                 {2, 1, 0}, {0, 0, 0}, {1, 0, 0}, {1, 0.5, 0}};
  const auto defectsOf = [&](const support::Faces& faces) { return checkAll(polyMeshOf(points, faces)); };
  const Defects pair = defectsOf({{0, 1, 2, 3}, {1, 4, 5, 2}});
  EXPECT_EQ(pair.openEdges, Pairs({{0, 1}, {0, 3}, {1, 4}, {2, 3}, {2, 5}, {4, 5}}));
  EXPECT_EQ(pair.sameVertices, Pairs({{0, 6}, {1, 7}}));
  EXPECT_EQ(pair.unusedVertices, Numbers({6, 7, 8}));
  EXPECT_EQ(pair.selfIntersections, Pairs());
  EXPECT_EQ(defectsOf({{0, 1, 2, 3}, {2, 5, 4, 1}}).sameDirectionEdges, Pairs({{1, 2}}));
  EXPECT_EQ(defectsOf({{0, 1, 2, 3}, {1, 4, 5, 2}, {1, 2, 0}}).overusedEdges, Pairs({{1, 2}}));
  EXPECT_EQ(defectsOf({{0, 1, 2}, {1, 0, 2}, {2, 0, 1}, {4, 5, 1}}).doubleFaces, Pairs({{0, 1}, {0, 2}}));
  EXPECT_EQ(defectsOf({{0, 1, 2, 3}, {1, 4, 5, 2, 8}}).tCorners, std::vector<Defects::TCorner>({{{1, 2}, 8}}));
  EXPECT_EQ(defectsOf({{0, 6, 1, 2}, {1, 4, 4}}).zeroEdges, std::vector<Defects::Corner>({{0, 0}, {1, 1}}));
  EXPECT_EQ(defectsOf({{0, 1, 4}, {1, 4, 5}, {1, 8, 2}}).zeroFaces, Numbers({0, 2}));
  EXPECT_EQ(defectsOf({{0, 1, 2, 3}, {1, 4, 5, 1, 2}}).repeatedCorners, Numbers({1}));
  EXPECT_EQ(defectsOf({{0, 1}, {0, 1, 2}, {}}).leftOutFaces, Numbers({0, 2}));
  EXPECT_EQ(defectsOf({{0, 1, 2}, {1, 2}, {4, 5, 1}, {3, 2, 0}}).components, Numbers({0, kNone, 1, 0}));
  // Crossed over: the edges 1-2 and 3-0 of the outline cross.
  EXPECT_EQ(defectsOf({{0, 2, 1, 3}}).selfIntersections, Pairs({{0, 0}}));
  // The outline comes back along itself, or touches itself at corners: no further point is needed.
  EXPECT_EQ(defectsOf({{0, 1, 4, 5, 2, 1, 2, 3}, {6, 1, 5, 2, 7, 3}}).selfIntersections, Pairs({{0, 1}}));
}

TEST(Check, limitsAreWhatIsAskedFor) {
  const PolyMesh mesh = polyMeshOf({{0, 0, 0}, {8, 0, 0}, {8, 8, 0}, {0, 8, 0}, {4, 8.5, 0}, {8.25, 8, 0}, {0, 16, 0}},
                                   {{0, 1, 2, 3}, {3, 2, 5, 4, 6}});
  CheckOptions options;
  EXPECT_EQ(check(mesh, options).zeroEdges.size() + check(mesh, options).zeroFaces.size(), 0u);
  options.zeroEdgeLength = 0.25;
  EXPECT_EQ(check(mesh, options).zeroEdges, std::vector<Defects::Corner>({{1, 1}}));
  options.zeroFaceArea = 64;
  EXPECT_EQ(check(mesh, options).zeroFaces, Numbers({0, 1}));
  options.zeroFaceArea = 63;
  EXPECT_EQ(check(mesh, options).zeroFaces, Numbers({1}));
  // The corner 4 lies half a unit beside no open edge; 2 and 3 lie 8 beside 0-1 and at the ends of it.
  options.tCornerDistance = 100;
  EXPECT_TRUE(check(mesh, options).tCorners.empty());
  for (const double none : {-1.0, support::kNaN}) {
    options.zeroEdgeLength = none;
    options.zeroFaceArea = options.tCornerDistance = none;
    EXPECT_EQ(check(mesh, options).zeroEdges.size() + check(mesh, options).zeroFaces.size(), 0u);
  }
}

TEST(Check, listsNoMoreThanAskedFor) {
  // Upright triangles on one line: each has an open edge in which the corners of the shorter ones lie.
  PolyMesh mesh;
  for (std::uint32_t i = 0; i < 30; ++i) {
    mesh.points.insert(mesh.points.end(), {-1.0 - i, 0, 0, 1.0 + i, 0, 0, 0, 0, 1.0});
    mesh.indices.insert(mesh.indices.end(), {3 * i, 3 * i + 1, 3 * i + 2});
    mesh.counts.push_back(3);
  }
  CheckOptions options;
  options.selfIntersections = true;
  EXPECT_EQ(check(mesh, options).tCorners.size(), 30u * 29u);
  EXPECT_EQ(check(mesh, options).selfIntersections.size(), 30u * 29u / 2u);
  EXPECT_TRUE(check(mesh, options).areTCornersComplete && check(mesh, options).areSelfIntersectionsComplete);
  options.mostListed = 100;
  EXPECT_EQ(check(mesh, options).tCorners.size(), 100u);
  EXPECT_EQ(check(mesh, options).selfIntersections.size(), 100u);
  EXPECT_FALSE(check(mesh, options).areTCornersComplete || check(mesh, options).areSelfIntersectionsComplete);
}

TEST(Check, facesOfBoxesIntersectWhereTheRectanglesMeet) {
  std::mt19937 random(3);
  std::size_t pairs = 0;
  for (int round = 0; round < 40; ++round) {
    std::vector<Vec3> points;
    support::Faces faces;
    std::vector<util::Box> rectangles;
    for (std::uint32_t box = 0; box < 12; ++box) {
      const Vec3 low{1.0 * pick(random, 0, 9), 1.0 * pick(random, 0, 9), 1.0 * pick(random, 0, 3)};
      const Vec3 size{1.0 * pick(random, 1, 4), 1.0 * pick(random, 1, 4), 1.0 * pick(random, 1, 3)};
      for (int i = 0; i < 8; ++i)
        points.push_back(low + Vec3{(i & 1) * size.x, (i >> 1 & 1) * size.y, (i >> 2 & 1) * size.z});
      for (const Numbers& side :
           support::Faces{{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}}) {
        faces.emplace_back();
        rectangles.emplace_back();
        for (const std::uint32_t corner : side) {
          faces.back().push_back(8 * box + corner);
          rectangles.back().extend(points[8 * box + corner]);
        }
      }
    }
    Pairs expected;
    for (std::uint32_t a = 0; a < faces.size(); ++a)
      for (std::uint32_t b = a + 1; b < faces.size(); ++b)
        if (a / 6 != b / 6 && util::boxesMeet(rectangles[a], rectangles[b])) expected.push_back({a, b});
    EXPECT_EQ(checkAll(polyMeshOf(points, faces)).selfIntersections, expected) << "round " << round;
    pairs += expected.size();
  }
  EXPECT_GT(pairs, 1000u);
}

TEST(Check, cornersInsideAStraightOutlineAreShared) {
  // A floor and a wall over three edges on one line; and a wall that has one edge there, in which corners lie.
  const std::vector<Vec3> points{{0, 0, 0}, {3, 0, 0}, {6, 0, 0}, {6, 6, 0},
                                 {0, 6, 0}, {0, 0, 5}, {6, 0, 5}, {4, 0, 0}};
  const Defects defects = checkAll(polyMeshOf(points, {{0, 1, 7, 2, 3, 4}, {0, 1, 7, 2, 6, 5}}));
  EXPECT_EQ(defects.selfIntersections, Pairs());
  EXPECT_EQ(checkAll(polyMeshOf(points, {{0, 1, 7, 2, 3, 4}, {0, 2, 6, 5}})).selfIntersections, Pairs({{0, 1}}));
}

TEST(Check, aFaceThatNeedsTooManyPointsIsListed) {
  // Two combs at right angles, as one outline: some 900 crossings. The triangle beside is not concerned.
  std::vector<Vec3> points;
  Numbers outline;
  constexpr int kTeeth = 30;
  const auto add = [&](double x, double y) {
    outline.push_back(static_cast<std::uint32_t>(points.size()));
    points.push_back({x, y, 0});
  };
  for (int i = 0; i < kTeeth; ++i) {
    add(i + 0.25, -1);
    add(i + 0.5, kTeeth + 1);
  }
  for (int i = 0; i < kTeeth; ++i) {
    add(kTeeth + 1, i + 0.25);
    add(-1, i + 0.5);
  }
  const auto first = static_cast<std::uint32_t>(points.size());
  points.insert(points.end(), {{100, 0, 0}, {101, 0, 0}, {101, 1, 0}, {100, 1, 0}});
  const Numbers square{first, first + 1, first + 2, first + 3};
  EXPECT_EQ(checkAll(polyMeshOf(points, {square, outline, square})).selfIntersections, Pairs({{0, 2}, {1, 1}}));
}

TEST(Check, isUnmovedByHostileInput) {
  EXPECT_EQ(checkAll({}).componentCount, 0u);
  EXPECT_FALSE(checkAll({}).isClosed);
  PolyMesh mesh = polyMeshOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
  mesh.points[4] = support::kNaN;
  EXPECT_THROW(check(mesh), facetbox::InvalidMesh);
  mesh.points[4] = 0;
  mesh.indices[1] = 3;
  EXPECT_THROW(check(mesh), facetbox::InvalidMesh);
  // A hole of a face that is left out is left out too.
  const Defects defects = checkAll(polyMeshOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1}, {0, 1, 2}}, {0, 1, kNone}));
  EXPECT_EQ(defects.leftOutFaces, Numbers({0, 1}));
  EXPECT_EQ(defects.unusedVertices, Numbers({0, 1, 2}));

  std::mt19937 random(4);
  for (int round = 0; round < 300; ++round) {
    PolyMesh wild = randomMesh(random);
    for (double& v : wild.points)
      v = oneIn(random, 2) ? support::anyFinite(random) : oneIn(random, 2) ? 1.7976931348623157e308 : v * 5e-324;
    const Defects found = checkAll(wild);
    EXPECT_EQ(found.components.size(), wild.counts.size());
    EXPECT_FALSE(std::isnan(found.area));
  }
}

TEST(Check, tellsHowFarItIsAndStopsWhenAsked) {
  // Steps, each with a corner in the middle of the next one's edge; one square is no triangle.
  PolyMesh mesh;
  for (std::uint32_t i = 0; i < 12000; ++i) {
    const double x = i % 100, y = i / 100;
    mesh.points.insert(mesh.points.end(), {x, y, 0, x + 1, y, 0, x + 0.5, y + 1, 0});
    mesh.counts.push_back(3);
    mesh.indices.insert(mesh.indices.end(), {3 * i, 3 * i + 1, 3 * i + 2});
  }
  mesh.counts.push_back(4);
  mesh.indices.insert(mesh.indices.end(), {0, 1, 301, 300});
  CheckOptions options;
  options.selfIntersections = true;
  const Defects plain = check(mesh, options);
  const Defects asked = support::expectAskedOften(options, 100, [&](const CheckOptions& o) { return check(mesh, o); });
  expectSameLists(asked, plain);
  EXPECT_EQ(asked.selfIntersections, plain.selfIntersections);
  EXPECT_GT(plain.tCorners.size(), 10000u);
  EXPECT_GT(plain.selfIntersections.size(), 10000u);
}

}  // namespace
