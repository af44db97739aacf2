#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <facetbox/io/FileError.h>
#include <facetbox/io/Format.h>
#include <facetbox/io/Model.h>
#include <facetbox/util/Export.h>

namespace facetbox {

struct WriteOptions {
  /// Empty: the end of the name decides.
  std::optional<Format> format = {};

  /// PLY and STL as text; without, as bytes. Bytes of STL are floats.
  bool isText = false;
};

/// Writes a model. Numbers in text are the shortest that read back as the same doubles. The file appears under its name
/// when it is complete; until then, what stood there stays. OBJ files get a material library beside them where there
/// are materials: the same name with .mtl.
/// @return what the format cannot carry, counted
/// @throws WriteError, also where labels, marks or colors do not fit the meshes; InvalidMesh where a mesh has fatal
///   problems
FACETBOX_EXPORT std::vector<Note> writeModel(const Model& model, const std::filesystem::path& path,
                                             const WriteOptions& options = {});

/// The same, to whoever takes the bytes, piece by piece in order. Files beside the model are not written, and noted.
/// @param format  counts, whatever stands in the options
FACETBOX_EXPORT std::vector<Note> writeModel(const Model& model, Format format,
                                             const std::function<void(std::string_view)>& sink,
                                             const WriteOptions& options = {});

}  // namespace facetbox
