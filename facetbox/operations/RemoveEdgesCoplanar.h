#pragma once

#include <cstdint>

#include <facetbox/util/Mesh.h>

namespace util {

/// Merges faces that lie in one plane, by regions.
///
/// A region grows from a seed over clean edges (used by exactly two faces, once each, in opposite directions, neither
/// of them a hole face) to every face whose normal differs from the seed's by at most `toleranceDegrees` (plus 1e-6).
/// It is held against the seed, never against the neighbor: a gently curved surface falls into patches, and nothing
/// drifts. Seeds come by decreasing area, ties by lower index. Faces that carry different texture-coordinate sets never
/// join, nor do faces with a coordinate that is not finite. A face without area has no plane of its own and never
/// seeds; it joins where it brings no corner out of the plane: seen from the start of the edge over which it joins,
/// none of its corners lies in a direction that leaves the seed's plane by more than that angle.
///
/// The border of a region becomes one face: its loop of positive area the outer boundary, the other loops hole faces,
/// which run opposite to it. Before that the region is trimmed until its border passes no vertex twice, and mended
/// until it has none of these flaws (FaceRegions tells what is put out):
/// - a loop of fewer than three corners or without area, as far as the rounding of the sum can tell;
/// - a loop of positive area besides the largest one;
/// - an edge that touches another edge of its loop, beyond the corner that neighbors have in common;
/// - once there are none of these: a hole, of a member or new, that hole assignment would delete.
/// Loops are seen along the largest component of the seed's normal, decisions are exact, and edges without length are
/// passed over. All flaws of a border are dealt with at once: where two edges touch, the face goes that a
/// breadth-first walk from the seed reaches later; of a member's hole, the member; for anything else, the smallest face
/// at the lowest vertex of the flaw's loop. Then the border is looked at again. What was put out takes part in later
/// regions. Where nothing but the seed is left at the flaws, the seed stays alone.
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
/// O(n log n) in the corners. For that, two things have an end: a face that has been put out of 16 regions that kept
/// less than half of what they had grown to joins no other, and so does one of more than 16 corners that has been kept
/// out of 64 by its corners, each time by another one than the time before.
std::uint64_t removeEdgesCoplanar(Mesh& mesh, double toleranceDegrees, bool compareAttributes);

/// The same, by a stricter rule: no face joins that has a corner which, seen from the start of the edge over which the
/// face joins, lies in a direction that leaves the seed's plane by more than the angle, whether the face has a plane of
/// its own or not. So flat parts stay flat, also where merged faces are merged again.
/// @param isRepeated  merge until no face joins any other: at most 100 times
std::uint64_t removeEdgesCoplanarKeepingFlat(Mesh& mesh, double toleranceDegrees, bool compareAttributes,
                                             bool isRepeated);

}  // namespace util
