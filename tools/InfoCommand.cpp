#include <tools/InfoCommand.h>

#include <cstdio>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/Batch.h>
#include <tools/CleanReport.h>
#include <tools/Json.h>
#include <tools/ModelFile.h>
#include <tools/Printing.h>
#include <tools/Progress.h>

namespace tool {
namespace {

// One defect, as named by the table and by JSON.
struct Defect {
  const char* mLabel;
  const char* mKey;
  std::size_t MeshFacts::*mCount;
};

constexpr Defect kDefects[] = {
    {"faces with fewer than 3 corners", "illegalFaces", &MeshFacts::mIllegalFaces},
    {"faces that repeat a vertex", "repeatingFaces", &MeshFacts::mRepeatingFaces},
    {"faces of zero area", "zeroAreaFaces", &MeshFacts::mZeroAreaFaces},
    {"  or nearly zero", "nearlyZeroAreaFaces", &MeshFacts::mNearlyZeroAreaFaces},
    {"edges of zero length", "zeroLengthEdges", &MeshFacts::mZeroLengthEdges},
    {"edges used once", "borderEdges", &MeshFacts::mBorderEdges},
    {"edges used more than twice", "overusedEdges", &MeshFacts::mOverusedEdges},
    {"edges used twice in one direction", "sameDirectionEdges", &MeshFacts::mSameDirectionEdges},
    {"faces that repeat another face", "doubleFaces", &MeshFacts::mDoubleFaces},
    {"vertices at the same position", "duplicateVertices", &MeshFacts::mDuplicateVertices},
    {"  or within 0.0001 diagonals", "nearlyDuplicateVertices", &MeshFacts::mNearlyDuplicateVertices},
    {"holes that are none", "badHoles", &MeshFacts::mBadHoles},
    {"vertices that no face uses", "unusedVertices", &MeshFacts::mUnusedVertices},
};

constexpr std::size_t kMaterialsShown = 12;
constexpr std::size_t kCornerCountsShown = 10;

class Table {
 public:
  void head(const std::string& text) { mText += text + "\n"; }
  void row(const std::string& label, const std::string& value) {
    mText += fmt::format("  {:<34} {:>12}\n", label, value);
  }
  void row(const std::string& label, std::size_t value) { row(label, std::to_string(value)); }
  void wide(const std::string& label, const std::string& value) { mText += fmt::format("  {:<20} {}\n", label, value); }
  const std::string& text() const { return mText; }

 private:
  std::string mText;
};

std::string histogramText(const MeshFacts& facts) {
  std::string text;
  std::size_t shown = 0;
  for (const auto& [corners, faces] : facts.mFacesByCorners) {
    if (++shown == kCornerCountsShown && facts.mFacesByCorners.size() > kCornerCountsShown) {
      const auto& [most, facesOfMost] = *facts.mFacesByCorners.rbegin();
      return text + fmt::format(" ... {}: {}", most, facesOfMost);
    }
    text += fmt::format("{}{}: {}", text.empty() ? "" : ", ", corners, faces);
  }
  return text;
}

std::string vectorText(const std::array<double, 3>& v) { return fmt::format("({}, {}, {})", v[0], v[1], v[2]); }

}  // namespace

std::string formatFacts(const std::string& name, const facetbox::Model& model, const MeshFacts& facts) {
  Table table;
  table.head(name);
  table.row("objects", model.objects.size());
  table.row("vertices", facts.mVertices);
  table.row("faces", facts.mFaces);
  table.row("corners", facts.mCorners);
  table.row("texture coordinates", facts.mTexCoords);
  table.row("materials", facts.mFacesByMaterial.size());
  table.row("  in runs of faces", facts.mMaterialRuns);
  table.row("faces with holes", facts.mHoleGroups);
  table.row("  hole faces in them", facts.mHoleFaces);
  table.wide("corners per face", histogramText(facts));
  table.wide("bounding box", vectorText(facts.mMin) + " to " + vectorText(facts.mMax));
  table.wide("  diagonal", fmt::format("{:.6g}", facts.mDiagonal));
  table.wide("area", fmt::format("{:.6g}", facts.mArea));
  table.wide("volume", facts.mIsSolid ? fmt::format("{:.6g}", facts.mVolume) : "-");
  if (!facts.mFacesByMaterial.empty()) table.head("faces by material");
  for (std::size_t i = 0; i < facts.mFacesByMaterial.size(); ++i) {
    if (i == kMaterialsShown && facts.mFacesByMaterial.size() > kMaterialsShown + 1) {
      table.head(fmt::format("  ... and {} more materials", facts.mFacesByMaterial.size() - i));
      break;
    }
    table.row(facts.mFacesByMaterial[i].first, facts.mFacesByMaterial[i].second);
  }
  table.head("defects");
  for (const Defect& defect : kDefects) table.row(defect.mLabel, facts.*defect.mCount);
  if (!model.notes.empty()) table.head("skipped in the file");
  for (const facetbox::Note& note : model.notes) table.row(note.what, note.count);
  return table.text();
}

nlohmann::ordered_json factsAsJson(const std::string& name, const facetbox::Model& model, const MeshFacts& facts) {
  using nlohmann::ordered_json;
  ordered_json materials = ordered_json::array(), corners = ordered_json::object(), defects, objects;
  for (const auto& [material, faces] : facts.mFacesByMaterial)
    materials.push_back({{"name", material}, {"faces", faces}});
  for (const auto& [count, faces] : facts.mFacesByCorners) corners[std::to_string(count)] = faces;
  for (const Defect& defect : kDefects) defects[defect.mKey] = facts.*defect.mCount;
  for (const facetbox::Object& object : model.objects) objects.push_back(object.name);
  return {
      {"file", name},
      {"objects", objects},
      {"vertices", facts.mVertices},
      {"faces", facts.mFaces},
      {"corners", facts.mCorners},
      {"textureCoordinates", facts.mTexCoords},
      {"facesByCorners", corners},
      {"boundingBox", {{"min", facts.mMin}, {"max", facts.mMax}, {"diagonal", facts.mDiagonal}}},
      {"area", facts.mArea},
      {"volume", facts.mIsSolid ? ordered_json(facts.mVolume) : ordered_json()},
      {"materials", materials},
      {"materialRuns", facts.mMaterialRuns},
      {"facesWithHoles", facts.mHoleGroups},
      {"holeFaces", facts.mHoleFaces},
      {"defects", defects},
      {"passedOver", jsonOf(model.notes)},
  };
}

ExitCode runInfo(const InfoOptions& options) {
  checkInputs(options.mModels, options.mFrom);
  return runOnEach({options.mModels, options.mJson, stdout}, [&options](const std::string& name) {
    Outcome outcome;
    std::string text;
    {
      Progress progress;
      const facetbox::Model model = readInput(name, options.mFrom, progress);
      progress.begin(Stage::working, "examining " + shownInput(name));
      const MeshFacts facts = gatherFacts(model);
      outcome.mSummary = counted(facts.mFaces, "face");
      if (options.mJson)
        outcome.mJson = factsAsJson(name, model, facts);
      else
        text = formatFacts(shownInput(name), model, facts);
    }
    print(text);
    return outcome;
  });
}

}  // namespace tool
