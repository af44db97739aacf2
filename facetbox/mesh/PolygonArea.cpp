#include <facetbox/mesh/PolygonArea.h>

#include <cmath>

namespace util {
namespace {

/// Twice the signed area of the polygon's projection on the plane of the coordinates A and B.
template <double Vec3::*A, double Vec3::*B>
double shoelace(const Vec3* vertices, std::span<const std::uint32_t> corners) {
  const std::size_t n = corners.size();
  double sum = 0.0;
  double previous = vertices[corners[0]].*B;
  const Vec3* current = &vertices[corners[1]];
  for (std::size_t i = 1; i <= n; ++i) {
    const Vec3* next = &vertices[corners[i + 1 < n ? i + 1 : i + 1 - n]];
    sum += current->*A * (next->*B - previous);
    previous = current->*B;
    current = next;
  }
  return sum;
}

}  // namespace

bool computeFaceNormal(std::span<const Vec3> vertices, std::span<const std::uint32_t> corners, Vec3& normal) {
  Vec3 sum{0.0, 0.0, 0.0};
  if (corners.size() > 2) {
    const Vec3 first = vertices[corners[0]];
    Vec3 edge = vertices[corners[1]] - first;
    for (std::size_t i = 2; i < corners.size(); ++i) {
      const Vec3 next = vertices[corners[i]] - first;
      sum = sum + cross(edge, next);
      edge = next;
    }
  }
  const double size = length(sum);
  // Written so that a NaN length takes the stand-in as well.
  if (!(size > 1e-25)) {
    normal = {0.0, 1.0, 0.0};
    return false;
  }
  normal = sum / size;
  return true;
}

double computePolygonArea(std::span<const Vec3> vertices, std::span<const std::uint32_t> corners, const Vec3& normal) {
  if (corners.size() < 3) return 0.0;
  const double x = std::fabs(normal.x), y = std::fabs(normal.y), z = std::fabs(normal.z);
  double twice, divisor;
  if (x > y && x > z) {
    twice = shoelace<&Vec3::y, &Vec3::z>(vertices.data(), corners);
    divisor = normal.x;
  } else if (x <= y && y > z) {
    twice = shoelace<&Vec3::z, &Vec3::x>(vertices.data(), corners);
    divisor = normal.y;
  } else {
    twice = shoelace<&Vec3::x, &Vec3::y>(vertices.data(), corners);
    divisor = normal.z;
  }
  return std::fabs(0.5 * twice * (1.0 / divisor));
}

}  // namespace util
