#include <cmath>
#include <numbers>
#include <numeric>

#include <facetbox/math/Matrix4.h>
#include <facetbox/mesh/HoleAssignment.h>
#include <facetbox/operations/ConformNormals.h>
#include <facetbox/operations/MergeVertices.h>
#include <facetbox/operations/RemoveEdgesCoplanar.h>
#include <facetbox/operations/RemoveFacesDouble.h>
#include <facetbox/operations/RemoveFacesZero.h>
#include <facetbox/operations/RemoveVerticesColinear.h>
#include <tests/support/Meshes.h>

namespace {

using namespace support;
using facetbox::DroppedHole;
using util::MeshHistory;
using util::MeshLimits;
using Reason = DroppedHole::Reason;
constexpr std::uint32_t kNone = facetbox::kNone;
using Points = std::vector<Vec3>;

Points box(double x, double y, double width, double height) {
  return {{x, y, 0}, {x + width, y, 0}, {x + width, y + height, 0}, {x, y + height, 0}};
}

/// Faces with vertices of their own. The first is the outer face of the others, which are its holes.
struct Plate {
  Faces mFaces;
  Points mPoints;

  explicit Plate(const std::vector<Points>& faces) {
    for (const Points& corners : faces) {
      Indices& face = mFaces.emplace_back(corners.size());
      std::iota(face.begin(), face.end(), static_cast<std::uint32_t>(mPoints.size()));
      mPoints.insert(mPoints.end(), corners.begin(), corners.end());
    }
  }
  Indices holes() const {
    Indices list(mFaces.size());
    std::iota(list.begin(), list.end(), 0u);
    list.push_back(kEnd);
    return list;
  }
};

/// What is dropped by hole assignment and the operation, at a scale.
template <class Operation>
std::vector<DroppedHole> droppedBy(Plate plate, double scale, bool isRelative, Operation operate) {
  for (Vec3& p : plate.mPoints) p = scale * p;
  Mesh mesh = meshOf(plate.mPoints, plate.mFaces, plate.holes());
  util::MeshStorage& m = mesh.storage();
  if (isRelative) m.mLimits = MeshLimits::relativeTo(15 * scale);
  MeshHistory history(m.mVertices.size(), m.mFaces.size());
  m.mHistory.set(&history);
  util::assignHoles(mesh);
  operate(mesh, scale);
  expectConsistent(mesh);
  EXPECT_EQ(history.droppedHoles.size() + (holesOf(mesh).empty() ? 0 : holesOf(mesh).size() - 2),
            plate.mFaces.size() - 1);
  return history.droppedHoles;
}

template <class Operation>
void expectDropped(const Plate& plate, const std::vector<DroppedHole>& expected, Operation operate) {
  EXPECT_EQ(droppedBy(plate, 1, false, operate), expected);
  for (const double scale : {std::ldexp(1, -20), 1., std::ldexp(1, 20)})
    EXPECT_EQ(droppedBy(plate, scale, true, operate), expected) << scale;
}
void expectDropped(const std::vector<Points>& faces, const std::vector<DroppedHole>& expected) {
  expectDropped(Plate(faces), expected, [](Mesh&, double) {});
}

const Points kSquare = box(0, 0, 10, 10);

TEST(DroppedHoles, touchTheOutlineFromInside) {
  for (const Points& hole : {box(0, 2, 2, 2), kSquare, {{5, 0, 0}, {6, 2, 0}, {4, 2, 0}}, box(1e-6, 1e-6, 5, 5)})
    expectDropped({kSquare, hole}, {{0, 1, Reason::touches}});
  // The gap is one of corners, 1e-6 of the outer face's diagonal or 8e-4.
  const auto nothing = [](Mesh&, double) {};
  for (const double gap : {5e-4, 1e-3}) {
    const Plate plate({kSquare, box(gap, 0.1, 5, 5), box(gap, gap, 0.09, 0.09)});
    EXPECT_EQ(droppedBy(plate, 1, false, nothing).size(), gap < 8e-4 / std::numbers::sqrt2 ? 1u : 0u);
    EXPECT_EQ(droppedBy(plate, 1, true, nothing).size(), 0u);
  }
  for (const double gap : {0.99e-5, 1.01e-5})
    for (const double scale : {std::ldexp(1, -20), 1., std::ldexp(1, 20)})
      EXPECT_EQ(droppedBy(Plate({kSquare, box(gap, gap, 1, 1)}), scale, true, nothing).size(), gap < 1e-5 ? 1u : 0u);
}

TEST(DroppedHoles, goWithTheirCornersOrForTheirArea) {
  const Plate plate({kSquare, {{2, 2, 0}, {2.0625, 2, 0}, {2, 8, 0}}, box(5, 5, 2, 2)});
  expectDropped(plate, {{0, 1, Reason::tooFewCorners}},
                [](Mesh& mesh, double scale) { util::mergeVertices(mesh, 0.125 * scale); });
  expectDropped(plate, {{0, 1, Reason::tooFewCorners}},
                [](Mesh& mesh, double scale) { util::mergeEdgesZero(mesh, 0.125 * scale); });
  expectDropped(plate, {{0, 1, Reason::tooSmall}},
                [](Mesh& mesh, double scale) { util::removeFacesZero(mesh, 0.25 * scale * scale); });
}

TEST(DroppedHoles, loseTheirOuterFace) {
  const Points circle = [] {
    Points points;
    for (int i = 0; i < 400; ++i) points.push_back({10 * std::cos(i * 0.01570796), 10 * std::sin(i * 0.01570796), 0});
    return points;
  }();
  expectDropped(Plate({circle, box(1, 1, 2, 2)}), {{0, 1, Reason::outerIsGone}},
                [](Mesh& mesh, double) { util::removeVerticesColinear(mesh, 2, false); });
  expectDropped(Plate({{{0, 0, 0}, {10, 0, 0}, {0, 0.5, 0}}, {{2, 0.1, 0}, {3, 0.05, 0}, {4, 0.1, 0}}}),
                {{0, 1, Reason::outerIsGone}},
                [](Mesh& mesh, double scale) { util::mergeVertices(mesh, 0.5 * scale); });
  // A bow tie has next to no area.
  expectDropped(Plate({{{0, 0, 0}, {10, 10, 0}, {10, 0, 0}, {0, 9.75, 0}}, box(7, 4, 2, 1)}),
                {{0, 1, Reason::outerIsGone}},
                [](Mesh& mesh, double scale) { util::removeFacesZero(mesh, 1.5 * scale * scale); });
}

// The reason in whole numbers, by the words at HolePlacement::whyNotInside().

struct Spot {
  std::int64_t x, y;
};
using Loop = std::vector<Spot>;

std::int64_t sideOf(Spot a, Spot b, Spot p) {
  const std::int64_t side = (b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x);
  return (side > 0) - (side < 0);
}
template <class Use>
bool anyEdge(const Loop& loop, Use use) {
  for (std::size_t i = 0; i < loop.size(); ++i)
    if (use(loop[i], loop[(i + 1) % loop.size()])) return true;
  return false;
}
bool isOn(const Loop& loop, Spot p) {
  return anyEdge(loop, [&](Spot a, Spot b) {
    return sideOf(a, b, p) == 0 && std::min(a.x, b.x) <= p.x && p.x <= std::max(a.x, b.x) &&
           std::min(a.y, b.y) <= p.y && p.y <= std::max(a.y, b.y);
  });
}
bool isIn(const Loop& loop, Spot p) {
  bool inside = false;
  anyEdge(loop, [&](Spot a, Spot b) {
    if ((a.y > p.y) != (b.y > p.y) && (sideOf(a, b, p) > 0) == (b.y > a.y)) inside = !inside;
    return false;
  });
  return inside && !isOn(loop, p);
}
bool edgesCross(const Loop& a, const Loop& b) {
  return anyEdge(a, [&](Spot p, Spot q) {
    return anyEdge(b, [&](Spot r, Spot s) {
      return sideOf(p, q, r) * sideOf(p, q, s) < 0 && sideOf(r, s, p) * sideOf(r, s, q) < 0;
    });
  });
}

Reason slowReason(const Loop& outer, const Loop& hole) {
  const auto isInside = [&](Spot p) { return isIn(outer, p); };
  const auto isOutside = [&](Spot p) { return !isIn(outer, p) && !isOn(outer, p); };
  const bool anyOut = std::ranges::any_of(hole, isOutside);
  if ((anyOut && std::ranges::any_of(hole, isInside)) || edgesCross(outer, hole)) return Reason::crosses;
  if (anyOut) return Reason::outside;
  // All corners within, no crossing. Seen along one axis, a corner of the outer face inside the hole is beyond that.
  return std::ranges::any_of(outer, [&](Spot p) { return isIn(hole, p); }) ? Reason::crosses : Reason::touches;
}

TEST(DroppedHoles, haveTheReasonThatTheirCornersAndEdgesGive) {
  std::map<Reason, int> seen;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    std::mt19937 random(seed);
    const auto loopOf = [&](int corners, int low, int high) {
      Loop loop;
      for (int i = 0; i < corners; ++i) loop.push_back({pick(random, low, high), pick(random, low, high)});
      return loop;
    };
    Loop outer = loopOf(pick(random, 3, 7), 0, 8);
    if (oneIn(random, 2)) outer = {{0, 0}, {8, 0}, {8, 8}, {pick(random, 1, 8), pick(random, 1, 8)}, {0, 8}};
    // Through spots that others do not use: an outline of very many corners is searched with an index.
    const int times = seed % 20 == 0 ? 100 : 1;
    Loop fine;
    anyEdge(outer, [&](Spot a, Spot b) {
      for (int i = 0; i < times; ++i) fine.push_back({a.x * times + (b.x - a.x) * i, a.y * times + (b.y - a.y) * i});
      return false;
    });
    std::vector<Points> faces(1);
    for (const Spot p : fine) faces[0].push_back({1. * p.x, 1. * p.y, 0});
    std::vector<Loop> holes;
    for (int i = seed % 20 == 0 ? 100 : 3; i > 0; --i) {
      Loop& hole = holes.emplace_back(loopOf(pick(random, 3, 5), -1, 9));
      Points& face = faces.emplace_back();
      for (Spot& p : hole) {
        p = {p.x * times, p.y * times};
        face.push_back({1. * p.x, 1. * p.y, 0});
      }
    }
    const Plate plate(faces);
    Mesh mesh = meshOf(plate.mPoints, plate.mFaces, plate.holes());
    // Also those without area, which have no normal of their own.
    for (std::size_t face = 0; face < plate.mFaces.size(); ++face) mesh.storage().mFaces.setNormal(face, {0, 0, 1});
    MeshHistory history(plate.mPoints.size(), plate.mFaces.size());
    mesh.storage().mHistory.set(&history);
    util::assignHoles(mesh);
    for (const DroppedHole& dropped : history.droppedHoles) {
      ++seen[dropped.reason];
      if (dropped.reason == Reason::overlaps) continue;
      ASSERT_EQ(dropped.reason, slowReason(fine, holes.at(dropped.hole - 1))) << seed << ' ' << dropped.hole;
    }
  }
  EXPECT_EQ(seen.size(), 4u);
  for (const auto& [reason, count] : seen) EXPECT_GT(count, 40) << static_cast<int>(reason);
}

// No hole goes without an entry.

/// Squares in a frame, with holes of all kinds; some squares twice, some missing: a merge brings out a hole there.
Plate frame(std::mt19937& random, Indices& holes) {
  std::vector<Points> faces;
  for (int x = 0; x < 3; ++x)
    for (int y = 0; y < 3; ++y) {
      if (oneIn(random, 6)) continue;
      if (oneIn(random, 8)) faces.push_back(box(10 * x, 10 * y, 10, 10));
      const auto outer = static_cast<std::uint32_t>(faces.size());
      faces.push_back(box(10 * x, 10 * y, 10, 10));
      const int count = pick(random, -2, 4);
      if (count > 0) holes.push_back(outer);
      for (int i = 0; i < count; ++i) {
        const double size = std::ldexp(pick(random, 1, 4), -pick(random, 0, 6));
        holes.push_back(static_cast<std::uint32_t>(faces.size()));
        faces.push_back(box(10 * x + pick(random, 0, 9), 10 * y + pick(random, 0, 9), size, pick(random, 1, 4)));
        if (oneIn(random, 3)) faces.back().pop_back();
      }
      if (count > 0) holes.push_back(kEnd);
    }
  return Plate(faces);
}

void operate(Mesh& mesh, std::mt19937& random, int operation) {
  const double size = std::ldexp(1, pick(random, -5, 4));
  if (operation == 0) util::mergeVertices(mesh, oneIn(random, 2) ? size : 1e-6);
  if (operation == 1) util::mergeEdgesZero(mesh, size);
  if (operation == 2) util::removeFacesZero(mesh, size);
  if (operation == 3) util::removeFacesDouble(mesh, true);
  if (operation == 4) util::conformNormals(mesh, util::kIdentity);
  if (operation == 5) util::removeEdgesCoplanar(mesh, 1, false);
  if (operation == 6) util::removeVerticesColinear(mesh, oneIn(random, 3) ? 180 : 1, false);
}

/// A mesh's holes with their outer faces, by present numbers.
std::map<std::uint32_t, std::uint32_t> outerOf(const Mesh& mesh) {
  std::map<std::uint32_t, std::uint32_t> outers;
  const Indices list = holesOf(mesh);
  for (std::size_t i = 0; i < list.size(); ++i)
    for (const std::uint32_t outer = list[i]; list[++i] != kEnd;) outers[list[i]] = outer;
  return outers;
}

TEST(DroppedHoles, areExactlyTheHolesThatThereAreNoMore) {
  std::map<Reason, int> seen;
  int broughtOut = 0;
  for (unsigned seed = 0; seed < 4000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Indices holes;
    const Plate plate = frame(random, holes);
    Mesh mesh = meshOf(plate.mPoints, plate.mFaces, holes);
    util::MeshStorage& m = mesh.storage();
    if (oneIn(random, 2)) m.mLimits = MeshLimits::relativeTo(30);
    MeshHistory history(m.mVertices.size(), m.mFaces.size());
    m.mHistory.set(&history);
    for (int step = 0; step < 9; ++step) {
      // At first what a merge needs that brings out holes, often.
      constexpr int kFirst[] = {-1, 3, 0, 5};
      const int operation = step == 0 || (step < 4 && seed % 2 == 0) ? kFirst[step] : pick(random, 0, 6);
      SCOPED_TRACE(operation);
      const auto before = outerOf(mesh);
      const Indices mapBefore(history.faces.map().begin(), history.faces.map().end());
      const auto firstOf = [&](std::uint32_t face) {
        const auto first = std::ranges::find(mapBefore, face);
        return first == mapBefore.end() ? kNone : static_cast<std::uint32_t>(first - mapBefore.begin());
      };
      history.droppedHoles.clear();
      if (step == 0)
        util::assignHoles(mesh);
      else
        operate(mesh, random, operation);
      const auto after = outerOf(mesh);
      const auto map = history.faces.map();
      std::multiset<Edge> gone, told;
      std::size_t broughtOutBefore = 0, broughtOutAfter = 0;
      for (const auto& [hole, outer] : before) {
        const std::uint32_t first = firstOf(hole), firstOuter = firstOf(outer);
        ASSERT_NE(firstOuter, kNone);
        if (first == kNone) {
          ++broughtOutBefore;
          continue;
        }
        const auto now = map[first] == kNone ? after.end() : after.find(map[first]);
        if (now == after.end() || now->second != map[firstOuter]) gone.insert({firstOuter, first});
      }
      for (const auto& [hole, outer] : after) broughtOutAfter += history.faces.firstItemOf(hole) == kNone;
      std::size_t toldOfBroughtOut = 0;
      for (const DroppedHole& dropped : history.droppedHoles) {
        ++seen[dropped.reason];
        if (dropped.hole == kNone)
          ++toldOfBroughtOut;
        else
          told.insert({dropped.outer, dropped.hole});
      }
      ASSERT_EQ(told, gone);
      ASSERT_EQ(toldOfBroughtOut, operation == 5 ? 0 : broughtOutBefore - broughtOutAfter);
      broughtOut += static_cast<int>(toldOfBroughtOut);
    }
  }
  EXPECT_EQ(seen.size(), 7u);
  for (const auto& [reason, count] : seen) EXPECT_GT(count, 20) << static_cast<int>(reason);
  EXPECT_GT(broughtOut, 10);
}

TEST(DroppedHoles, areDescribedInASentence) {
  using facetbox::describe;
  EXPECT_EQ(describe(DroppedHole{3, 7, Reason::crosses}),
            "Face 7 is no hole of face 3 any more: it crosses the outline.");
  EXPECT_EQ(describe(DroppedHole{3, kNone, Reason::outerIsGone}),
            "A hole that a merge brought out is no hole of face 3 any more: its outer face is gone.");
}

}  // namespace
