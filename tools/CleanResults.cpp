#include <tools/CleanResults.h>

#include <fmt/format.h>

#include <tools/Errors.h>
#include <tools/Json.h>

namespace tool {
namespace {

using nlohmann::ordered_json;

template <typename Items>
void noteAll(const Items& items, CleanReport& report) {
  report.notes(items.size(), [&](std::size_t i) { return facetbox::describe(items[i]); });
}

void noteAll(const std::vector<std::string>& texts, CleanReport& report) {
  report.notes(texts.size(), [&](std::size_t i) { return texts[i]; });
}

std::string remarkOn(const Change& change) {
  if (change.mTurned > 0) return counted(change.mTurned, "face") + " turned";
  if (change.mInDifferentObjects == 0) return "";
  return fmt::format("{} more {} in different objects: --join", change.mInDifferentObjects,
                     change.mInDifferentObjects == 1 ? "lies" : "lie");
}

void requireRest(const Change& change, const std::string& text) {
  if (change.mAfter.mFaces == 0) throw RunError(text);
}

void printStep(const CleanedModel& cleaned, std::size_t step, CleanReport& report) {
  const Change& change = cleaned.mSteps[step];
  report.change(cleaned.mPlan.mLabels[step], change.mBefore, change.mAfter, change.mSeconds, remarkOn(change));
  if (change.mCollapsed > 0) report.note(counted(change.mCollapsed, "repeated corner") + " collapsed");
  noteAll(change.mDoubts, report);
  noteAll(change.mHoles, report);
}

ordered_json jsonOf(const Figures& figures) {
  return {{"vertices", figures.mVertices},
          {"faces", figures.mFaces},
          {"corners", figures.mCorners},
          {"holes", figures.mHoles},
          {"openEdges", figures.mOpenEdges},
          {"area", figures.mArea},
          {"volume", figures.mIsSolid ? ordered_json(figures.mVolume) : ordered_json()}};
}

ordered_json jsonOf(const std::vector<facetbox::DroppedHole>& holes) {
  ordered_json json = ordered_json::array();
  for (const facetbox::DroppedHole& hole : holes) json.push_back(tool::jsonOf(hole));
  return json;
}

template <typename Faces>
ordered_json facesJson(const Faces& faces) {
  ordered_json json = ordered_json::array();
  for (const auto& face : faces) json.push_back({{"face", face.face}, {"text", facetbox::describe(face)}});
  return json;
}

// "merge-vertices" of "--merge-vertices 0.1%".
std::string nameIn(const std::string& label) { return label.substr(2, label.find(' ') - 2); }

ordered_json stepJson(const CleanedModel& cleaned, std::size_t step) {
  const Change& change = cleaned.mSteps[step];
  const StepPlan& plan = cleaned.mPlan;
  const std::optional<double> value = valueOf(plan.mSteps[step]);
  ordered_json json = {{"step", plan.mLabels[step]}, {"name", nameIn(plan.mLabels[step])}};
  if (plan.mIsRelative[step])
    json["values"] = change.mValues;
  else
    json["value"] = value ? ordered_json(*value) : ordered_json();
  json.update({{"isRepeated", static_cast<bool>(plan.mIsRepeated[step])},
               {"seconds", change.mSeconds},
               {"before", jsonOf(change.mBefore)},
               {"after", jsonOf(change.mAfter)},
               {"facesTurned", change.mTurned},
               {"cornersCollapsed", change.mCollapsed},
               {"weldsInDifferentObjects", change.mInDifferentObjects},
               {"doubts", change.mDoubts},
               {"droppedHoles", jsonOf(change.mHoles)}});
  return json;
}

}  // namespace

void printResults(const CleanedModel& cleaned, const std::string& name, CleanReport& report) {
  const Change& input = cleaned.mInput;
  report.head();
  report.totals("before", input.mBefore);
  if (!input.mLeftOut.empty() || !input.mHoles.empty()) report.change("changes of input", input.mBefore, input.mAfter);
  noteAll(input.mLeftOut, report);
  noteAll(input.mHoles, report);
  requireRest(input, name + ": no face has three corners; no file is written");
  for (std::size_t step = 0; step < cleaned.mSteps.size(); ++step) {
    if (cleaned.mPlan.mIsRepeated[step] && cleaned.mSteps[step].isNothing()) continue;
    printStep(cleaned, step, report);
    requireRest(cleaned.mSteps[step],
                fmt::format("{}: {} leaves nothing of the model; no file is written, try a smaller value", name,
                            cleaned.mPlan.mLabels[step]));
  }
  report.totals("after", cleaned.mAfter);
  if (cleaned.mSteps.empty() && !cleaned.mIsTriangulated) report.note("no step given: the model is only copied");
  if (!cleaned.mIsTriangulated) return;
  report.totals("in triangles", cleaned.mTriangles.mAfter);
  noteAll(cleaned.mTriangles.mDoubts, report);
  noteAll(cleaned.mTriangles.mSkipped, report);
  requireRest(cleaned.mTriangles, name + ": --triangulate leaves nothing of the model; no file is written");
}

ordered_json jsonOf(const CleanedModel& cleaned) {
  ordered_json steps = ordered_json::array();
  for (std::size_t step = 0; step < cleaned.mSteps.size(); ++step) steps.push_back(stepJson(cleaned, step));
  ordered_json json = {{"before", jsonOf(cleaned.mInput.mBefore)},
                       {"input",
                        {{"after", jsonOf(cleaned.mInput.mAfter)},
                         {"leftOutFaces", facesJson(cleaned.mInput.mLeftOut)},
                         {"droppedHoles", jsonOf(cleaned.mInput.mHoles)}}},
                       {"steps", std::move(steps)},
                       {"after", jsonOf(cleaned.mAfter)}};
  if (cleaned.mIsTriangulated)
    json["triangles"] = {{"after", jsonOf(cleaned.mTriangles.mAfter)},
                         {"doubts", cleaned.mTriangles.mDoubts},
                         {"skippedFaces", facesJson(cleaned.mTriangles.mSkipped)}};
  return json;
}

}  // namespace tool
