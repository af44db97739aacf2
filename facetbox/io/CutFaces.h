#pragma once

#include <optional>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// Which faces a format does not know.
enum class Unknown { facesWithHoles, polygons };

/// The mesh with those faces cut into triangles, in their places, and without the faces that are holes. What happens is
/// noted, and so is what is left out: a face that cannot be cut; a hole that clean() would drop, such as one beside its
/// face. Vertices keep their numbers; made ones come behind them.
/// @param unknown  polygons: all faces with more than three corners, and those with holes
/// @return nothing where the mesh may stay as it is
std::optional<PolyMesh> cutFaces(const PolyMesh& mesh, Unknown unknown, Notes& notes);

}  // namespace facetbox
