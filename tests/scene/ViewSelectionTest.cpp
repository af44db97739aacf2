#include <facetbox/scene/ViewSelection.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/scene/ViewVolume.h>
#include <tests/support/SceneStates.h>
#include <tests/support/Scenes.h>

namespace {

using facetbox::Id;
using facetbox::Matrix;
using facetbox::Select;
using support::pick;
using support::PlacedTriangle;
using util::Vec3;
using Number = long double;
using Numbers = std::array<Number, 4>;

Numbers placedBy(const Matrix& m, const Vec3& p) {
  Numbers at{};
  for (std::size_t r = 0; r < 4; ++r)
    at[r] = Number{m[r]} * p.x + Number{m[4 + r]} * p.y + Number{m[8 + r]} * p.z + m[12 + r];
  return at;
}

/// w - x, w + x and so on, at least as far inside as said.
std::array<Number, 6> planesAt(const Numbers& p, Number inward) {
  return {p[3] - p[0] - inward, p[3] + p[0] - inward, p[3] - p[1] - inward,
          p[3] + p[1] - inward, p[3] - p[2] - inward, p[3] + p[2] - inward};
}

/// Whether a triangle reaches a volume that is a little smaller, or larger. What it has in the volume is a polygon; so
/// it has anything there only if two of the lines that bound it, of its edges and of the six planes, cross there.
bool reaches(const std::array<Numbers, 3>& corners, Number inward) {
  std::array<std::array<Number, 3>, 9> lines{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};  // of the three weights
  for (std::size_t k = 0; k < 3; ++k) {
    const std::array<Number, 6> planes = planesAt(corners[k], inward);
    for (std::size_t plane = 0; plane < 6; ++plane) lines[3 + plane][k] = planes[plane];
  }
  for (std::size_t i = 0; i < 9; ++i)
    for (std::size_t j = 0; j < i; ++j) {
      const auto &a = lines[i], &b = lines[j];
      std::array<Number, 3> at{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
      const Number sum = at[0] + at[1] + at[2];
      if (sum == 0) continue;
      for (Number& weight : at) weight /= sum;
      const auto isOn = [&](std::size_t line) {
        const auto& l = lines[line];
        constexpr Number kRounding = 1e-12L;
        return l[0] * at[0] + l[1] * at[1] + l[2] * at[2] >=
               -kRounding * (std::fabs(l[0] * at[0]) + std::fabs(l[1] * at[1]) + std::fabs(l[2] * at[2]));
      };
      bool isThere = true;
      for (std::size_t line = 0; line < 9; ++line) isThere = isThere && isOn(line);
      if (isThere) return true;
    }
  return false;
}

bool reaches(const Matrix& matrix, const PlacedTriangle& t, Number inward) {
  return reaches({placedBy(matrix, t.corner[0]), placedBy(matrix, t.corner[1]), placedBy(matrix, t.corner[2])}, inward);
}

bool isIn(const Matrix& matrix, const Vec3& p, Number inward) {
  return std::ranges::all_of(planesAt(placedBy(matrix, p), inward), [](Number x) { return x >= 0; });
}

TEST(TouchesVolume, IsRightForAnyTriangle) {
  std::mt19937 random(4);
  std::size_t touching = 0;
  for (int round = 0; round < 30'000; ++round) {
    util::ClipPoint placed[3];
    std::array<Numbers, 3> corners;
    for (std::size_t k = 0; k < 3; ++k) {
      const auto coordinate = [&] { return pick(random, -30'000, 30'000) / 10'000.0; };
      placed[k] = {coordinate(), coordinate(), coordinate(), 0.7 + coordinate() / 2};
      corners[k] = {placed[k].x, placed[k].y, placed[k].z, placed[k].w};
    }
    const bool touches = util::touchesVolume(placed);
    ASSERT_TRUE(touches || !reaches(corners, 1e-9L)) << round;
    ASSERT_TRUE(!touches || reaches(corners, -1e-9L)) << round;
    touching += touches;
  }
  EXPECT_GT(touching, 3000U);
  EXPECT_LT(touching, 27'000U);
}

TEST(TouchesVolume, CountsItsFaces) {
  for (const double x : {1.0, -1.0}) {
    EXPECT_TRUE(util::touchesVolume({{x, -3, 0, 1}, {x, 3, 0, 1}, {3 * x, 0, 0, 1}}));
    EXPECT_TRUE(util::touchesVolume({{0, 0, x, 1}, {-3, 0, 3 * x, 1}, {3, 0, 3 * x, 1}}));
    EXPECT_FALSE(util::touchesVolume({{x * (1 + 0x1p-52), -3, 0, 1}, {x * (1 + 0x1p-52), 3, 0, 1}, {3 * x, 0, 0, 1}}));
    EXPECT_FALSE(util::touchesVolume({{0, 0, 0, 0}, {x, 0, 0, -1}, {0, x, 0, -1}}));  // the eye, and what is behind it
  }
}

std::set<Id> selected(const support::StateOfScene& scene, const Matrix& view, Select which) {
  std::set<Id> ids;
  for (const std::uint32_t slot : util::slotsInView(scene.state, view, which))
    EXPECT_TRUE(ids.insert(scene.state[slot].id).second);
  return ids;
}

std::map<Id, std::vector<const PlacedTriangle*>> byObject(const support::StateOfScene& scene) {
  std::map<Id, std::vector<const PlacedTriangle*>> objects;
  for (const PlacedTriangle& t : scene.triangles) objects[t.id].push_back(&t);
  return objects;
}

/// Everything a power of two times as large.
Matrix scaledView(Matrix view, double unit) {
  for (std::size_t i = 0; i < 12; ++i) view[i] /= unit;
  return view;
}

TEST(ViewSelection, FindsWhatThePlainLoopFinds) {
  std::mt19937 random(1);
  std::size_t decided = 0, close = 0, found = 0;
  for (int round = 0; round < 300; ++round) {
    const int reach = pick(random, 1, 8);
    const double unit = std::ldexp(1.0, pick(random, -1, 1) * 300), origin = pick(random, 0, 3) == 0 ? 1e6 : 0;
    const support::StateOfScene scene = support::randomState(random, pick(random, 0, 20), reach, unit, origin);
    const Matrix view = scaledView(
        support::product(support::randomViewProjection(random, reach), support::shifted(-origin, 0, 0)), unit);
    const std::set<Id> touching = selected(scene, view, Select::touching),
                       inside = selected(scene, view, Select::inside);
    found += touching.size();
    ASSERT_TRUE(std::ranges::includes(touching, inside));
    const Number slack = 1e-9L * (1 + origin);
    for (const auto& object : byObject(scene)) {
      const Id id = object.first;
      const std::vector<const PlacedTriangle*>& triangles = object.second;
      // As the definition rounds: hierarchies change nothing.
      const util::ViewVolume volume(view, nullptr);
      const auto corners = [&](const PlacedTriangle* t, auto test) {
        const util::ClipPoint placed[3] = {volume.place(t->corner[0]), volume.place(t->corner[1]),
                                           volume.place(t->corner[2])};
        return test(placed);
      };
      ASSERT_EQ(touching.contains(id),
                std::ranges::any_of(triangles,
                                    [&](const auto* t) {
                                      return corners(t, [](const auto& placed) { return util::touchesVolume(placed); });
                                    }))
          << round << " " << id;
      ASSERT_EQ(inside.contains(id), std::ranges::all_of(triangles,
                                                         [&](const auto* t) {
                                                           return corners(t, [](const auto& placed) {
                                                             return std::ranges::all_of(placed,
                                                                                        &util::ClipPoint::isInside);
                                                           });
                                                         }))
          << round << " " << id;
      // And the definition is right.
      const auto touches = [&](Number inward) {
        return std::ranges::any_of(triangles, [&](const auto* t) { return reaches(view, *t, inward); });
      };
      const auto lies = [&](Number inward) {
        return std::ranges::all_of(triangles, [&](const auto* t) {
          return std::ranges::all_of(t->corner, [&](const Vec3& p) { return isIn(view, p, inward); });
        });
      };
      for (const auto& [is, low, high] : {std::tuple{touching.contains(id), touches(slack), touches(-slack)},
                                          std::tuple{inside.contains(id), lies(slack), lies(-slack)}}) {
        ASSERT_TRUE(is || !low) << round << " " << id;
        ASSERT_TRUE(!is || high) << round << " " << id;
        ++(low == high ? decided : close);
      }
    }
  }
  EXPECT_GT(decided, 10 * close);
  EXPECT_GT(found, 400U);
}

/// The point of the near plane where a point is seen, by Cramer's rule.
std::optional<Vec3> nearPoint(const Matrix& view, const Vec3& p) {
  const Numbers at = placedBy(view, p);
  std::array<Number, 3> solution{};
  // Rows x + w, y + w and z + w of the unknown point are proportional to its w; so are three planes through it.
  std::array<std::array<Number, 4>, 3> planes{};
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 4; ++c)
      planes[r][c] = Number{view[4 * c + r]} - (r < 2 ? at[r] / at[3] : -1) * view[4 * c + 3];
  const auto determinant = [&](std::size_t replaced) {
    std::array<std::array<Number, 3>, 3> m{};
    for (std::size_t r = 0; r < 3; ++r)
      for (std::size_t c = 0; c < 3; ++c) m[r][c] = c == replaced ? -planes[r][3] : planes[r][c];
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  };
  if (determinant(3) == 0) return {};
  for (std::size_t i = 0; i < 3; ++i) solution[i] = determinant(i) / determinant(3);
  return Vec3{static_cast<double>(solution[0]), static_cast<double>(solution[1]), static_cast<double>(solution[2])};
}

enum class Answer { no, close, yes };

struct Meeting {
  Answer answer;
  double t;  ///< where; 0 if it is not known
};

/// Whether the way between two points meets a triangle.
Meeting meet(const PlacedTriangle& t, const Vec3& from, const Vec3& to) {
  constexpr double kClose = 1e-6;
  const Vec3 way = to - from, e1 = t.corner[1] - t.corner[0], e2 = t.corner[2] - t.corner[0], s = from - t.corner[0];
  const Vec3 p = cross(way, e2), q = cross(s, e1), normal = cross(e1, e2);
  const double det = dot(e1, p);
  if (!(std::fabs(det) > kClose * length(way) * length(normal))) {
    // Edge-on, or without area: what is nowhere near the way is not met, as far as its plane or its box tell.
    const double size = length(e1) + length(e2), nearest = length(cross(s, way)) / length(way);
    const bool isAway = std::fabs(dot(s, normal)) > 10 * kClose * length(normal) * (length(s) + length(way));
    return {isAway || nearest > size ? Answer::no : Answer::close, 0};
  }
  const double u = dot(s, p) / det, v = dot(way, q) / det, at = dot(e2, q) / det;
  const double least = std::min({u, v, 1 - u - v, at, 1 - at});
  return {least > kClose ? Answer::yes : least < -kClose ? Answer::no : Answer::close, at};
}

/// Whether a point of an object is seen: its own surface may come first.
Answer isSeen(const support::StateOfScene& scene, const Matrix& view, Id id, const Vec3& point) {
  constexpr double kClose = 1e-6;
  const std::optional<Vec3> from = nearPoint(view, point);
  if (!from || !isIn(view, point, -kClose)) return Answer::no;
  const bool isSure = isIn(view, point, kClose) && length(point - *from) > 1e-3;
  double own = 1, ownSure = 1, other = 2, otherSure = 2;
  for (const PlacedTriangle& t : scene.triangles) {
    const Meeting meeting = meet(t, *from, point);
    if (meeting.answer == Answer::no) continue;
    double &first = t.id == id ? own : other, &firstSure = t.id == id ? ownSure : otherSure;
    first = std::min(first, meeting.t);
    if (meeting.answer == Answer::yes) firstSure = std::min(firstSure, meeting.t);
  }
  if (otherSure < own - kClose) return Answer::no;
  return isSure && ownSure < other - kClose ? Answer::yes : Answer::close;
}

TEST(ViewSelection, FindsWhatIsVisible) {
  std::mt19937 random(2);
  std::size_t decided = 0, close = 0, hidden = 0;
  for (int round = 0; round < 60; ++round) {
    const int reach = pick(random, 2, 5);
    const support::StateOfScene scene = support::randomState(random, pick(random, 2, 30), reach, 1, 0, 0.1);
    const Matrix view = support::randomViewProjection(random, reach);
    const std::set<Id> visible = selected(scene, view, Select::visible),
                       touching = selected(scene, view, Select::touching);
    ASSERT_TRUE(std::ranges::includes(touching, visible));
    for (const auto& object : byObject(scene)) {
      const Id id = object.first;
      const std::vector<const PlacedTriangle*>& triangles = object.second;
      if (!touching.contains(id)) continue;
      // Corners count, and the middle of the largest triangle of a face: which one that is may be close.
      Answer seen = Answer::no;
      std::map<std::uint32_t, std::size_t> count;
      for (const auto* t : triangles) ++count[t->face];
      for (const auto* t : triangles) {
        for (const Vec3& p : t->corner) seen = std::max(seen, isSeen(scene, view, id, p));
        const Answer middle = isSeen(scene, view, id, 1.0 / 3 * (t->corner[0] + t->corner[1] + t->corner[2]));
        seen = std::max(seen, count[t->face] == 1 ? middle : std::min(middle, Answer::close));
        if (seen == Answer::yes) break;
      }
      ASSERT_TRUE(seen != Answer::yes || visible.contains(id)) << round << " " << id;
      ASSERT_TRUE(seen != Answer::no || !visible.contains(id)) << round << " " << id;
      ++(seen == Answer::close ? close : decided);
      hidden += seen == Answer::no;
    }
  }
  EXPECT_GT(decided, 4 * close);
  EXPECT_GT(hidden, 20U);
}

TEST(ViewSelection, OfAMatrixThatIsNoneIsEmpty) {
  std::mt19937 random(3);
  const support::StateOfScene scene = support::randomState(random, 5, 2, 1, 0);
  for (const double x : {std::nan(""), std::numeric_limits<double>::infinity()})
    for (const Select which : {Select::touching, Select::inside, Select::visible}) {
      Matrix view = support::ortho(1000);
      view[5] = x;
      EXPECT_TRUE(selected(scene, view, which).empty());
    }
  Matrix flat = support::ortho(1000);  // without depth: everything is in it, and nothing can be unprojected
  flat[10] = 0;
  EXPECT_FALSE(selected(scene, flat, Select::touching).empty());
  EXPECT_TRUE(selected(scene, flat, Select::visible).empty());
}

}  // namespace
