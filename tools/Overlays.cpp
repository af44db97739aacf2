#include <tools/Overlays.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <utility>

#include <fmt/format.h>

#include <tools/LinePainter.h>
#include <tools/Text.h>

namespace tool {
namespace {

constexpr double kMargin = 12;

// A line that shows on any ground.
void paintInked(Picture& picture, double x0, double y0, double x1, double y1, const Color& ink, const Color& ground) {
  for (const auto& [width, color] : {std::pair(4.0, ground), std::pair(2.0, ink)}) {
    Coverage coverage(picture.mWidth, picture.mHeight);
    paintLine(coverage, x0, y0, x1, y1, width, [](double) { return 1.0; });
    coverage.blendInto(picture, color);
  }
}

}  // namespace

void paintAxes(Picture& picture, const Camera& camera, const Color& background) {
  struct Axis {
    char mName;
    Vector mDirection;
    Color mColor;
  };
  std::array<Axis, 3> axes = {Axis{'x', {1, 0, 0}, {213, 94, 0}}, Axis{'y', {0, 1, 0}, {0, 158, 115}},
                              Axis{'z', {0, 0, 1}, {0, 114, 178}}};
  // Those that point away from the viewer first.
  std::sort(axes.begin(), axes.end(), [&](const Axis& a, const Axis& b) {
    return dot(a.mDirection, camera.mForward) > dot(b.mDirection, camera.mForward);
  });
  constexpr double kLength = 28, kToName = kLength + 9;
  const double x = kMargin + kToName, y = picture.mHeight - kMargin - kToName;
  for (const Axis& axis : axes) {
    const double right = dot(axis.mDirection, camera.mRight), down = -dot(axis.mDirection, camera.mUp);
    paintInked(picture, x, y, x + right * kLength, y + down * kLength, axis.mColor, background);
    drawText(picture, static_cast<int>(std::lround(x + right * kToName - kCharacterWidth / 2.0)),
             static_cast<int>(std::lround(y + down * kToName - kCharacterHeight / 2.0)), std::string(1, axis.mName),
             inkOn(background), 1);
  }
}

double roundLengthBelow(double length) {
  const double power = std::pow(10, std::floor(std::log10(length)));
  for (const double digit : {5.0, 2.0})
    if (digit * power <= length) return digit * power;
  return power;
}

void paintScaleBar(Picture& picture, const Camera& camera, double scale, const Color& background) {
  // Pixels of a unit of the model at the point looked at.
  const double unit = scale / (2 * camera.mFocus * camera.mTanX) * picture.mWidth;
  const double length = roundLengthBelow(picture.mWidth / 4.0 / unit);
  const double right = picture.mWidth - kMargin, left = right - length * unit, y = picture.mHeight - kMargin;
  const Color ink = inkOn(background);
  for (const double end : {left, right}) paintInked(picture, end, y - 4, end, y + 4, ink, background);
  paintInked(picture, left, y, right, y, ink, background);
  const std::string text = fmt::format("{:g}", length);
  drawText(picture, static_cast<int>(std::lround((left + right - widthOf(text, 1)) / 2)),
           static_cast<int>(y) - 6 - kCharacterHeight, text, ink, 1);
}

}  // namespace tool
