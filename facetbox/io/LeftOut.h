#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// Notes on how many faces a format loses the group, the kind of surface, and the part of a solid.
void noteGroups(const Model& model, Notes& notes);
void noteSemantics(const Model& model, Notes& notes);
void noteParts(const Model& model, Notes& notes);

/// Notes that the model holds what only another format understands: the one that it was read from.
void noteDocument(const Model& model, Notes& notes);

/// Notes the names of objects.
void noteObjectNames(const Model& model, Notes& notes);

/// Notes materials, all of them.
void noteMaterials(const Model& model, Notes& notes);

}  // namespace facetbox
