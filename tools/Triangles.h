#pragma once

#include <tools/Model.h>

namespace tool {

/// The model in triangles, without holes. The triangles of a face take its place, in its object and with its label.
/// Hole faces and faces with fewer than three corners are dropped.
///
/// Corners keep their texture coordinates. Where contours cross, a triangle may have a corner at a new vertex, added
/// after the object's own vertices; such a triangle has no texture coordinates. Triangular faces stay as they are.
/// @throws RunError that names the face, where one cannot be triangulated
Model triangulated(const Model& model, const std::string& name);

}  // namespace tool
