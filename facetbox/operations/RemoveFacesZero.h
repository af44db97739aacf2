#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/util/Mesh.h>

namespace util {

struct MeshStorage;

/// Whether faces stay without which more edges would be open than with them (findUnitsToKeep()).
enum class KeepClosed : bool { no, yes };

/// Clears every face whose area is below `threshold`, then compacts the mesh and drops unused vertices.
///
/// Faces only; lines and points are not looked at. An area equal to the threshold is kept, and so is a NaN area. The
/// area is measured along the stored normal (computePolygonArea).
/// @param threshold  area in squared mesh units; zero or less removes nothing
/// @return number of faces cleared. If 0, the mesh is untouched. O(corners).
std::uint64_t removeFacesZero(Mesh& mesh, double threshold, KeepClosed keepClosed = KeepClosed::no);

/// Along which normals areas are measured: the stored ones, or those of the faces as they are, which may be stored at
/// once.
enum class AlongNormals { stored, computed, computedAndStored };

/// The two halves of that: the faces below `threshold`, ascending, and the removal of those that need not stay.
std::vector<std::uint32_t> findFacesBelow(Mesh& mesh, double threshold, AlongNormals normals = AlongNormals::stored);
std::uint64_t removeZeroFaces(Mesh& mesh, std::vector<std::uint32_t> faces, KeepClosed keepClosed);

/// Whether a face is below `threshold`.
bool isFaceBelow(const MeshStorage& mesh, std::uint32_t face, double threshold);

}  // namespace util
