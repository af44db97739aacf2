#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <facetbox/io/Model.h>

namespace facetbox {

/// An object of an OBJ file: its faces, whose indices count through the file's own lists.
struct ObjPart {
  std::string name;
  std::size_t firstFace = 0;    ///< counted through the file
  std::size_t firstVertex = 0;  ///< vertices from here to the next part's that no face uses belong to the part
  PolyMesh mesh = {};           ///< without points and pairs
};

/// The lists that all objects of a file share.
struct ObjPools {
  std::vector<double> points, texCoords;
  std::vector<float> colors;  ///< of all vertices, or empty
};

/// Gives each part the vertices and texture coordinates that its faces use, in the order of the file. The points of a
/// single part are moved there, used or not.
std::vector<Object> separated(std::vector<ObjPart> parts, ObjPools pools);

}  // namespace facetbox
