#pragma once

#include <cmath>

namespace tool {

/// A point or direction in space.
struct Vector {
  double x = 0, y = 0, z = 0;

  friend Vector operator+(const Vector& a, const Vector& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
  friend Vector operator-(const Vector& a, const Vector& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  friend Vector operator-(const Vector& a) { return {-a.x, -a.y, -a.z}; }
  friend Vector operator*(const Vector& a, double factor) { return {a.x * factor, a.y * factor, a.z * factor}; }
};

inline double dot(const Vector& a, const Vector& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vector cross(const Vector& a, const Vector& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double length(const Vector& a) { return std::hypot(a.x, a.y, a.z); }
inline Vector normalized(const Vector& a) { return a * (1 / length(a)); }

}  // namespace tool
