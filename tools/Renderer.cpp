#include <tools/Renderer.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include <tools/DefectPicture.h>
#include <tools/LinePainter.h>
#include <tools/Overlays.h>
#include <tools/SampleGrid.h>

namespace tool {
namespace {

// Colors as numbers from 0 to 1.
constexpr Vector kPalette[] = {{0.62, 0.72, 0.84}, {0.72, 0.80, 0.55}, {0.86, 0.80, 0.58}, {0.66, 0.62, 0.82},
                               {0.52, 0.76, 0.74}, {0.80, 0.66, 0.78}, {0.58, 0.66, 0.60}, {0.50, 0.62, 0.86},
                               {0.84, 0.86, 0.70}, {0.70, 0.74, 0.78}, {0.44, 0.70, 0.56}};
constexpr Vector kBack{0.86, 0.36, 0.24};
constexpr Color kEdge{31, 36, 46};

Vector vectorOf(const Color& color) { return Vector{color[0] * 1.0, color[1] * 1.0, color[2] * 1.0} * (1 / 255.0); }

class Shader {
 public:
  Shader(const Camera& camera, const RenderSettings& settings)
      : mColoring(settings.mColoring),
        mBackground(vectorOf(settings.mBackground)),
        // Light from slightly above and left, so that faces at the same angle to the view still differ.
        mLight(normalized(camera.mUp * 0.35 - camera.mRight * 0.25 - camera.mForward)) {}

  Vector colorOf(const Sample& sample, const Vector& ray) const {
    if (!sample.isHit()) return mBackground;
    const Vector normal = sample.normal();
    const bool isBack = dot(normal, ray) > 0;
    if (mColoring == Coloring::normals) {
      const Vector color = (normal + Vector{1, 1, 1}) * 0.5;
      return isBack ? color * 0.45 : color;
    }
    const double brightness = std::max(0.0, dot(isBack ? -normal : normal, mLight));
    if (mColoring == Coloring::defects) return vectorOf(faceColorOf(sample.mId, isBack)) * (0.72 + 0.28 * brightness);
    return (isBack ? kBack : kPalette[(sample.mId - 1) % std::size(kPalette)]) * (0.4 + 0.6 * brightness);
  }

 private:
  Coloring mColoring;
  Vector mBackground, mLight;
};

std::uint8_t byteOf(double value) { return static_cast<std::uint8_t>(std::lround(255 * std::clamp(value, 0.0, 1.0))); }

// The mean of the samples of each pixel.
Picture shaded(const SampleGrid& grid, const Shader& shader, const std::array<int, 2>& size) {
  Picture picture = Picture::filled(size[0], size[1], {});
  const int n = grid.perPixel();
  for (int y = 0; y < picture.mHeight; ++y) {
    for (int x = 0; x < picture.mWidth; ++x) {
      Vector sum;
      for (int i = 0; i < n * n; ++i) {
        const int column = x * n + i % n, row = y * n + i / n;
        sum = sum + shader.colorOf(grid.at(column, row), grid.directionTo(column, row));
      }
      const Vector color = sum * (1.0 / (n * n));
      const std::uint8_t bytes[] = {byteOf(color.x), byteOf(color.y), byteOf(color.z)};
      std::copy(std::begin(bytes), std::end(bytes), picture.pixel(x, y));
    }
  }
  return picture;
}

void paintAllEdges(Coverage& coverage, const LinePainter& painter, const Frame& scene) {
  const FacePool& model = scene.model();
  const auto position = [&](std::size_t corner) { return scene.vertex(model.mIndices[corner]); };
  std::size_t begin = 0;
  for (const std::uint32_t count : model.mCounts) {
    const std::size_t end = begin + count;
    for (std::size_t corner = begin; count >= 3 && corner < end; ++corner)
      painter.paintEdge(coverage, position(corner), position(corner + 1 < end ? corner + 1 : begin), 1);
    begin = end;
  }
}

}  // namespace

Picture render(const Scene& scene, const Camera& camera, const RenderSettings& settings, const DefectMarks* defects,
               Progress& progress) {
  const auto& [width, height] = settings.mSize;
  const SampleGrid grid(scene, camera, width, height, settings.mSamples, progress);
  Picture picture = shaded(grid, Shader(camera, settings), settings.mSize);
  if (settings.mWireframe) {
    progress.setStage("drawing edges");
    Coverage coverage(width, height);
    paintAllEdges(coverage, LinePainter(grid, camera, 0), scene);
    coverage.blendInto(picture, defects ? kDimEdge : kEdge);
  }
  if (defects) {
    progress.setStage("drawing defects");
    paintDefects(picture, *defects, scene, grid, camera);
  }
  if (settings.mAxes) paintAxes(picture, camera, settings.mBackground);
  if (settings.mScaleBar) paintScaleBar(picture, camera, scene.scale(), settings.mBackground);
  return picture;
}

}  // namespace tool
