#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <facetbox/io/Notes.h>
#include <facetbox/io/Output.h>
#include <facetbox/io/OutputFile.h>

namespace facetbox {

/// What a writer writes to.
class WriteContext {
 public:
  /// @param path  of the file; nothing where no file beside it can be written
  /// @param isText  whether text is wanted of formats that have bytes too
  WriteContext(std::optional<std::filesystem::path> path, const Output::Sink& sink, bool isText = false)
      : mPath(std::move(path)), mOutput(sink), mIsText(isText) {}

  bool isText() const { return mIsText; }
  [[noreturn]] void fail(const std::string& what) const;

  Output& output() { return mOutput; }
  Notes& notes() { return mNotes; }

  /// The model's own name without folder and ending; "" where there is none.
  std::string stem() const { return mPath ? mPath->stem().string() : ""; }

  /// Writes a file into the model's folder. It appears with the model.
  /// @param name  without a folder
  /// @return false where no file beside the model can be written
  bool writeBeside(const std::string& name, std::string_view bytes);

  /// The model is complete: what stands beside it appears.
  void commitBeside();

 private:
  std::optional<std::filesystem::path> mPath;
  Output mOutput;
  Notes mNotes;
  bool mIsText;
  std::vector<std::unique_ptr<OutputFile>> mBeside;
};

}  // namespace facetbox
