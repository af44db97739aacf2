#include <tools/CheckCommand.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <tools/Batch.h>
#include <tools/CleanReport.h>
#include <tools/Join.h>
#include <tools/Json.h>
#include <tools/ModelFile.h>
#include <tools/Printing.h>
#include <tools/Progress.h>

namespace tool {
namespace {

using nlohmann::ordered_json;

std::string numbersText(const std::string& what, const std::vector<std::uint32_t>& numbers) {
  constexpr std::size_t kMost = 8;
  std::string text = what + (numbers.size() == 1 ? " " : "s ");
  for (std::size_t i = 0; i < std::min(kMost, numbers.size()); ++i)
    text += (i > 0 ? ", " : "") + std::to_string(numbers[i]);
  return numbers.size() > kMost ? text + ", ..." : text;
}

std::string verticesText(const Place& place, std::size_t begin, std::size_t end) {
  constexpr std::size_t kMost = 4;
  std::string text = end - begin == 1 ? "vertex " : "vertices ";
  for (std::size_t i = begin; i < std::min(begin + kMost, end); ++i) {
    const double* const p = place.mPoints[i];
    text += fmt::format("{}{} ({}, {}, {})", i > begin ? ", " : "", place.mVertices[i], p[0], p[1], p[2]);
  }
  return end - begin > kMost ? text + ", ..." : text;
}

std::string placeText(DefectKind kind, const Place& place) {
  if (place.mHole) return facetbox::describe(*place.mHole);
  const std::vector<std::uint32_t>& faces = place.mFaces;
  switch (kind) {
    case DefectKind::doubleFaces:
      return fmt::format("face {} repeats face {}", faces[1], faces[0]);
    case DefectKind::selfIntersections:
      return faces[0] == faces[1] ? fmt::format("face {} crosses itself", faces[0])
                                  : fmt::format("faces {} and {}", faces[0], faces[1]);
    case DefectKind::tCorners:
      return fmt::format("{}: {} on the edge between {}", numbersText("face", faces), verticesText(place, 0, 1),
                         verticesText(place, 1, 3));
    default:
      break;
  }
  const std::string vertices = place.mVertices.empty() ? "no corners" : verticesText(place, 0, place.mVertices.size());
  return faces.empty() ? vertices : numbersText("face", faces) + ": " + vertices;
}

class Check {
 public:
  Check(const CheckOptions& options, const std::string& name) : mOptions(options), mName(name) {
    Progress progress;
    facetbox::Model model = readInput(name, options.mFrom, progress);
    for (const facetbox::Object& object : model.objects) mObjects.push_back(object.name);
    if (options.mJoin)
      mJoined.emplace(std::move(model));
    else
      mModel = std::move(model);
    progress.begin(Stage::working, "checking " + shownInput(name));
    mChecked = checkModel(this->model(), mJoined ? &*mJoined : nullptr, options.mWhat);
    for (const DefectList& list : mChecked.mLists) (isAllowed(list) ? mAllowed : mDefects) += list.mCount;
  }

  Outcome outcome() const {
    Outcome outcome;
    outcome.mCode = mDefects > 0 ? kExitDefects : kExitOk;
    outcome.mSummary = summary();
    if (mOptions.mJson)
      outcome.mJson = json();
    else
      print(text());
    return outcome;
  }

 private:
  const facetbox::Model& model() const { return mJoined ? mJoined->model() : mModel; }

  bool isAllowed(const DefectList& list) const { return std::ranges::count(mOptions.mAllowed, list.mKind) > 0; }

  std::string summary() const {
    std::string text = mDefects == 0 ? "no defects" : counted(mDefects, "defect");
    return mAllowed == 0 ? text : text + fmt::format(", and {} allowed", mAllowed);
  }

  std::string objectText(std::uint32_t number) const {
    if (mObjects.size() < 2) return "";
    const std::string& name = mObjects[number];
    return name.empty() ? fmt::format("object {}, ", number + 1) : fmt::format("object '{}', ", name);
  }

  std::string text() const {
    std::string text = fmt::format("{}: {}\n", shownInput(mName), summary());
    if (!model().notes.empty()) text += fmt::format("  note: skipped in the file: {}\n", listed(model().notes));
    for (const DefectList& list : mChecked.mLists) {
      if (list.mCount == 0) continue;
      text += fmt::format("  {:<34} {:>12}{}{}\n", namesOf(list.mKind).mLabel, list.mCount,
                          list.mIsCounted ? "" : " or more", isAllowed(list) ? "  (allowed)" : "");
      for (const Place& place : list.mPlaces)
        text += "    " + (mOptions.mJoin && place.mFaces.empty() ? "" : objectText(place.mObject)) +
                placeText(list.mKind, place) + "\n";
      if (list.mPlaces.size() < list.mCount)
        text += fmt::format("    and {} more\n", list.mCount - list.mPlaces.size());
    }
    return text;
  }

  ordered_json placeJson(const Place& place) const {
    ordered_json json;
    if (!mOptions.mJoin || !place.mFaces.empty()) json["object"] = place.mObject + 1;
    if (!place.mFaces.empty()) json["faces"] = place.mFaces;
    if (!place.mVertices.empty()) json["vertices"] = place.mVertices;
    for (const double* const point : place.mPoints) json["points"].push_back({point[0], point[1], point[2]});
    if (place.mHole) json.update(jsonOf(*place.mHole));
    return json;
  }

  ordered_json json() const {
    ordered_json lists = ordered_json::object();
    for (const DefectList& list : mChecked.mLists) {
      ordered_json places = ordered_json::array();
      for (const Place& place : list.mPlaces) places.push_back(placeJson(place));
      lists[namesOf(list.mKind).mKey] = {{"count", list.mCount},
                                         {"isCounted", list.mIsCounted},
                                         {"isAllowed", isAllowed(list)},
                                         {"places", std::move(places)}};
    }
    return {{"file", mName},
            {"objects", mObjects},
            {"isJoined", mOptions.mJoin},
            {"vertices", mChecked.mVertices},
            {"faces", mChecked.mFaces},
            {"components", mChecked.mComponents},
            {"isClosed", mChecked.mIsClosed},
            {"isOriented", mChecked.mIsOriented},
            {"area", mChecked.mArea},
            {"volume", mChecked.mIsClosed && mChecked.mIsOriented ? ordered_json(mChecked.mVolume) : ordered_json()},
            {"defectCount", mDefects},
            {"allowedCount", mAllowed},
            {"defects", std::move(lists)},
            {"passedOver", jsonOf(model().notes)},
            {"exitCode", static_cast<int>(mDefects > 0 ? kExitDefects : kExitOk)}};
  }

  const CheckOptions& mOptions;
  const std::string& mName;
  std::vector<std::string> mObjects;
  facetbox::Model mModel;
  std::optional<Joined> mJoined;
  CheckedModel mChecked;
  std::size_t mDefects = 0, mAllowed = 0;
};

}  // namespace

ExitCode runCheck(const CheckOptions& options) {
  checkInputs(options.mModels, options.mFrom);
  return runOnEach({options.mModels, options.mJson, stdout},
                   [&options](const std::string& name) { return Check(options, name).outcome(); });
}

}  // namespace tool
