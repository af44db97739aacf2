#pragma once

#include <optional>
#include <string>
#include <vector>

#include <facetbox/io/Format.h>
#include <tools/DefectLists.h>
#include <tools/Errors.h>

namespace tool {

struct CheckOptions {
  std::vector<std::string> mModels;  ///< "-" is standard input
  std::optional<facetbox::Format> mFrom;
  DefectOptions mWhat;
  std::vector<DefectKind> mAllowed;  ///< do not count for the exit code
  bool mJoin = false;                ///< all objects of a model are checked as one
  bool mJson = false;
};

/// Prints what is wrong with models, and where. @return kExitDefects where there is anything that is not allowed
ExitCode runCheck(const CheckOptions& options);

}  // namespace tool
