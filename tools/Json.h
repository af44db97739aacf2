#pragma once

#include <vector>

#include <nlohmann/json.hpp>

#include <facetbox/PolyMesh.h>
#include <facetbox/clean.h>
#include <facetbox/io/Model.h>
#include <tools/Progress.h>

namespace tool {

/// What is left out, by what it is.
nlohmann::ordered_json jsonOf(const std::vector<facetbox::Note>& notes);

/// With the reason as a code and as a sentence. Faces that have no number are null.
nlohmann::ordered_json jsonOf(const facetbox::DroppedHole& hole);

/// The code of a reason, such as "touches".
const char* codeOf(facetbox::DroppedHole::Reason reason);

/// Seconds and shares of reading, `work` and writing.
/// @param work  what is done in between; null: nothing
nlohmann::ordered_json jsonOf(const Seconds& seconds, const char* work);

}  // namespace tool
