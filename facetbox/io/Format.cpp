#include <facetbox/io/Format.h>

#include <algorithm>
#include <array>
#include <string>

namespace facetbox {
namespace {

struct Entry {
  Format format;
  const char* name;
  std::string_view ending;
};

constexpr std::array<Entry, 8> kFormats = {{{Format::obj, "obj", ".obj"},
                                            {Format::ply, "ply", ".ply"},
                                            {Format::off, "off", ".off"},
                                            {Format::stl, "stl", ".stl"},
                                            {Format::gltf, "gltf", ".gltf"},
                                            {Format::glb, "glb", ".glb"},
                                            {Format::cityJson, "cityjson", ".json"},
                                            {Format::cityJson, "cityjson", ".cityjson"}}};

std::string inLowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return text;
}

}  // namespace

std::optional<Format> formatOf(const std::filesystem::path& path) {
  const std::string ending = inLowerCase(path.extension().string());
  for (const Entry& entry : kFormats)
    if (entry.ending == ending) return entry.format;
  return std::nullopt;
}

std::optional<Format> formatNamed(std::string_view name) {
  const std::string lower = inLowerCase(std::string(name));
  for (const Entry& entry : kFormats)
    if (entry.name == lower) return entry.format;
  return std::nullopt;
}

const char* nameOf(Format format) {
  for (const Entry& entry : kFormats)
    if (entry.format == format) return entry.name;
  return "";
}

}  // namespace facetbox
