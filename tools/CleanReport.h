#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <facetbox/clean.h>
#include <tools/Progress.h>

namespace tool {

/// What the report shows of a mesh, or of several together.
struct Figures {
  long long mVertices = 0, mFaces = 0, mCorners = 0, mHoles = 0, mOpenEdges = 0;
  double mArea = 0, mVolume = 0;
  bool mIsSolid = true;  ///< all are closed and oriented, so that there is a volume

  friend bool operator==(const Figures&, const Figures&) = default;

  /// Adds a mesh. One without faces counts as gone.
  void add(const facetbox::Counts& counts, const facetbox::Measures& measures);
};

/// Such as "1 edge", "2 edges".
std::string counted(std::size_t count, const std::string& what);

/// What a mesh consists of, faces of fewer than three corners included.
facetbox::Counts countsOf(const facetbox::MeshView& mesh);

/// What a user should look at after a change of a mesh, such as "3 more open edges; it was closed before".
/// @param last  the measures of the result: edges that a later change closes again are no matter
/// @param step  that has made the change; null for triangulation
std::vector<std::string> doubtsAbout(const facetbox::Measures& before, const facetbox::Measures& after,
                                     const facetbox::Measures& last, const facetbox::Step* step);

/// A table of what a clean-up does, line by line.
class CleanReport {
 public:
  /// @param stream  null: nothing is printed
  CleanReport(std::FILE* stream, Progress& progress) : mStream(stream), mProgress(progress) {}

  void head();
  void totals(const std::string& label, const Figures& figures);
  /// A volume that becomes known is shown without a sign, one that is lost as "-".
  /// @param remark  stands behind the line
  void change(const std::string& label, const Figures& before, const Figures& after, std::optional<double> seconds = {},
              const std::string& remark = "");
  void note(const std::string& text);
  /// The first few of `count` notes.
  void notes(std::size_t count, const std::function<std::string(std::size_t)>& textOf);
  void line(const std::string& text) { print(text); }
  void flush() {
    if (mStream) std::fflush(mStream);
  }

 private:
  void print(const std::string& line);

  std::FILE* mStream;
  Progress& mProgress;
};

}  // namespace tool
