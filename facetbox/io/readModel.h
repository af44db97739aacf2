#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <facetbox/io/FileError.h>
#include <facetbox/io/Format.h>
#include <facetbox/io/Model.h>
#include <facetbox/util/Export.h>

namespace facetbox {

struct ReadOptions {
  /// Empty: the end of the name decides.
  std::optional<Format> format = {};

  /// Files that a model names, such as material libraries and buffers, are read from the model's folder and those below
  /// it only. Set this for files that are to be read from wherever the model says.
  bool readsAnywhere = false;

  /// Asked from time to time, at least every 0.1 s; returning true gives up with facetbox::Cancelled.
  std::function<bool()> cancel = {};
};

/// Reads a model. Formats that are not in Format but known to the import library are read by it, with coordinates that
/// went through floats.
///
/// Every mesh of the result is free of fatal problems (see validate()), and there is at least one face. Nothing is made
/// up: a file that is cut short or says what cannot be is an error. What is left out is counted in Model::notes, and so
/// is the line end that OBJ, PLY or OFF text may lack behind its last number, which may have lost digits then.
/// Takes memory of about ten times the size of the files at most, whatever these declare, and what the objects and
/// materials themselves take: about 500 bytes for each object, 300 for each material. Of glTF files, which may show a
/// mesh many times, it is up to 256 MB where that is more.
/// @throws ReadError, Cancelled, std::bad_alloc
FACETBOX_EXPORT Model readModel(const std::filesystem::path& path, const ReadOptions& options = {});

/// The same from memory. No other file is opened: what the model names beside itself is missing, and noted or an error.
/// @param bytes  the whole file
/// @param name   of the file in messages
FACETBOX_EXPORT Model parseModel(std::string_view bytes, Format format, const std::string& name,
                                 const ReadOptions& options = {});

}  // namespace facetbox
