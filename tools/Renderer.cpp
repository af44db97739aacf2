#include <tools/Renderer.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <vector>

#include <fmt/format.h>

namespace tool {
namespace {

constexpr float kNothing = std::numeric_limits<float>::infinity();

// What the ray through one point of the picture has hit.
struct Sample {
  float mDistance = kNothing;
  std::uint32_t mId = 0;
  float mNormal[3] = {};
  bool mIsLine = false;
};

Vector normalOf(const Sample& sample) { return {sample.mNormal[0], sample.mNormal[1], sample.mNormal[2]}; }

struct Rectangle {
  int mLeft, mTop, mRight, mBottom;  // the last two are outside

  int width() const { return mRight - mLeft; }
  int height() const { return mBottom - mTop; }
};

// The picture as samples, row by row from the top.
class SampleGrid {
 public:
  SampleGrid(const Scene& scene, const Camera& camera, int width, int height)
      : mScene(scene),
        mCamera(camera),
        mWidth(width),
        mHeight(height),
        mSamples(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
    // Vertices behind the eye are mirrored into the view volume, so objects that reach there are tested by every ray.
    for (const SceneEntry& entry : scene.entries()) {
      const Vector center = (entry.mMin + entry.mMax) * 0.5, half = entry.mMax - center;
      const Vector& f = camera.mForward;
      const double reach = std::fabs(f.x) * half.x + std::fabs(f.y) * half.y + std::fabs(f.z) * half.z;
      if (camera.depthOf(center) - reach < camera.mNear) mAlwaysTried.push_back(entry.mId);
    }
  }

  int width() const { return mWidth; }
  int height() const { return mHeight; }
  Sample& at(int x, int y) {
    return mSamples[static_cast<std::size_t>(y) * static_cast<std::size_t>(mWidth) + static_cast<std::size_t>(x)];
  }

  Vector directionTo(int x, int y) const { return mCamera.directionTo(acrossOf(x + 0.5), upOf(y + 0.5)); }
  // Convert between positions in the grid and positions in the picture.
  double acrossOf(double x) const { return 2 * x / mWidth - 1; }
  double upOf(double y) const { return 1 - 2 * y / mHeight; }
  double columnOf(double across) const { return (across + 1) / 2 * mWidth; }
  double rowOf(double up) const { return (1 - up) / 2 * mHeight; }

  // Casts a rectangle's rays at the objects in the volume behind it; splits the rectangle where there are many objects.
  void trace(const Rectangle& part) {
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
        at(x, y) = {static_cast<float>(hit->mDistance),
                    hit->mId,
                    {static_cast<float>(hit->mNormal.x), static_cast<float>(hit->mNormal.y),
                     static_cast<float>(hit->mNormal.z)},
                    false};
      }
    }
  }

 private:
  // A margin of half a sample keeps what rounding to floats would move out of the volume.
  std::vector<std::uint32_t> candidatesFor(const Rectangle& part) const {
    constexpr double kMargin = 0.5;
    const Window window{acrossOf(part.mLeft - kMargin), upOf(part.mBottom + kMargin), acrossOf(part.mRight + kMargin),
                        upOf(part.mTop - kMargin)};
    std::vector<std::uint32_t> found = mScene.idsIn(mCamera.matrixOf(window), false), ids;
    std::set_union(found.begin(), found.end(), mAlwaysTried.begin(), mAlwaysTried.end(), std::back_inserter(ids));
    return ids;
  }

  const Scene& mScene;
  const Camera& mCamera;
  int mWidth, mHeight;
  std::vector<Sample> mSamples;
  std::vector<std::uint32_t> mAlwaysTried;
};

// Marks the samples where edges of faces are visible.
class LineMarker {
 public:
  LineMarker(SampleGrid& grid, const Camera& camera) : mGrid(grid), mCamera(camera) {}

  void draw(const Vector& from, const Vector& to) {
    // Positions in the picture times depth, and the depth: these change linearly along the edge.
    const Vector a = projected(from), b = projected(to);
    double begin = 0, end = 1;
    for (const Vector& side : {Vector{1, 0, 1}, Vector{-1, 0, 1}, Vector{0, 1, 1}, Vector{0, -1, 1}})
      clip(dot(side, a), dot(side, b), begin, end);
    clip(a.z - mCamera.mNear, b.z - mCamera.mNear, begin, end);
    if (!(begin < end)) return;
    const Vector first = a + (b - a) * begin, last = a + (b - a) * end;
    const double x0 = mGrid.columnOf(first.x / first.z), y0 = mGrid.rowOf(first.y / first.z);
    const double x1 = mGrid.columnOf(last.x / last.z), y1 = mGrid.rowOf(last.y / last.z);
    const int steps = static_cast<int>(std::ceil(std::max(std::fabs(x1 - x0), std::fabs(y1 - y0)))) + 1;
    for (int i = 0; i <= steps; ++i) {
      const double part = static_cast<double>(i) / steps;
      // The inverse of depth changes linearly across the picture, depth itself does not.
      const double depth = 1 / ((1 - part) / first.z + part / last.z);
      markWhereSeen(x0 + (x1 - x0) * part, y0 + (y1 - y0) * part, depth);
    }
  }

 private:
  Vector projected(const Vector& p) const {
    const Vector v = p - mCamera.mEye;
    return {dot(v, mCamera.mRight) / mCamera.mTanX, dot(v, mCamera.mUp) / mCamera.mTanY, dot(v, mCamera.mForward)};
  }

  // Clips the way from 0 to 1 to the part where a linearly changing value is not negative.
  static void clip(double atStart, double atEnd, double& begin, double& end) {
    if (atStart < 0 && atEnd < 0) end = -1;
    if (atStart < 0 && atEnd >= 0) begin = std::max(begin, atStart / (atStart - atEnd));
    if (atStart >= 0 && atEnd < 0) end = std::min(end, atStart / (atStart - atEnd));
  }

  // A point of an edge is hidden when it lies behind the plane of the visible face, by more than the size of two
  // samples: the plane is that of the face at the sample's center.
  void markWhereSeen(double column, double row, double depth) {
    const int x = static_cast<int>(column), y = static_cast<int>(row);
    if (x < 0 || y < 0 || x >= mGrid.width() || y >= mGrid.height()) return;
    Sample& sample = mGrid.at(x, y);
    if (sample.mDistance < kNothing) {
      const Vector point = mCamera.directionTo(mGrid.acrossOf(column), mGrid.upOf(row)) * depth;
      const Vector ray = normalized(mGrid.directionTo(x, y));
      const Vector normal = normalOf(sample);
      const double behind = dot(point - ray * sample.mDistance, normal) * (dot(ray, normal) < 0 ? -1 : 1);
      if (behind > 4 * depth * mCamera.mTanY / mGrid.height()) return;
    }
    sample.mIsLine = true;
  }

  SampleGrid& mGrid;
  const Camera& mCamera;
};

void markEdges(SampleGrid& grid, const Scene& scene, const Camera& camera) {
  LineMarker marker(grid, camera);
  const FacePool& model = scene.model();
  const auto position = [&](std::size_t corner) { return scene.vertex(model.mIndices[corner]); };
  std::size_t begin = 0;
  for (const std::uint32_t count : model.mCounts) {
    const std::size_t end = begin + count;
    for (std::size_t corner = begin; count >= 3 && corner < end; ++corner)
      marker.draw(position(corner), position(corner + 1 < end ? corner + 1 : begin));
    begin = end;
  }
}

// Colors as numbers from 0 to 1.
constexpr Vector kPalette[] = {{0.62, 0.72, 0.84}, {0.72, 0.80, 0.55}, {0.86, 0.80, 0.58}, {0.66, 0.62, 0.82},
                               {0.52, 0.76, 0.74}, {0.80, 0.66, 0.78}, {0.58, 0.66, 0.60}, {0.50, 0.62, 0.86},
                               {0.84, 0.86, 0.70}, {0.70, 0.74, 0.78}, {0.44, 0.70, 0.56}};
constexpr Vector kBack{0.86, 0.36, 0.24};
constexpr Vector kLine{0.12, 0.14, 0.18};

class Shader {
 public:
  Shader(const Camera& camera, const RenderSettings& settings)
      : mColoring(settings.mColoring),
        mBackground{settings.mBackground[0] / 255.0, settings.mBackground[1] / 255.0, settings.mBackground[2] / 255.0},
        // Light from slightly above and left, so that faces at the same angle to the view still differ.
        mLight(normalized(camera.mUp * 0.35 - camera.mRight * 0.25 - camera.mForward)) {}

  Vector colorOf(const Sample& sample, const Vector& ray) const {
    if (sample.mIsLine) return kLine;
    if (!(sample.mDistance < kNothing)) return mBackground;
    const Vector normal = normalOf(sample);
    const bool isBack = dot(normal, ray) > 0;
    if (mColoring == Coloring::normals) {
      const Vector color = (normal + Vector{1, 1, 1}) * 0.5;
      return isBack ? color * 0.45 : color;
    }
    const double light = 0.4 + 0.6 * std::max(0.0, dot(isBack ? -normal : normal, mLight));
    return (isBack ? kBack : kPalette[(sample.mId - 1) % std::size(kPalette)]) * light;
  }

 private:
  Coloring mColoring;
  Vector mBackground, mLight;
};

std::uint8_t byteOf(double value) { return static_cast<std::uint8_t>(std::lround(255 * std::clamp(value, 0.0, 1.0))); }

}  // namespace

Picture render(const Scene& scene, const Camera& camera, const RenderSettings& settings, Progress& progress) {
  const int samples = settings.mSamples;
  SampleGrid grid(scene, camera, settings.mWidth * samples, settings.mHeight * samples);
  constexpr int kPart = 64;
  for (int top = 0; top < grid.height(); top += kPart) {
    progress.setStage(fmt::format("rendering: {} %", 100LL * top / grid.height()));
    for (int left = 0; left < grid.width(); left += kPart)
      grid.trace({left, top, std::min(left + kPart, grid.width()), std::min(top + kPart, grid.height())});
  }
  if (settings.mWireframe) {
    progress.setStage("drawing edges");
    markEdges(grid, scene, camera);
  }

  Picture picture{settings.mWidth, settings.mHeight, {}};
  picture.mPixels.reserve(std::size_t{3} * static_cast<std::size_t>(picture.mWidth) *
                          static_cast<std::size_t>(picture.mHeight));
  const Shader shader(camera, settings);
  for (int y = 0; y < grid.height(); y += samples) {
    for (int x = 0; x < grid.width(); x += samples) {
      Vector sum;
      for (int i = 0; i < samples * samples; ++i) {
        const int column = x + i % samples, row = y + i / samples;
        sum = sum + shader.colorOf(grid.at(column, row), grid.directionTo(column, row));
      }
      const Vector color = sum * (1.0 / (samples * samples));
      picture.mPixels.insert(picture.mPixels.end(), {byteOf(color.x), byteOf(color.y), byteOf(color.z)});
    }
  }
  return picture;
}

}  // namespace tool
