#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>
#include <tools/Errors.h>

namespace tool {

namespace fs = std::filesystem;
using facetbox::Format;
using facetbox::kNone;
using facetbox::Model;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// A model in memory as a file.
inline std::string textOf(const Model& model, Format format) {
  std::string text;
  facetbox::writeModel(model, format, [&text](std::string_view bytes) { text += bytes; });
  return text;
}

inline Model parseObj(const std::string& text) { return facetbox::parseModel(text, Format::obj, "t.obj"); }

inline std::string readText(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// A folder that goes with the test.
class TestFolder {
 public:
  TestFolder() {
    std::string pattern = (fs::temp_directory_path() / "facetbox-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    mPath = pattern;
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder() {
    std::error_code ignored;
    fs::remove_all(mPath, ignored);
  }

  std::string path(const std::string& name) const { return (mPath / name).string(); }
  std::string write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
    return path(name);
  }
  /// Names of all files, dot files included.
  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(mPath)) names.push_back(entry.path().filename().string());
    return names;
  }

 private:
  fs::path mPath;
};

struct RunResult {
  int mExitCode;
  std::string mOut, mErr;
};

inline std::string quoted(const std::string& text) { return "'" + text + "'"; }

/// Runs the program with arguments for the shell; `before` are shell commands that run first.
inline RunResult runProgram(const std::string& arguments, const std::string& before = "") {
  const TestFolder folder;
  const std::string command = "exec </dev/null; " + before + quoted(FACETBOX_PROGRAM) + " " + arguments + " >" +
                              quoted(folder.path("out")) + " 2>" + quoted(folder.path("err"));
  const int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readText(folder.path("out")), readText(folder.path("err"))};
}

inline constexpr const char* kTetrahedron = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf 1 3 2\nf 1 2 4\nf 2 3 4\nf 3 1 4\n";

}  // namespace tool
