#include <tools/RenderCommand.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <tools/Batch.h>
#include <tools/DefectPicture.h>
#include <tools/Errors.h>
#include <tools/Json.h>
#include <tools/ModelFile.h>
#include <tools/Progress.h>
#include <tools/RenderReport.h>
#include <tools/Scene.h>
#include <tools/Text.h>

namespace tool {
namespace {

void checkPicture(const RenderOptions& options) {
  checkInputs(options.mOther.empty() ? std::vector{options.mModel} : std::vector{options.mModel, options.mOther},
              options.mFrom);
  if (!isStream(options.mOutput)) checkPngName(options.mOutput);
  constexpr long long kMostSamples = 1LL << 26;
  const RenderSettings& settings = options.mSettings;
  if (1LL * settings.mSize[0] * settings.mSize[1] * settings.mSamples * settings.mSamples > kMostSamples)
    throw InputError(
        fmt::format("--size, --samples: more than {} rays; ask for a smaller picture or fewer samples", kMostSamples));
}

// What one model looks like.
struct View {
  Picture mPicture = {};
  CameraOptions mCamera = {};  ///< sees the same of any other model
  std::size_t mFaceCount = 0;  ///< in the file
  DrawnModel mModel = {};

  const DefectMarks* marks() const { return mModel.mMarks ? &*mModel.mMarks : nullptr; }
};

CameraOptions fixed(const CameraOptions& options, const Camera& camera, const Frame& frame) {
  CameraOptions result = options;
  if (!result.mLookAt) result.mLookAt = frame.toModel(camera.mEye + camera.mForward * camera.mFocus);
  if (!result.mEye) result.mEye = frame.toModel(camera.mEye);
  return result;
}

View viewOf(const std::string& path, const RenderOptions& options, const CameraOptions& cameraOptions,
            Progress& progress) {
  const std::string name = shownInput(path);
  const facetbox::Model model =
      options.mJson ? readInput(path, options.mFrom, progress) : readAndSay(path, options.mFrom, progress);
  progress.begin(Stage::working, "examining " + name);
  FacePool pool = poolOf(model, name);
  View view{.mFaceCount = pool.faceCount(), .mModel = {.mName = path, .mNotes = model.notes}};
  if (options.mDefects) {
    progress.setStage("looking for defects in " + name);
    view.mModel.mMarks = findDefects(model, options.mIntersections);
    view.mModel.mIntersections = options.mIntersections;
    pool = withDefectKinds(std::move(pool), *view.mModel.mMarks);
  }
  const Scene scene(pool, name, options.mDefects ? Grouping::material : options.mGrouping, progress);
  const auto& [width, height] = options.mSettings.mSize;
  const Camera camera(scene, cameraOptions, static_cast<double>(width) / height);
  view.mPicture = render(scene, camera, options.mSettings, view.marks(), progress);
  view.mCamera = fixed(cameraOptions, camera, scene);
  if (options.mJson) view.mModel.mCounts = countDrawn(scene, name, progress);
  return view;
}

constexpr int kSpacing = 4;

Picture captionOf(const std::string& name, const View& view, const Color& background) {
  const int width = view.mPicture.mWidth;
  Picture caption = Picture::filled(width, kCharacterHeight + 2 * kSpacing, background);
  const std::string text =
      shortened(fmt::format("{}: {} {}", name, view.mFaceCount, view.mFaceCount == 1 ? "face" : "faces"), width, 1);
  drawText(caption, (width - widthOf(text, 1)) / 2, kSpacing, text, inkOn(background), 1);
  return caption;
}

Picture stacked(const std::vector<Picture>& parts, const Color& background) {
  int height = 0, top = 0;
  for (const Picture& part : parts) height += part.mHeight;
  Picture whole = Picture::filled(parts.front().mWidth, height, background);
  for (const Picture& part : parts) {
    whole.place(part, 0, top);
    top += part.mHeight;
  }
  return whole;
}

Picture sideBySide(const Picture& left, const Picture& right) {
  constexpr Color kBetween{128, 128, 128};
  Picture whole = Picture::filled(left.mWidth + kSpacing + right.mWidth, left.mHeight, kBetween);
  whole.place(left, 0, 0);
  whole.place(right, left.mWidth + kSpacing, 0);
  return whole;
}

// The names of two files, with their folders where these alone make the difference.
std::pair<std::string, std::string> namesOf(const std::string& one, const std::string& other) {
  const auto nameOf = [](const std::string& path) {
    return std::filesystem::path(shownInput(path)).filename().string();
  };
  if (nameOf(one) == nameOf(other)) return {one, other};
  return {nameOf(one), nameOf(other)};
}

Picture compose(const RenderOptions& options, const View& view, const std::optional<View>& other) {
  const Color& background = options.mSettings.mBackground;
  const auto [name, otherName] = namesOf(options.mModel, options.mOther);
  int entryWidth = 0;
  for (const View* const each : {&view, other ? &*other : nullptr})
    if (each && each->marks()) entryWidth = std::max(entryWidth, legendEntryWidth(*each->marks()));
  const auto framed = [&](const View& drawn, const std::string& caption) {
    std::vector<Picture> parts;
    if (other) parts.push_back(captionOf(caption, drawn, background));
    parts.push_back(drawn.mPicture);
    if (drawn.marks())
      parts.push_back(
          drawLegend(*drawn.marks(), drawn.mPicture.mWidth, entryWidth, options.mIntersections, background));
    return stacked(parts, background);
  };
  const Picture picture = framed(view, name);
  return other ? sideBySide(picture, framed(*other, otherName)) : picture;
}

Outcome draw(const RenderOptions& options) {
  Progress progress;
  const View view = viewOf(options.mModel, options, options.mCamera, progress);
  std::optional<View> other;
  if (!options.mOther.empty()) other = viewOf(options.mOther, options, view.mCamera, progress);
  const Picture picture = compose(options, view, other);
  progress.begin(Stage::writing, "writing " + shownOutput(options.mOutput));
  writeBytes(options.mOutput, formatPng(picture));
  if (!options.mJson) return {};
  auto models = nlohmann::ordered_json::array({jsonOf(view.mModel)});
  if (other) models.push_back(jsonOf(other->mModel));
  return {.mJson = {{"file", options.mModel},
                    {"output", options.mOutput},
                    {"width", picture.mWidth},
                    {"height", picture.mHeight},
                    {"camera", jsonOf(view.mCamera)},
                    {"models", std::move(models)},
                    {"seconds", jsonOf(progress.seconds(), "drawing")}}};
}

}  // namespace

ExitCode runRender(const RenderOptions& options) {
  checkPicture(options);
  std::FILE* const stream = isStream(options.mOutput) ? stderr : stdout;
  return runOnEach({{options.mModel}, options.mJson, stream}, [&](const std::string&) { return draw(options); });
}

}  // namespace tool
