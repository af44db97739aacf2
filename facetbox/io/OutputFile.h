#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace facetbox {

/// A file that appears under its name only when it is complete; special files such as pipes are written directly.
/// A file that is replaced keeps its mode, and a symbolic link stays one.
class OutputFile {
 public:
  /// @throws WriteError
  explicit OutputFile(const std::filesystem::path& path);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();  ///< without commit(): nothing was written

  void append(std::string_view bytes);
  void commit();

 private:
  void openTemporary();

  std::string mPath;       // as the caller gave it, for messages
  std::string mTarget;     // behind symbolic links
  std::string mTemporary;  // empty for special files
  int mDescriptor = -1;
  int mSlot = -1;
};

}  // namespace facetbox
