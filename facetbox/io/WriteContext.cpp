#include <facetbox/io/WriteContext.h>

#include <fmt/format.h>

#include <facetbox/io/FileError.h>
#include <facetbox/io/files.h>

namespace facetbox {

void WriteContext::fail(const std::string& what) const {
  throw WriteError(fmt::format("{}: {}", mPath ? mPath->string() : "the model", what));
}

bool WriteContext::writeBeside(const std::string& name, std::string_view bytes) const {
  if (!mPath) return false;
  writeFile(mPath->parent_path() / name, bytes);
  return true;
}

}  // namespace facetbox
