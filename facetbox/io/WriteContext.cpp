#include <facetbox/io/WriteContext.h>

#include <facetbox/io/files.h>

namespace facetbox {

bool WriteContext::writeBeside(const std::string& name, std::string_view bytes) const {
  if (!mPath) return false;
  writeFile(mPath->parent_path() / name, bytes);
  return true;
}

}  // namespace facetbox
