#pragma once

#include <cstdint>

// The test of a ray against a triangle that scenes define their hits by. Nothing in here may call an inline function of
// a library: the linker would be free to keep the copy that an older processor cannot run.

namespace util {

/// A ray in the coordinates of a mesh, made ready for many triangles. `axis` is where the direction is largest, ties to
/// x before y before z; `first` and `second` follow it cyclically.
struct SurfaceRay {
  double origin[3];
  double shearFirst, shearSecond;  ///< what the direction has there, per unit along the axis
  double along;                    ///< the direction's coordinate on the axis
  int axis, first, second;
};

/// What a triangle is hit by: t, and the edge functions that t and the barycentric coordinates are made of.
struct SurfaceMeeting {
  double t;
  double second, third;  ///< weights of the corners, out of
  double all;            ///< their sum with that of the first
};

/// a d - b c, with the sign of the exact value, where its rounding may be 0 although the products are not.
double signedDifference(double a, double d, double b, double c) noexcept;

inline __attribute__((always_inline)) SurfaceRay makeSurfaceRay(const double origin[3], const double direction[3]) {
  const double x = __builtin_fabs(direction[0]), y = __builtin_fabs(direction[1]), z = __builtin_fabs(direction[2]);
  SurfaceRay ray;
  ray.axis = y > x ? (z > y ? 2 : 1) : (z > x ? 2 : 0);
  ray.first = ray.axis == 2 ? 0 : ray.axis + 1;
  ray.second = ray.axis == 0 ? 2 : ray.axis - 1;
  for (int a = 0; a < 3; ++a) ray.origin[a] = origin[a];
  ray.along = direction[ray.axis];
  ray.shearFirst = direction[ray.first] / ray.along;
  ray.shearSecond = direction[ray.second] / ray.along;
  return ray;
}

/// Each corner, relative to the origin, is sheared along the ray onto the plane across the axis. The edge functions are
/// the areas that the edges span there with the ray, which is at 0: none may be negative while another is positive.
/// They weigh the corners' coordinates along the axis, so that t never leaves the range of the corners, whatever is
/// rounded. Corners are sheared alike in all triangles that share them, and an edge function only changes its sign
/// where an edge runs the other way: nothing slips through between them. NaN hits nothing.
/// @param corners  x, y, z of three
/// @return whether the triangle is met at a t from 0 on
inline __attribute__((always_inline)) bool meetSurface(const SurfaceRay& ray, const double* corners,
                                                       SurfaceMeeting& meeting) {
  double first[3], second[3], depth[3];
  for (int k = 0; k < 3; ++k) {
    const double* p = corners + 3 * k;
    depth[k] = p[ray.axis] - ray.origin[ray.axis];
    first[k] = (p[ray.first] - ray.origin[ray.first]) - ray.shearFirst * depth[k];
    second[k] = (p[ray.second] - ray.origin[ray.second]) - ray.shearSecond * depth[k];
  }
  double u = first[2] * second[1] - second[2] * first[1];
  double v = first[0] * second[2] - second[0] * first[2];
  double w = first[1] * second[0] - second[1] * first[0];
  // The rounding of products is monotone: only where it makes them equal does it hide the sign.
  if (__builtin_expect(u * v * w == 0, 0)) {
    u = signedDifference(first[2], second[1], second[2], first[1]);
    v = signedDifference(first[0], second[2], second[0], first[2]);
    w = signedDifference(first[1], second[0], second[1], first[0]);
  }
  const double least = u < v ? u : v, most = u > v ? u : v;
  if ((w < least ? w : least) < 0 && (w > most ? w : most) > 0) return false;
  const double all = u + v + w;
  if (all == 0) return false;
  const double t = (u * depth[0] + v * depth[1] + w * depth[2]) / (all * ray.along);
  if (!(t >= 0)) return false;
  meeting = {t, v, w, all};
  return true;
}

}  // namespace util
