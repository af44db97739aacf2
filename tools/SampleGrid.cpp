#include <tools/SampleGrid.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include <fmt/format.h>

namespace tool {

struct SampleGrid::Rectangle {
  int mLeft, mTop, mRight, mBottom;  // the last two are outside

  int width() const { return mRight - mLeft; }
  int height() const { return mBottom - mTop; }
};

SampleGrid::SampleGrid(const Scene& scene, const Camera& camera, int width, int height, int perPixel,
                       Progress& progress)
    : mScene(scene),
      mCamera(camera),
      mPerPixel(perPixel),
      mWidth(width * perPixel),
      mHeight(height * perPixel),
      mSamples(indexOf(0, mHeight)) {
  // Vertices behind the eye are mirrored into the view volume, so objects that reach there are tested by every ray.
  for (const SceneEntry& entry : scene.entries()) {
    const Vector center = (entry.mMin + entry.mMax) * 0.5, half = entry.mMax - center;
    const Vector& f = camera.mForward;
    const double reach = std::fabs(f.x) * half.x + std::fabs(f.y) * half.y + std::fabs(f.z) * half.z;
    if (camera.depthOf(center) - reach < camera.mNear) mAlwaysTried.push_back(entry.mId);
  }
  constexpr int kPart = 64;
  for (int top = 0; top < mHeight; top += kPart) {
    progress.setStage(fmt::format("rendering: {} %", 100LL * top / mHeight));
    for (int left = 0; left < mWidth; left += kPart)
      trace({left, top, std::min(left + kPart, mWidth), std::min(top + kPart, mHeight)});
  }
}

// Casts a rectangle's rays at the objects in the volume behind it; splits the rectangle where there are many objects.
void SampleGrid::trace(const Rectangle& part) {
  const std::vector<std::uint32_t> ids = candidatesFor(part);
  if (ids.empty()) return;
  constexpr std::size_t kFew = 4;
  constexpr int kSmall = 4;
  if (ids.size() > kFew && std::max(part.width(), part.height()) > kSmall) {
    Rectangle first = part, second = part;
    if (part.width() > part.height())
      first.mRight = second.mLeft = part.mLeft + part.width() / 2;
    else
      first.mBottom = second.mTop = part.mTop + part.height() / 2;
    trace(first);
    trace(second);
    return;
  }
  for (int y = part.mTop; y < part.mBottom; ++y) {
    for (int x = part.mLeft; x < part.mRight; ++x) {
      const auto hit = mScene.firstHit(mCamera.mEye, normalized(directionTo(x, y)), ids);
      if (!hit) continue;
      mSamples[indexOf(x, y)] = {
          static_cast<float>(hit->mDistance),
          hit->mId,
          {static_cast<float>(hit->mNormal.x), static_cast<float>(hit->mNormal.y), static_cast<float>(hit->mNormal.z)}};
    }
  }
}

// A margin of half a sample keeps what rounding to floats would move out of the volume.
std::vector<std::uint32_t> SampleGrid::candidatesFor(const Rectangle& part) const {
  constexpr double kMargin = 0.5;
  const Window window{acrossOf(part.mLeft - kMargin), upOf(part.mBottom + kMargin), acrossOf(part.mRight + kMargin),
                      upOf(part.mTop - kMargin)};
  std::vector<std::uint32_t> found = mScene.idsIn(mCamera.matrixOf(window), false), ids;
  std::set_union(found.begin(), found.end(), mAlwaysTried.begin(), mAlwaysTried.end(), std::back_inserter(ids));
  return ids;
}

}  // namespace tool
