#pragma once

#include <facetbox/io/Model.h>
#include <facetbox/io/WriteContext.h>

namespace facetbox {

/// Writes CityJSON, see docs/cityjson-files.md. A model that was read from CityJSON goes back into the text of its
/// file: what has not changed stays byte for byte.
void writeCityJson(const Model& model, WriteContext& context);

}  // namespace facetbox
