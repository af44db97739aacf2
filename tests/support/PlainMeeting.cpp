#include <tests/support/PlainMeeting.h>

#include <algorithm>
#include <optional>
#include <set>
#include <vector>

#include <boost/multiprecision/cpp_int.hpp>

namespace support {
namespace {

using Fraction = boost::multiprecision::cpp_rational;
using Point = std::array<Fraction, 3>;
using util::NumberedTriangle;

Point pointOf(const util::Vec3& p) { return {Fraction(p.x), Fraction(p.y), Fraction(p.z)}; }

Point cross(const Point& o, const Point& a, const Point& b) {
  Point u, v;
  for (int k = 0; k < 3; ++k) u[k] = a[k] - o[k], v[k] = b[k] - o[k];
  return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}

/// The solution of rows * x = right for x, if there is just one. The last entry of a row is its right side.
std::optional<std::vector<Fraction>> solve(std::vector<std::vector<Fraction>> rows, std::size_t unknowns) {
  for (std::size_t column = 0; column < unknowns; ++column) {
    const auto pivot = std::find_if(rows.begin() + static_cast<std::ptrdiff_t>(column), rows.end(),
                                    [=](const auto& row) { return row[column] != 0; });
    if (pivot == rows.end()) return std::nullopt;
    std::swap(rows[column], *pivot);
    for (std::size_t r = 0; r < rows.size(); ++r) {
      if (r == column || rows[r][column] == 0) continue;
      const Fraction factor = rows[r][column] / rows[column][column];
      for (std::size_t k = column; k <= unknowns; ++k) rows[r][k] -= factor * rows[column][k];
    }
  }
  for (std::size_t r = unknowns; r < rows.size(); ++r)
    if (rows[r][unknowns] != 0) return std::nullopt;
  std::vector<Fraction> x(unknowns);
  for (std::size_t k = 0; k < unknowns; ++k) x[k] = rows[k][unknowns] / rows[k][k];
  return x;
}

/// Weights of a's corners (columns 0 to 2) and b's (3 to 5) that give the same point, only those of `columns` not zero.
std::optional<Point> commonPoint(const std::array<Point, 6>& corners, const std::vector<int>& columns) {
  std::vector<std::vector<Fraction>> rows(5, std::vector<Fraction>(columns.size() + 1));
  for (std::size_t k = 0; k < columns.size(); ++k) {
    const bool isOfA = columns[k] < 3;
    for (std::size_t axis = 0; axis < 3; ++axis)
      rows[axis][k] = isOfA ? corners[columns[k]][axis] : Fraction(-corners[columns[k]][axis]);
    rows[isOfA ? 3 : 4][k] = 1;
  }
  rows[3].back() = rows[4].back() = 1;
  const auto weights = solve(rows, columns.size());
  if (!weights || std::ranges::any_of(*weights, [](const Fraction& w) { return w < 0; })) return std::nullopt;
  Point point{};
  for (std::size_t k = 0; k < columns.size(); ++k)
    for (std::size_t axis = 0; columns[k] < 3 && axis < 3; ++axis)
      point[axis] += (*weights)[k] * corners[columns[k]][axis];
  return point;
}

}  // namespace

bool plainMeetElsewhere(const NumberedTriangle& a, const NumberedTriangle& b) {
  std::array<Point, 6> corners;
  std::set<Point> shared, extremes;
  for (std::size_t i = 0; i < 3; ++i) {
    corners[i] = pointOf(a.corners[i]);
    corners[i + 3] = pointOf(b.corners[i]);
    if (std::ranges::count(b.vertices, a.vertices[i]) != 0) shared.insert(corners[i]);
  }
  for (int mask = 1; mask < 64; ++mask) {
    std::vector<int> columns;
    for (int column = 0; column < 6; ++column)
      if ((mask >> column & 1) != 0) columns.push_back(column);
    if (columns.size() > 5) continue;
    if (const auto point = commonPoint(corners, columns)) extremes.insert(*point);
  }
  // Some of these points may lie between others. In the hull of what is shared they do no harm.
  const std::vector<Point> hull(shared.begin(), shared.end());
  if (hull.empty()) return !extremes.empty();
  const Point zero{};
  if (hull.size() == 3 && cross(hull[0], hull[1], hull[2]) != zero) return true;
  return std::ranges::any_of(extremes, [&](const Point& p) {
    // Sorted points of one line: the first and the last are its ends, and what lies between them has their order.
    return p < hull.front() || hull.back() < p || cross(hull.front(), hull.back(), p) != zero;
  });
}

}  // namespace support
