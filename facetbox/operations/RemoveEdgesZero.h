#pragma once

#include <cstdint>

#include <facetbox/util/Mesh.h>

namespace util {

/// Collapses edges shorter than `threshold` (lengths in mesh units, compared squared; the sign is ignored).
///
/// Faces, each on its own: a run of short edges collapses onto its first vertex for as long as each further vertex
/// lies within the threshold of that vertex, not of the one just dropped. A face without a single long edge goes.
/// Afterwards faces of an area below the mesh's limit (1e-6 unless it is set) and unused vertices are removed.
/// Lines: a line whose first segment is short goes; further segments are not measured. A line of fewer than two
/// vertices has no segment and stays. Points: nothing happens.
///
/// @return faces: number of corners that were overwritten, plus all corners of faces that went; lines: number of lines
///         that went. If 0, the mesh is untouched. O(corners).
std::uint64_t removeEdgesZero(Mesh& mesh, double threshold);

}  // namespace util
