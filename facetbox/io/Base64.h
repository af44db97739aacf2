#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace facetbox {

/// The bytes that base64 text stands for, after RFC 4648; the padding may be missing.
/// @param problem  where it is none: the offset of the first character that cannot be
std::optional<std::string> fromBase64(std::string_view text, std::size_t& problem);

/// Appends bytes as base64. Pieces of a multiple of three bytes may come one after the other.
void appendBase64(std::string& text, std::string_view bytes);

}  // namespace facetbox
