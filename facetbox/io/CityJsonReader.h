#pragma once

#include <string_view>

#include <facetbox/io/Model.h>
#include <facetbox/io/ReadContext.h>

namespace facetbox {

/// Reads CityJSON, see docs/cityjson-files.md.
/// @throws ReadError with the line and column
Model parseCityJson(std::string_view bytes, ReadContext& context);

}  // namespace facetbox
