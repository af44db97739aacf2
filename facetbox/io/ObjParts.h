#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include <facetbox/io/Model.h>

namespace facetbox {

/// An object of an OBJ file, which begins at these places of its lists and ends where the next one begins.
struct ObjPart {
  std::string name = {};
  std::size_t firstFace = 0, firstCorner = 0;
  std::size_t firstVertex = 0;  ///< vertices from here to the next part's that no face uses belong to the part
};

/// The lists of a file; all objects share them. Those of faces and corners are as in PolyMesh.
struct ObjPools {
  std::vector<double> points, texCoords;
  std::vector<float> colors;                   ///< of all vertices, or empty
  std::vector<std::uint32_t> counts, indices;  ///< of each face, of each corner
  std::vector<std::uint32_t> texIndices;       ///< of each corner, or empty
  std::vector<std::uint32_t> labels;           ///< of each face, kNone in parts without labels; or empty
  std::vector<std::uint32_t> holes;            ///< ascending by the outer face; faces are counted through the file
};

/// Gives each part the vertices and texture coordinates that its faces use, in the order of the file. Those of a single
/// part are moved there, used or not.
/// @param unusedTexCoords  of several parts: how many belong to none
std::vector<Object> separated(std::deque<ObjPart> parts, ObjPools pools, std::size_t& unusedTexCoords);

}  // namespace facetbox
