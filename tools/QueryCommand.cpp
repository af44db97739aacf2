#include <tools/QueryCommand.h>

#include <array>
#include <cstddef>
#include <span>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <facetbox/io/files.h>
#include <tools/CellPainter.h>
#include <tools/Errors.h>
#include <tools/FacePool.h>
#include <tools/Frame.h>
#include <tools/IntersectorHost.h>
#include <tools/ModelFile.h>
#include <tools/PngFile.h>
#include <tools/Printing.h>
#include <tools/Progress.h>

namespace tool {
namespace {

using nlohmann::ordered_json;

// The answer for one object. An empty text omits it.
struct Answer {
  ordered_json mFields;
  std::string mText;
};

std::string lineOf(const SceneEntry& entry) { return fmt::format("{:>6}  {}\n", entry.mId, entry.mName); }

class Questions {
 public:
  Questions(const QueryOptions& options, const Frame& frame, Progress& progress) : mOptions(options), mFrame(frame) {
    mEntries =
        frame.takeApart(shownInput(options.mModel), options.mGrouping, progress,
                        [&](const SceneEntry&, const util::Mesh& mesh, std::span<const float>) { mHost.add(mesh); });
  }

  /// @param ask  returns the answer for the object of an index in the host
  template <typename Ask>
  std::string answers(Ask ask) const {
    ordered_json json = ordered_json::array();
    std::string text;
    for (std::size_t i = 0; i < mEntries.size(); ++i) {
      const Answer answer = ask(i, mEntries[i]);
      text += answer.mText;
      if (!mOptions.mJson) continue;
      json.push_back({{"id", mEntries[i].mId}, {"name", mEntries[i].mName}});
      json.back().update(answer.mFields);
    }
    if (mOptions.mJson) return dumped(json);
    return text.empty() ? "nothing\n" : text;
  }

  std::string onMask(const Mask& mask, const std::array<float, 16>& matrix) const {
    return answers([&](std::size_t i, const SceneEntry& entry) {
      const bool isOn = mHost.isOnMask(i, matrix, mask);
      return Answer{{{"onMask", isOn}}, fmt::format("{:>6}  {}  {}\n", entry.mId, isOn ? "on " : "off", entry.mName)};
    });
  }

  std::string inVolume() const {
    const std::array<float, 16> matrix = matrixOf(mOptions.mView, mFrame);
    return answers([&](std::size_t i, const SceneEntry& entry) {
      const bool isIn = mHost.isInVolume(i, matrix, mOptions.mWholeInside);
      return Answer{{{mOptions.mWholeInside ? "inside" : "intersects", isIn}}, isIn ? lineOf(entry) : ""};
    });
  }

  std::string nearest() const {
    const std::array<float, 16> matrix = matrixOf(mOptions.mView, mFrame);
    const Ray view = viewDirection();
    return answers([&](std::size_t i, const SceneEntry& entry) {
      const auto found = mHost.nearestPoint(i, matrix, view.mOrigin, view.mDirection);
      if (!found) return Answer{{{"found", false}}, ""};
      const Vector point = toModel(found->mPoint);
      const double depth = dot(found->mPoint - view.mOrigin, view.mDirection) / mFrame.scale();
      const Vector a = toModel(found->mTriangle[0]), b = toModel(found->mTriangle[1]), c = toModel(found->mTriangle[2]);
      return Answer{
          {{"found", true},
           {"point", inFull(point)},
           {"depth", inFull(depth)},
           {"triangle", {inFull(a), inFull(b), inFull(c)}}},
          lineOf(entry) + fmt::format("        point     {}\n        depth     {}\n        triangle  {}, {}, {}\n",
                                      shown(point), shown(depth), shown(a), shown(b), shown(c))};
    });
  }

  std::string alongRay(const Ray& ray) const {
    const Vector direction = normalized(ray.mDirection);
    return answers([&](std::size_t i, const SceneEntry& entry) {
      const auto hit = mHost.hit(i, mFrame.toScene(ray.mOrigin), direction);
      if (!hit) return Answer{{{"hit", false}}, ""};
      const double distance = hit->mDistance / mFrame.scale();
      const Vector point = snapped(ray.mOrigin + direction * distance, mFrame.scale());
      return Answer{
          {{"hit", true}, {"distance", inFull(distance)}, {"point", inFull(point)}, {"normal", inFull(hit->mNormal)}},
          lineOf(entry) + fmt::format("        distance  {}\n        point     {}\n        normal    {}\n",
                                      shown(distance), shown(point), shown(hit->mNormal))};
    });
  }

 private:
  Vector toModel(const Vector& point) const { return snapped(mFrame.toModel(point), mFrame.scale()); }

  // The point of depth 0 and the unit direction along which depth is measured.
  Ray viewDirection() const {
    const ViewOptions& view = mOptions.mView;
    if (!view.mVolume) {
      const Camera camera(mFrame, view.mCamera, view.aspect());
      return {camera.mEye, camera.mForward};
    }
    const auto middleOf = [&](std::size_t first) {
      Vector sum;
      for (std::size_t k = first; k < first + 4; ++k) sum = sum + mFrame.toScene((*view.mVolume)[k]);
      return sum * 0.25;
    };
    return {middleOf(0), normalized(middleOf(4) - middleOf(0))};
  }

  const QueryOptions& mOptions;
  const Frame& mFrame;
  IntersectorHost mHost;
  std::vector<SceneEntry> mEntries;
};

void paint(const QueryOptions& options, const Frame& frame, Progress& progress, CellPainter& painter) {
  frame.takeApart(shownInput(options.mModel), options.mGrouping, progress,
                  [&](const SceneEntry&, const util::Mesh& mesh, std::span<const float> coordinates) {
                    painter.add(mesh, coordinates);
                  });
}

std::string answersFor(const QueryOptions& options, const Frame& frame, Progress& progress) {
  const Questions questions(options, frame, progress);
  if (options.mRay) return questions.alongRay(*options.mRay);
  return options.mWantsNearest ? questions.nearest() : questions.inVolume();
}

void checkWanted(const QueryOptions& options) {
  if (options.mRay && !(length(options.mRay->mDirection) > 0))
    throw InputError("--ray: has no direction; its last three numbers are 0");
  for (const std::string& path : {options.mOutput, options.mWriteMask})
    if (!path.empty()) checkPngName(path);
  constexpr long long kMostPixels = 1LL << 26;
  if (1LL * options.mView.mSize[0] * options.mView.mSize[1] > kMostPixels)
    throw InputError(fmt::format("--size: more than {} pixels; ask for a smaller picture", kMostPixels));
}

}  // namespace

void runQuery(const QueryOptions& given) {
  checkWanted(given);
  QueryOptions options = given;
  std::string text;
  {
    Progress progress;
    Mask mask;
    if (!options.mRaster.empty()) {
      progress.setStage("reading " + options.mRaster);
      mask = maskOf(parsePng(facetbox::readFile(options.mRaster), options.mRaster));
      options.mView.mSize = {mask.mWidth, mask.mHeight};
    }
    const FacePool model = poolOf(readAndSay(options.mModel, options.mFrom, progress), shownInput(options.mModel));
    const Frame frame(model);
    if (options.mWriteMask.empty() && options.mRaster.empty()) {
      text = answersFor(options, frame, progress);
    } else {
      const std::array<float, 16> matrix = matrixOf(options.mView, frame);
      CellPainter painter(matrix, options.mView.mSize[0], options.mView.mSize[1]);
      if (!options.mRaster.empty()) text = Questions(options, frame, progress).onMask(mask, matrix);
      if (!options.mWriteMask.empty() || !options.mOutput.empty()) paint(options, frame, progress, painter);
      if (!options.mWriteMask.empty()) facetbox::writeFile(options.mWriteMask, formatPng(painter.mask()));
      if (!options.mOutput.empty()) facetbox::writeFile(options.mOutput, formatPng(painter.verdict(mask)));
    }
  }
  print(text);
}

}  // namespace tool
