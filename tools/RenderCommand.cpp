#include <tools/RenderCommand.h>

#include <fmt/format.h>

#include <facetbox/io/files.h>
#include <facetbox/io/readModel.h>
#include <tools/Errors.h>
#include <tools/Progress.h>
#include <tools/Scene.h>

namespace tool {
namespace {

void checkPicture(const RenderOptions& options) {
  checkPngName(options.mOutput);
  constexpr long long kMostSamples = 1LL << 26;
  const RenderSettings& settings = options.mSettings;
  if (1LL * settings.mWidth * settings.mHeight * settings.mSamples * settings.mSamples > kMostSamples)
    throw InputError(
        fmt::format("--size, --samples: more than {} rays; ask for a smaller picture or fewer samples", kMostSamples));
}

}  // namespace

void runRender(const RenderOptions& options) {
  checkPicture(options);
  Progress progress;
  progress.setStage("reading " + options.mModel);
  const FacePool model = poolOf(facetbox::readModel(options.mModel), options.mModel);
  const Scene scene(model, options.mModel, options.mGrouping, progress);
  const Camera camera(scene, options.mCamera,
                      static_cast<double>(options.mSettings.mWidth) / options.mSettings.mHeight);
  const Picture picture = render(scene, camera, options.mSettings, progress);
  progress.setStage("writing " + options.mOutput);
  facetbox::writeFile(options.mOutput, formatPng(picture));
}

}  // namespace tool
