#pragma once

#include <algorithm>
#include <cmath>

namespace util {

/// A point in the plane, or a pair of texture coordinates.
struct Vec2 {
  double x, y;

  friend bool operator==(const Vec2&, const Vec2&) = default;
};

/// A point or a vector. Every operation is the plain formula, evaluated left to right.
struct Vec3 {
  double x, y, z;

  friend Vec3 operator+(const Vec3& a, const Vec3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
  friend Vec3 operator-(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  friend Vec3 operator-(const Vec3& a) { return {-a.x, -a.y, -a.z}; }
  friend Vec3 operator*(double s, const Vec3& a) { return {s * a.x, s * a.y, s * a.z}; }
  friend Vec3 operator/(const Vec3& a, double s) { return {a.x / s, a.y / s, a.z / s}; }
  friend bool operator==(const Vec3&, const Vec3&) = default;
};

inline double dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

inline Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

inline double lengthSq(const Vec3& a) { return dot(a, a); }
inline double length(const Vec3& a) { return std::sqrt(lengthSq(a)); }

/// Of three numbers that follow each other.
template <class Number>
Vec3 toVec3(const Number* p) {
  return {static_cast<double>(p[0]), static_cast<double>(p[1]), static_cast<double>(p[2])};
}

/// No coordinate is infinite or NaN.
inline bool isFinite(const Vec2& p) { return std::isfinite(p.x) && std::isfinite(p.y); }
inline bool isFinite(const Vec3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

/// The largest of the coordinates' absolute values.
inline double largestMagnitude(const Vec3& v) {
  return std::max(std::max(std::fabs(v.x), std::fabs(v.y)), std::fabs(v.z));
}

/// Index of the coordinate that a projection along `normal` drops: the largest by absolute value, ties to x before y
/// and to either before z.
inline int dominantAxis(const Vec3& normal) {
  const double x = std::fabs(normal.x), y = std::fabs(normal.y), z = std::fabs(normal.z);
  int axis = y > x ? 1 : 0;
  if (z > (axis == 1 ? y : x)) axis = 2;
  return axis;
}

/// Drops coordinate `axis`. The order of the two that stay is that of a (z, y), (x, z) or (x, y) plane.
inline Vec2 project(const Vec3& p, int axis) {
  if (axis == 0) return {p.z, p.y};
  if (axis == 1) return {p.x, p.z};
  return {p.x, p.y};
}

}  // namespace util
