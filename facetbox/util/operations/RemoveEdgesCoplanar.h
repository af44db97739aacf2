#pragma once

#include <cstdint>

#include <facetbox/util/Mesh.h>

namespace util {

/// Merges faces that lie in one plane, by regions.
///
/// A region grows from a seed over clean edges (used by exactly two faces, once each, in opposite directions, neither
/// of them a hole face) to every face whose normal differs from the seed's by at most `toleranceDegrees` (plus 1e-6).
/// It is held against the seed, never against the neighbour: a gently curved surface falls into patches, and nothing
/// drifts. Faces without area have no plane of their own and may join any region. Seeds come by decreasing area, ties
/// by lower index. Faces that carry different texture-coordinate sets never join.
///
/// The border of a region becomes one face: its loop of positive area the outer boundary, the other loops hole faces,
/// which run opposite to it. Before that the region is trimmed until its border passes no vertex twice (FaceRegions).
/// A region whose border is not one outer loop with holes that hole assignment would keep stays as it was.
///
/// The merged face stands at the place of the region's lowest face; hole faces take the places of the others, then the
/// end of the list. Every loop starts at its lowest vertex. Holes of the merged faces go over to the new one. Corners
/// at which the boundary runs straight on stay. Vertices that no face uses any more go.
///
/// @param toleranceDegrees   below 0 or NaN: nothing happens; at most 89 counts
/// @param compareAttributes  join only faces of the same first material whose texture coordinates agree (closer than
///                           0.001) along the common edge and continue the seed's affine texture mapping (likewise).
///                           Otherwise geometry alone decides: the merged face takes the seed's material, and every
///                           corner the data of the face that owned the edge leaving it.
/// @return number of faces that were merged into others. If 0, the mesh is untouched.
/// O(n log n) in the corners.
std::uint64_t removeEdgesCoplanar(Mesh& mesh, double toleranceDegrees, bool compareAttributes);

}  // namespace util
