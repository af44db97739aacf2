#pragma once

namespace util {

class TriangleMesh;

/// What all rays against one mesh under one matrix have in common: the way into the unit coordinates of the mesh's
/// bounding volume hierarchy, and the parts of the margins that no ray changes. Made once for many rays. Refers to
/// nothing; belongs to the mesh and the matrix that it was made from.
///
/// RayMargins.h derives the margins.
struct RayTransform {
  RayTransform() = default;
  /// @param matrix  16 doubles, column-major, affine
  RayTransform(const TriangleMesh& mesh, const double matrix[16]);

  bool isUsable = false;  ///< whether the hierarchy may be traversed
  // Vectors of three, with a zero behind.
  double columns[3][4] = {};  ///< of the inverse's linear part, scaled to unit coordinates
  double rowSums[4] = {};     ///< of its absolute values, with what the float margins add to each
  double translation[4] = {};
  double center[4] = {};  ///< of the mesh, in unit coordinates
  double largestRowSum = 0;
  double volume = 0;  ///< the matrix's absolute determinant, per unit coordinates: what a unit cube becomes
  double edge = 0;    ///< largest coordinate of a placed edge
  double growth = 0;  ///< the matrix's largest row sum of absolute values, per unit coordinate, and some more
  // What no ray changes of the margins around boxes and of the coordinates that these grow with.
  double worldReach = 0;        ///< largest coordinate of the placed mesh plus that of an edge, and some more
  double meshReach = 0;         ///< the same relative to the mesh's center
  double cornerError = 0;       ///< of a placed corner
  double pointError = 0;        ///< of a point on a placed triangle
  double imageError = 0;        ///< of the inverse, per unit
  double determinantError = 0;  ///< per unit of the direction
  double commonWidth = 0;       ///< of all boxes, in unit coordinates
};

}  // namespace util
