#pragma once

#include <optional>
#include <string>

#include <facetbox/io/Format.h>
#include <tools/Errors.h>

namespace tool {

struct ConvertOptions {
  std::string mInput, mOutput;  ///< "-" are the standard streams
  std::optional<facetbox::Format> mFrom, mTo;
  bool mJson = false;
};

/// Reads a model and writes it in another format. Says what was left out on either side.
ExitCode runConvert(const ConvertOptions& options);

}  // namespace tool
