#include <tools/ModelFile.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <fmt/format.h>
#include <unistd.h>

#include <facetbox/io/files.h>
#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>
#include <tools/Errors.h>
#include <tools/Progress.h>

namespace tool {
namespace {

using facetbox::Format;

bool isStandard(const std::string& name) { return name == kStandardStream; }

std::string readStandardInput() {
  std::string bytes;
  std::size_t have = 0;
  while (true) {
    if (have == bytes.size()) bytes.resize(std::max(bytes.size() * 2, std::size_t{1} << 20));
    const ssize_t got = read(STDIN_FILENO, bytes.data() + have, bytes.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw InputError(fmt::format("standard input: cannot be read: {}", systemErrorText(errno)));
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

void writeStandardOutput(const std::string& bytes) {
  const bool isWritten = std::fwrite(bytes.data(), 1, bytes.size(), stdout) == bytes.size() && std::fflush(stdout) == 0;
  if (!isWritten) throw RunError(fmt::format("standard output: cannot be written: {}", systemErrorText(errno)));
}

}  // namespace

std::string shownInput(const std::string& name) { return isStandard(name) ? "standard input" : name; }

std::string shownOutput(const std::string& name) { return isStandard(name) ? "standard output" : name; }

facetbox::Model readInput(const std::string& name, std::optional<Format> from, Progress& progress) {
  checkInputs({name}, from);
  progress.begin(Stage::reading, "reading " + shownInput(name));
  if (isStandard(name)) return facetbox::parseModel(readStandardInput(), *from, shownInput(name));
  return facetbox::readModel(name, {.format = from});
}

facetbox::Model readAndSay(const std::string& name, std::optional<Format> from, Progress& progress) {
  facetbox::Model model = readInput(name, from, progress);
  progress.begin(Stage::working, "examining " + shownInput(name));
  if (model.notes.empty()) return model;
  progress.clearLine();
  complain(fmt::format("skipped in {}: {}", shownInput(name), listed(model.notes)).c_str());
  return model;
}

std::vector<facetbox::Note> writeOutput(const facetbox::Model& model, const std::string& name,
                                        std::optional<Format> to) {
  const Format format = outputFormat(name, to);
  if (!isStandard(name)) return facetbox::writeModel(model, name, {.format = format});
  std::string bytes;
  const auto notes = facetbox::writeModel(model, format, [&bytes](std::string_view piece) { bytes.append(piece); });
  writeStandardOutput(bytes);
  return notes;
}

void writeBytes(const std::string& name, const std::string& bytes) {
  if (isStandard(name))
    writeStandardOutput(bytes);
  else
    facetbox::writeFile(name, bytes);
}

bool isStream(const std::string& name) { return isStandard(name) || facetbox::isSpecialFile(name); }

void checkInputs(const std::vector<std::string>& names, std::optional<Format> from) {
  const auto count = std::count_if(names.begin(), names.end(), isStandard);
  if (count > 0 && !from)
    throw InputError("standard input: has no name that tells its format; add --from, such as --from obj");
  if (count > 1) throw InputError("standard input: can be read only once, but '-' is given several times");
}

facetbox::Format outputFormat(const std::string& name, std::optional<Format> to) {
  if (to) return *to;
  if (isStandard(name))
    throw InputError("standard output: has no name that tells its format; add --to, such as --to obj");
  if (facetbox::isSpecialFile(name)) return Format::obj;
  const std::optional<Format> format = facetbox::formatOf(name);
  if (!format)
    throw InputError(
        fmt::format("{}: the name of the output must end in .obj, .ply, .off, .stl, .gltf, .glb or .json; "
                    "no other format can be written. For another name, add --to",
                    name));
  return *format;
}

void checkOutput(const std::string& name, std::optional<Format> to) {
  outputFormat(name, to);
  if (!isStream(name)) facetbox::checkWritable(name);
}

std::string listed(std::vector<facetbox::Note> notes) {
  constexpr std::size_t kMost = 8;
  std::stable_sort(notes.begin(), notes.end(), [](const auto& a, const auto& b) { return a.count > b.count; });
  std::string text;
  for (std::size_t i = 0; i < std::min(kMost, notes.size()); ++i)
    text += fmt::format("{}{} x {}", i == 0 ? "" : ", ", notes[i].count, notes[i].what);
  if (notes.size() > kMost) text += fmt::format(" and {} other things", notes.size() - kMost);
  return text;
}

}  // namespace tool
