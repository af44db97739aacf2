#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include <nlohmann/json.hpp>

#include <facetbox/io/Base64.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/readModel.h>

namespace facetbox {

/// glTF files from parts, right or wrong.
struct GltfBuilder {
  using Json = nlohmann::json;

  Json root = {{"asset", {{"version", "2.0"}}}};
  std::string bytes;

  static Json& append(Json& array, const Json& element) {
    array.push_back(element);
    return array.back();
  }
  std::size_t view(std::string_view content, const Json& extra = Json::object()) {
    bytes.resize((bytes.size() + 3) / 4 * 4);
    append(root["bufferViews"], {{"buffer", 0}, {"byteOffset", bytes.size()}, {"byteLength", content.size()}})
        .update(extra);
    bytes += content;
    return root["bufferViews"].size() - 1;
  }
  template <typename T>
  std::size_t view(const std::vector<T>& numbers) {
    return view({reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof(T)});
  }
  template <typename T>
  static unsigned typeOf() {
    if (std::is_same_v<T, float>) return 5126;
    return 5120 + (sizeof(T) == 2 ? 2 : sizeof(T) == 4 ? 4 : 0) + (std::is_unsigned_v<T> ? 1 : 0);
  }
  /// An accessor of all the numbers.
  template <typename T>
  std::size_t add(const std::vector<T>& numbers, const std::string& type, const Json& extra = Json::object()) {
    const std::size_t components = type == "SCALAR" ? 1 : static_cast<std::size_t>(type[3] - '0');
    append(root["accessors"], {{"bufferView", view(numbers)},
                               {"componentType", typeOf<T>()},
                               {"count", numbers.size() / components},
                               {"type", type}})
        .update(extra);
    return root["accessors"].size() - 1;
  }
  std::size_t mesh(const Json& primitives) {
    root["meshes"].push_back({{"primitives", primitives}});
    return root["meshes"].size() - 1;
  }
  std::size_t node(const Json& node) {
    root["nodes"].push_back(node);
    return root["nodes"].size() - 1;
  }
  /// One triangle, as a mesh.
  std::size_t triangle() {
    return mesh({{{"attributes", {{"POSITION", add<float>({0, 0, 0, 4, 0, 0, 0, 2, 0}, "VEC3")}}}}});
  }

  std::string text() const {
    Json whole = root;
    std::string uri = "data:application/octet-stream;base64,";
    appendBase64(uri, bytes);
    if (!bytes.empty()) whole["buffers"] = {{{"byteLength", bytes.size()}, {"uri", uri}}};
    return whole.dump();
  }
  std::string glb() const {
    Json whole = root;
    if (!bytes.empty()) whole["buffers"] = {{{"byteLength", bytes.size()}}};
    return glb(whole.dump(), bytes);
  }
  static std::string glb(std::string json, std::string binary) {
    json.resize((json.size() + 3) / 4 * 4, ' ');
    binary.resize((binary.size() + 3) / 4 * 4);
    const auto word = [](std::size_t value) {
      const auto word32 = static_cast<std::uint32_t>(value);
      return std::string(reinterpret_cast<const char*>(&word32), 4);
    };
    const std::string chunk = binary.empty() ? "" : word(binary.size()) + std::string("BIN\0", 4) + binary;
    return "glTF" + word(2) + word(20 + json.size() + chunk.size()) + word(json.size()) + "JSON" + json + chunk;
  }

  Model read() const { return parseModel(glb(), Format::glb, "test.glb"); }
};

inline std::size_t noteCount(const std::vector<Note>& notes, const std::string& what) {
  for (const Note& note : notes)
    if (note.what.starts_with(what)) return note.count;
  return 0;
}

}  // namespace facetbox
