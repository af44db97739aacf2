#pragma once

#include <string>

#include <tools/Model.h>

namespace tool {

/// Reads a model in any supported format; the end of the name decides: .obj, .ply, .off, .stl, .gltf, .glb.
/// The result has passed checkModel().
/// @throws InputError when the file cannot be read or is invalid
Model readModel(const std::string& path);

/// Reads OFF, STL or glTF with the import library. Its post-processing is off, so polygons stay polygons.
///
/// STL has no shared vertices, and glTF splits vertices where normals or texture coordinates jump. For both, vertices
/// of a mesh at exactly the same position become one; texture coordinates stay per corner.
/// @throws InputError
Model importModel(const std::string& path);

}  // namespace tool
