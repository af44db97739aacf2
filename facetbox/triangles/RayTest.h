#pragma once

#include <facetbox/base/Processor.h>
#include <facetbox/triangles/RayTransform.h>
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

/// The same for many rays: the transform is made once, from this mesh and this matrix.
bool intersectRay(const TriangleMesh& mesh, const RayTransform& transform, const double matrix[16],
                  const double origin[3], const double direction[3], double* t, double* normalOut,
                  Instructions instructions = Instructions::best);

}  // namespace util
