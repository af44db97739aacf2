#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <facetbox/io/Notes.h>
#include <facetbox/io/readModel.h>

namespace facetbox {

/// What a reader needs besides the bytes of its file.
class ReadContext {
 public:
  /// @param folder  of the model; empty where no file beside it may be read
  ReadContext(std::string name, std::optional<std::filesystem::path> folder, const ReadOptions& options)
      : mName(std::move(name)), mFolder(std::move(folder)), mOptions(options) {}

  const std::string& name() const { return mName; }

  [[noreturn]] void fail(const std::string& what) const;
  [[noreturn]] void failAtLine(std::size_t line, const std::string& what) const;
  [[noreturn]] void failAtByte(std::size_t byte, const std::string& what) const;

  /// Call it often; it is quick. Throws Cancelled where the caller wants that.
  void poll() {
    if (mOptions.cancel && ++mPolls % 4096 == 0) pollNow();
  }
  void pollNow() const;

  /// The bytes of a file that the model names, relative to the model. Nothing where there is none, where it may not be
  /// read, or where none beside the model is read; `reason` then says which.
  std::optional<std::string> readBeside(const std::string& reference, std::string& reason) const;

  /// Whether an existing file may be opened: it lies in the model's folder or below, or any may be read.
  bool mayRead(const std::filesystem::path& file) const;

  Notes& notes() { return mNotes; }
  /// Text ends behind a number. Nobody can tell whether digits or more are missing, or only the line end.
  void noteMissingLineEnd() { mNotes.add("line end of the last line, which may be cut short"); }

  /// What releaseBytes() is to do.
  void whenBytesAreRead(std::function<void()> release) { mRelease = std::move(release); }
  /// The reader needs the bytes no longer; they may be gone after this.
  void releaseBytes() {
    if (mRelease) mRelease();
  }

 private:
  std::string mName;
  std::optional<std::filesystem::path> mFolder;
  const ReadOptions& mOptions;
  Notes mNotes;
  std::function<void()> mRelease;
  unsigned mPolls = 0;
};

}  // namespace facetbox
