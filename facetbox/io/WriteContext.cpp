#include <facetbox/io/WriteContext.h>

#include <fmt/format.h>

#include <facetbox/io/FileError.h>

namespace facetbox {

void WriteContext::fail(const std::string& what) const {
  throw WriteError(fmt::format("{}: {}", mPath ? mPath->string() : "the model", what));
}

bool WriteContext::writeBeside(const std::string& name, std::string_view bytes) {
  if (!mPath) return false;
  if (name == mPath->filename()) fail("the model needs a file of this name beside it; give it another one");
  mBeside.push_back(std::make_unique<OutputFile>(mPath->parent_path() / name));
  mBeside.back()->append(bytes);
  return true;
}

void WriteContext::commitBeside() {
  for (const auto& file : mBeside) file->commit();
}

}  // namespace facetbox
