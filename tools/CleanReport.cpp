#include <tools/CleanReport.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <variant>

#include <fmt/format.h>

namespace tool {
namespace {

constexpr std::size_t kMostNotes = 8;

using Cells = std::array<std::string, 8>;

std::string lineOf(const std::string& label, const Cells& cells) {
  std::string line = fmt::format("{:<30} {:>9} {:>9} {:>10} {:>7} {:>10} {:>12} {:>12} {:>9}", label, cells[0],
                                 cells[1], cells[2], cells[3], cells[4], cells[5], cells[6], cells[7]);
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string shown(double value) { return fmt::format("{:.6g}", value + 0.0); }

std::string changeOf(long long before, long long after) {
  return before == after ? "." : fmt::format("{:+}", after - before);
}

// Less than half of the last digit that totals show is no change.
std::string changeOf(double before, double after) {
  constexpr double kInvisible = 5e-7;
  // Infinite areas have no difference.
  const bool isSame =
      before == after || std::fabs(after - before) <= kInvisible * std::max(std::fabs(before), std::fabs(after));
  return isSame ? "." : fmt::format("{:+.4g}", after - before);
}

std::string volumeChange(const Figures& before, const Figures& after) {
  if (!after.mIsSolid) return before.mIsSolid ? "-" : ".";
  return before.mIsSolid ? changeOf(before.mVolume, after.mVolume) : shown(after.mVolume);
}

double relativeChange(double before, double after) {
  return before == after ? 0 : (after - before) / std::max(std::fabs(before), 1e-300);
}

}  // namespace

void Figures::add(const facetbox::Counts& counts, const facetbox::Measures& measures) {
  if (counts.faces == 0) return;
  mVertices += static_cast<long long>(counts.vertices);
  mFaces += static_cast<long long>(counts.faces);
  mCorners += static_cast<long long>(counts.corners);
  mHoles += static_cast<long long>(counts.holes);
  mOpenEdges += static_cast<long long>(measures.openEdges);
  mArea += measures.area;
  mVolume += measures.volume;
  mIsSolid = mIsSolid && measures.isClosed && measures.isOriented;
}

std::string counted(std::size_t count, const std::string& what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

facetbox::Counts countsOf(const facetbox::MeshView& mesh) {
  const auto groups = static_cast<std::size_t>(std::count(mesh.holes.begin(), mesh.holes.end(), facetbox::kNone));
  return {.vertices = mesh.points.size() / 3,
          .faces = mesh.counts.size(),
          .corners = mesh.indices.size(),
          .holes = mesh.holes.size() - 2 * groups};
}

std::vector<std::string> doubtsAbout(const facetbox::Measures& before, const facetbox::Measures& after,
                                     const facetbox::Measures& last, const facetbox::Step* step) {
  constexpr double kMuch = 0.01;
  std::vector<std::string> doubts;
  if (after.openEdges > before.openEdges && last.openEdges > before.openEdges)
    doubts.push_back(counted(after.openEdges - before.openEdges, "more open edge") +
                     (before.isClosed ? "; it was closed before" : ""));
  else if (before.isClosed && !after.isClosed && !last.isClosed && after.openEdges == 0)
    doubts.push_back("no longer closed: an edge has more than two faces");
  // These two are for taking area away.
  const bool isToLoseArea = step && (std::holds_alternative<facetbox::RemoveDoubleFaces>(*step) ||
                                     std::holds_alternative<facetbox::RemoveZeroFaces>(*step));
  const double growth = relativeChange(before.area, after.area);
  // What a face that is not flat encloses is less than its triangles have, and no measure for them.
  if (!step && growth > kMuch) {
    doubts.push_back(fmt::format("not flat: its triangles have {:.3g} % more area than its faces", 100 * growth));
    return doubts;
  }
  if (!isToLoseArea && std::fabs(growth) > kMuch)
    doubts.push_back(fmt::format("the area changes by {:+.3g} %", 100 * growth));
  const auto isSolid = [](const facetbox::Measures& m) { return m.isClosed && m.isOriented; };
  if (isSolid(before) && isSolid(after)) {
    const double change = relativeChange(std::fabs(before.volume), std::fabs(after.volume));
    if (std::fabs(change) > kMuch) doubts.push_back(fmt::format("the volume changes by {:+.3g} %", 100 * change));
    if (before.volume > 0 && after.volume < 0) doubts.push_back("turned inside out");
  }
  return doubts;
}

void CleanReport::head() {
  print(lineOf("", {"vertices", "faces", "corners", "holes", "open edges", "area", "volume", "ms"}));
}

void CleanReport::totals(const std::string& label, const Figures& figures) {
  const auto count = [](long long value) { return std::to_string(value); };
  print(lineOf(label,
               {count(figures.mVertices), count(figures.mFaces), count(figures.mCorners), count(figures.mHoles),
                count(figures.mOpenEdges), shown(figures.mArea), figures.mIsSolid ? shown(figures.mVolume) : "-", ""}));
}

void CleanReport::change(const std::string& label, const Figures& before, const Figures& after,
                         std::optional<double> seconds, const std::string& remark) {
  const std::string line =
      lineOf(label, {changeOf(before.mVertices, after.mVertices), changeOf(before.mFaces, after.mFaces),
                     changeOf(before.mCorners, after.mCorners), changeOf(before.mHoles, after.mHoles),
                     changeOf(before.mOpenEdges, after.mOpenEdges), changeOf(before.mArea, after.mArea),
                     volumeChange(before, after), seconds ? fmt::format("{:.1f}", 1000 * *seconds) : ""});
  print(remark.empty() ? line : line + "  " + remark);
}

void CleanReport::note(const std::string& text) { print("  note: " + text); }

void CleanReport::notes(std::size_t count, const std::function<std::string(std::size_t)>& textOf) {
  if (!mStream) return;
  for (std::size_t i = 0; i < std::min(count, kMostNotes); ++i) note(textOf(i));
  if (count > kMostNotes) note(fmt::format("and {} more of this kind", count - kMostNotes));
}

void CleanReport::print(const std::string& line) {
  if (!mStream) return;
  mProgress.clearLine();
  fmt::print(mStream, "{}\n", line);
}

}  // namespace tool
