#pragma once

#include <facetbox/math/Instructions.h>
#include <facetbox/util/TriangleMesh.h>

namespace util {

/// Nearest hit of a ray with a mesh that is placed by a matrix.
///
/// Two-sided. Every corner is transformed, then the triangles are tested in the order of their indices by the formulas
/// of Moeller and Trumbore, in doubles; of equal distances the earlier triangle's counts. A triangle whose determinant
/// lies strictly between -1e-5 and 1e-5 is passed over. That limit is absolute: the determinant grows with the
/// direction's length and the square of the edges', so rays of unit length see nothing of models below some
/// thousandths of a unit.
///
/// The mesh's hierarchy, where there is one, gives these very results, bit for bit, in logarithmic time.
///
/// @param matrix     16 doubles, column-major (translation in [12] to [14]), without division by w
/// @param direction  need not be of unit length
/// @param t          the ray parameter of the hit, in units of the direction's length; untouched without a hit
/// @param normalOut  the triangle's unit normal in the matrix's space, by its winding; may be null; untouched without
///                   a hit
/// @return whether there is a hit at a parameter from 0 to below FLT_MAX
bool intersectRay(const TriangleMesh& mesh, const double matrix[16], const double origin[3], const double direction[3],
                  double* t, double* normalOut);

/// The same by looking at every triangle. What intersectRay() is measured against.
bool intersectRayPlain(const TriangleMesh& mesh, const double matrix[16], const double origin[3],
                       const double direction[3], double* t, double* normalOut);

/// What all rays against one mesh in one place have in common: made once for many calls of the other intersectRay().
/// Refers to nothing; belongs to the mesh and the matrix that it was made from.
struct RayTransform {
  RayTransform() = default;
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

bool intersectRay(const TriangleMesh& mesh, const RayTransform& placement, const double matrix[16],
                  const double origin[3], const double direction[3], double* t, double* normalOut,
                  Instructions instructions = Instructions::best);

}  // namespace util
