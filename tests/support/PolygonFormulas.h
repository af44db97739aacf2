#pragma once

#include <tests/support/Meshes.h>

/// Normal and area of a polygon as their formulas stand, operation for operation.
namespace support {

/// Twice the area vector, summed over the triangles around the first corner (Newell).
inline Vec3 areaVectorOf(const std::vector<Vec3>& points, const Indices& corners) {
  Vec3 sum{0, 0, 0};
  for (std::size_t i = 1; i + 1 < corners.size(); ++i) {
    const Vec3& o = points[corners[0]];
    sum = sum + cross(points[corners[i]] - o, points[corners[i + 1]] - o);
  }
  return sum;
}
inline bool hasNormal(const std::vector<Vec3>& points, const Indices& corners) {
  return length(areaVectorOf(points, corners)) > 1e-25;
}
inline Vec3 normalOf(const std::vector<Vec3>& points, const Indices& corners) {
  const Vec3 sum = areaVectorOf(points, corners);
  return hasNormal(points, corners) ? sum / length(sum) : Vec3{0, 1, 0};
}

/// By the shoelace formula, seen along the largest component of a normal.
inline double areaOf(const std::vector<Vec3>& points, const Indices& corners, const Vec3& normal) {
  const std::size_t n = corners.size();
  if (n < 3) return 0.0;
  const double nx = std::abs(normal.x), ny = std::abs(normal.y), nz = std::abs(normal.z);
  double Vec3::*a = &Vec3::x, Vec3::*b = &Vec3::y, Vec3::*divisor = &Vec3::z;
  if (nx > ny && nx > nz)
    a = &Vec3::y, b = &Vec3::z, divisor = &Vec3::x;
  else if (nx <= ny && ny > nz)
    a = &Vec3::z, b = &Vec3::x, divisor = &Vec3::y;
  const auto at = [&](std::size_t i) { return points[corners[i % n]]; };
  double sum = 0.0;
  for (std::size_t i = 1; i <= n; ++i) sum += at(i).*a * (at(i + 1).*b - at(i - 1).*b);
  return std::abs(0.5 * sum * (1.0 / normal.*divisor));
}

}  // namespace support
