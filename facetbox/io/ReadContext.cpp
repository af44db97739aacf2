#include <facetbox/io/ReadContext.h>

#include <algorithm>

#include <fmt/format.h>

#include <facetbox/Cancelled.h>
#include <facetbox/io/files.h>

namespace facetbox {
namespace {

namespace fs = std::filesystem;

// Whether a file lies in a folder or below it, symbolic links followed.
bool isBelow(const fs::path& file, const fs::path& folder) {
  std::error_code error;
  const fs::path realFile = fs::canonical(file, error), realFolder = fs::canonical(folder, error);
  if (error) return false;
  const auto [end, ignored] = std::mismatch(realFolder.begin(), realFolder.end(), realFile.begin(), realFile.end());
  return end == realFolder.end();
}

}  // namespace

void ReadContext::fail(const std::string& what) const { throw ReadError(fmt::format("{}: {}", mName, what)); }

void ReadContext::failAtLine(std::size_t line, const std::string& what) const {
  throw ReadError(fmt::format("{}:{}: {}", mName, line, what));
}

void ReadContext::failAtByte(std::size_t byte, const std::string& what) const {
  throw ReadError(fmt::format("{}: byte {}: {}", mName, byte, what));
}

void ReadContext::pollNow() const {
  if (mOptions.cancel && mOptions.cancel()) throw Cancelled();
}

std::optional<std::string> ReadContext::readBeside(const std::string& reference, std::string& reason) const {
  if (!mFolder) {
    reason = "only the model itself was handed in";
    return std::nullopt;
  }
  if (reference.find('\0') != std::string::npos) {
    reason = "this is no name of a file";
    return std::nullopt;
  }
  const fs::path file = *mFolder / reference;
  std::error_code error;
  if (!fs::is_regular_file(file, error)) {
    reason = "there is no such file";
    return std::nullopt;
  }
  if (!mayRead(file)) {
    reason = "it lies outside the folder of the model";
    return std::nullopt;
  }
  try {
    return readFile(file);
  } catch (const ReadError& readError) {
    reason = readError.what();
    return std::nullopt;
  }
}

bool ReadContext::mayRead(const fs::path& file) const {
  if (!mFolder) return false;
  return mOptions.readsAnywhere || isBelow(file, mFolder->empty() ? fs::path(".") : *mFolder);
}

}  // namespace facetbox
