#include <tools/RenderCommand.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <facetbox/io/files.h>
#include <facetbox/io/readModel.h>
#include <tools/DefectPicture.h>
#include <tools/Errors.h>
#include <tools/Progress.h>
#include <tools/Scene.h>
#include <tools/Text.h>

namespace tool {
namespace {

void checkPicture(const RenderOptions& options) {
  checkPngName(options.mOutput);
  constexpr long long kMostSamples = 1LL << 26;
  const RenderSettings& settings = options.mSettings;
  if (1LL * settings.mSize[0] * settings.mSize[1] * settings.mSamples * settings.mSamples > kMostSamples)
    throw InputError(
        fmt::format("--size, --samples: more than {} rays; ask for a smaller picture or fewer samples", kMostSamples));
}

// What one model looks like.
struct View {
  Picture mPicture;
  DefectMarks mMarks;
  CameraOptions mCamera;  ///< sees the same of any other model
  std::size_t mFaceCount;
};

CameraOptions fixed(const CameraOptions& options, const Camera& camera, const Frame& frame) {
  CameraOptions result = options;
  if (!result.mLookAt) result.mLookAt = frame.toModel(camera.mEye + camera.mForward * camera.mFocus);
  if (!result.mEye) result.mEye = frame.toModel(camera.mEye);
  return result;
}

View viewOf(const std::string& path, const RenderOptions& options, const CameraOptions& cameraOptions,
            Progress& progress) {
  progress.setStage("reading " + path);
  const facetbox::Model model = facetbox::readModel(path);
  View view;
  FacePool pool = poolOf(model, path);
  view.mFaceCount = pool.faceCount();
  if (options.mDefects) {
    progress.setStage("looking for defects in " + path);
    view.mMarks = findDefects(model, options.mIntersections);
    pool = withDefectKinds(std::move(pool), view.mMarks);
  }
  const Scene scene(pool, path, options.mDefects ? Grouping::material : options.mGrouping, progress);
  const auto& [width, height] = options.mSettings.mSize;
  const Camera camera(scene, cameraOptions, static_cast<double>(width) / height);
  view.mPicture = render(scene, camera, options.mSettings, options.mDefects ? &view.mMarks : nullptr, progress);
  view.mCamera = fixed(cameraOptions, camera, scene);
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
  const auto nameOf = [](const std::string& path) { return std::filesystem::path(path).filename().string(); };
  if (nameOf(one) == nameOf(other)) return {one, other};
  return {nameOf(one), nameOf(other)};
}

Picture draw(const RenderOptions& options, Progress& progress) {
  const Color& background = options.mSettings.mBackground;
  const View view = viewOf(options.mModel, options, options.mCamera, progress);
  std::optional<View> other;
  if (!options.mOther.empty()) other = viewOf(options.mOther, options, view.mCamera, progress);

  const auto [name, otherName] = namesOf(options.mModel, options.mOther);
  const int entryWidth = std::max(legendEntryWidth(view.mMarks), other ? legendEntryWidth(other->mMarks) : 0);
  const auto framed = [&](const View& drawn, const std::string& caption) {
    std::vector<Picture> parts;
    if (other) parts.push_back(captionOf(caption, drawn, background));
    parts.push_back(drawn.mPicture);
    if (options.mDefects)
      parts.push_back(drawLegend(drawn.mMarks, drawn.mPicture.mWidth, entryWidth, options.mIntersections, background));
    return stacked(parts, background);
  };
  const Picture picture = framed(view, name);
  return other ? sideBySide(picture, framed(*other, otherName)) : picture;
}

}  // namespace

void runRender(const RenderOptions& options) {
  checkPicture(options);
  Progress progress;
  const Picture picture = draw(options, progress);
  progress.setStage("writing " + options.mOutput);
  facetbox::writeFile(options.mOutput, formatPng(picture));
}

}  // namespace tool
