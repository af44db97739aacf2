#pragma once

#include <string>

#include <tools/Model.h>

namespace tool {

/// Reads a model of any understood format, told by the end of its name: .obj, .ply, .off, .stl, .gltf, .glb.
/// The result has passed checkModel().
/// @throws InputError when the file cannot be read or makes no sense
Model readModel(const std::string& path);

/// Reads PLY, OFF, STL or glTF through the import library, without any of its post-processing: polygons stay polygons.
///
/// STL has no shared vertices, and glTF splits them where normals or texture coordinates jump; there the vertices of a
/// mesh that lie at exactly the same position become one, while texture coordinates stay per corner.
/// @throws InputError
Model importModel(const std::string& path);

}  // namespace tool
