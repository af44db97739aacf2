#pragma once

#include <tools/Model.h>

namespace tool {

/// The model in triangles, without holes. Triangles stand in for their face at its place, in its object, with its
/// label; faces of fewer than three corners and hole faces are gone.
///
/// Corners keep their texture coordinates. Where contours cross, a triangle may have a corner at a new vertex, added
/// behind the object's own; such a triangle has no texture coordinates. A face of three corners stays as it is.
/// @throws RunError that tells the face, where one cannot be triangulated
Model triangulated(const Model& model, const std::string& name);

}  // namespace tool
