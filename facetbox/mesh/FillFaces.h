#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <facetbox/mesh/PrimitiveList.h>
#include <facetbox/util/Mesh.h>

namespace util {

/// Faces as a caller's arrays have them. A Count below 3 is a face to be left out; a negative one moves back in the
/// indices, but never before their start.
template <class Count>
struct FaceArrays {
  const Count* counts;
  std::size_t faceCount;
  const std::uint32_t* indices;          ///< face after face
  const std::uint32_t* texCoordIndices;  ///< parallel to the indices; null without texture coordinates
  bool hasTexCoords;                     ///< whether texCoordIndices has to be there
};

/// Whether somebody has seen to it that every vertex index of a face with three corners or more is in range.
enum class Indices { unchecked, inRange };

/// Whether faces get their normals at once, or somebody sees to it before they are needed.
enum class Normals { computed, leftOpen };

/// Gives a mesh that has vertices, hole groups and material runs, but no faces, its faces.
///
/// Faces of fewer than three corners are left out; hole groups and runs follow. If there were any, the vertices that no
/// face uses go as well.
/// @return number of faces left out
/// @throws std::invalid_argument where an array that the counts call for is null
/// @throws std::out_of_range     where an index is not below the number of vertices
/// @throws std::length_error     where the faces have more than 2^32 - 1 corners in total
/// O(vertices + corners).
template <class Count>
std::size_t fillFaces(Mesh& mesh, const FaceArrays<Count>& arrays, Indices indices,
                      Normals normals = Normals::computed);

/// @throws std::invalid_argument where an array is null although it is needed; `what` says which
void requireArray(const void* array, bool needed, const char* what);

/// @throws std::out_of_range where an index is not below the number of vertices
void checkIndices(const PrimitiveList& list, std::size_t vertexCount);

}  // namespace util
