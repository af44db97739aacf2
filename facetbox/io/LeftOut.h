#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// Notes what only the faces' marks say, for formats without them: groups, kinds of surface, parts of solids, and what
/// only the format understands that the model was read from.
void noteMarks(const Model& model, Notes& notes);

/// Notes the names of objects.
void noteObjectNames(const Model& model, Notes& notes);

/// Notes materials, all of them.
void noteMaterials(const Model& model, Notes& notes);

}  // namespace facetbox
