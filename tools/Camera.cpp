#include <tools/Camera.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numbers>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {
namespace {

// The center of what is visible: between the outermost vertices to the right and left, above and below.
Vector middleInView(const Frame& scene, const Camera& camera) {
  double right[2] = {2, -2}, up[2] = {2, -2};
  for (const std::uint32_t index : scene.model().mIndices) {
    const Vector p = scene.vertex(index);
    const double x = dot(p, camera.mRight), y = dot(p, camera.mUp);
    right[0] = std::min(right[0], x);
    right[1] = std::max(right[1], x);
    up[0] = std::min(up[0], y);
    up[1] = std::max(up[1], y);
  }
  return camera.mRight * ((right[0] + right[1]) / 2) + camera.mUp * ((up[0] + up[1]) / 2);
}

// The least distance from the point looked at from which every vertex is in the picture.
double fittingDistance(const Frame& scene, const Camera& camera, const Vector& lookAt) {
  double distance = 0;
  for (const std::uint32_t index : scene.model().mIndices) {
    const Vector p = scene.vertex(index) - lookAt;
    const double side =
        std::max(std::fabs(dot(p, camera.mRight)) / camera.mTanX, std::fabs(dot(p, camera.mUp)) / camera.mTanY);
    distance = std::max(distance, side - dot(p, camera.mForward));
  }
  constexpr double kMargin = 1.06;
  return std::max(distance * kMargin, 0.01);
}

// Looks from the right, above and in front, for any up direction.
Vector defaultForward(const Vector& up) {
  const Vector axis = std::fabs(up.x) < 0.9 ? Vector{1, 0, 0} : Vector{0, 1, 0};
  const Vector right = normalized(axis - up * dot(axis, up));
  return -normalized(right * 0.55 + up * 0.5 + cross(right, up));
}

// Solves a x = b, where three vectors are the columns of `a`. False if they lie in one plane.
bool solve(const Vector& a0, const Vector& a1, const Vector& a2, const Vector& b, double (&x)[3]) {
  const double determinant = dot(a0, cross(a1, a2));
  x[0] = dot(b, cross(a1, a2)) / determinant;
  x[1] = dot(b, cross(a2, a0)) / determinant;
  x[2] = dot(b, cross(a0, a1)) / determinant;
  const double scale = length(a0) * length(a1) * length(a2);
  return std::fabs(determinant) > 1e-9 * scale;
}

}  // namespace

Camera::Camera(const Frame& scene, const CameraOptions& options, double aspect) {
  mTanY = std::tan(options.mFieldOfView * std::numbers::pi / 360);
  mTanX = mTanY * aspect;
  Vector lookAt = options.mLookAt ? scene.toScene(*options.mLookAt) : Vector{};
  if (!(length(options.mUp) > 0)) throw InputError("--up: has no direction");
  const Vector up = normalized(options.mUp);
  if (options.mEye) {
    mEye = scene.toScene(*options.mEye);
    if (!(length(lookAt - mEye) > 0)) throw InputError("--eye: equals the point looked at; move one of them");
    mForward = normalized(lookAt - mEye);
  } else {
    mForward = defaultForward(up);
  }
  mRight = cross(mForward, up);
  if (!(length(mRight) > 1e-6)) throw InputError("--up: is parallel to the view direction; give another direction");
  mRight = normalized(mRight);
  mUp = cross(mRight, mForward);
  if (!options.mEye) {
    if (!options.mLookAt) lookAt = middleInView(scene, *this);
    mEye = lookAt - mForward * fittingDistance(scene, *this, lookAt);
  }

  mFocus = depthOf(lookAt);

  // The planes keep a distance from the scene, so that rounding to floats does not move them into it.
  const Vector& half = scene.halfSize();
  const double reach = std::fabs(mForward.x) * half.x + std::fabs(mForward.y) * half.y + std::fabs(mForward.z) * half.z;
  const double middle = depthOf({});
  mNear = std::max(0.5 * (middle - reach), 1e-3);
  mFar = std::max(2 * (middle + reach), 10 * mNear);
}

std::array<float, 16> Camera::matrixOf(const Window& window) const {
  const double halfX = (window.mRight - window.mLeft) / 2, middleX = (window.mRight + window.mLeft) / 2;
  const double halfY = (window.mTop - window.mBottom) / 2, middleY = (window.mTop + window.mBottom) / 2;
  const double depthRange = mFar - mNear;
  // A point p becomes (x, y, z, w) with w its depth: rows are directions that p - eye is multiplied by, and a constant.
  const Vector rows[4] = {(mRight * (1 / mTanX) - mForward * middleX) * (1 / halfX),
                          (mUp * (1 / mTanY) - mForward * middleY) * (1 / halfY),
                          mForward * ((mFar + mNear) / depthRange), mForward};
  const double constants[4] = {0, 0, -2 * mFar * mNear / depthRange, 0};
  std::array<float, 16> matrix{};
  for (std::size_t row = 0; row < 4; ++row) {
    matrix[row] = static_cast<float>(rows[row].x);
    matrix[4 + row] = static_cast<float>(rows[row].y);
    matrix[8 + row] = static_cast<float>(rows[row].z);
    matrix[12 + row] = static_cast<float>(constants[row] - dot(rows[row], mEye));
  }
  return matrix;
}

std::array<float, 16> matrixOf(const ViewOptions& options, const Frame& frame) {
  if (options.mVolume) {
    std::array<Vector, 8> corners = *options.mVolume;
    for (Vector& corner : corners) corner = frame.toScene(corner);
    return matrixOfCorners(corners, "--volume");
  }
  const auto& [left, top, right, bottom] = options.mWindow;
  if (!(left < right && top < bottom))
    throw InputError(
        "--window: is empty; give the left, upper, right and lower side, from 0,0,1,1 for all of the picture");
  return Camera(frame, options.mCamera, options.aspect())
      .matrixOf({2 * left - 1, 1 - 2 * bottom, 2 * right - 1, 1 - 2 * top});
}

std::array<float, 16> matrixOfCorners(const std::array<Vector, 8>& corners, const std::string& option) {
  const auto fail = [&] {
    throw InputError(
        fmt::format("{}: the corners are not those of a block or a frustum; corners 1 to 4 go around the near "
                    "face, 5 to 8 lie behind them in the same order",
                    option));
  };
  // The cube's corners h, with a fourth coordinate of 1, come from the volume's by a matrix that is known when five of
  // them, no four in a plane, are: corner 0, its neighbors 1, 3 and 4, and the opposite one, 6. In coordinates
  // along the three edges at corner 0, these are 0, the units and g, and a map that leaves the first four in place up
  // to factors makes (a, b, c) of (x, y, z) by a = x u / s, where s = 1 + (u - 1) x + (v - 1) y + (w - 1) z.
  const Vector edges[3] = {corners[1] - corners[0], corners[3] - corners[0], corners[4] - corners[0]};
  double g[3];
  if (!solve(edges[0], edges[1], edges[2], corners[6] - corners[0], g)) fail();
  // g must go to (1, 1, 1): u g0 = v g1 = w g2 = s.
  const double d = g[0] + g[1] + g[2] - 1;
  if (!(d > 0 && g[0] > 0 && g[1] > 0 && g[2] > 0)) fail();
  const double s = d / 2;
  const double factors[3] = {s / g[0], s / g[1], s / g[2]};

  Vector inverse[3];  // rows: a point's coordinates along the edges
  const double determinant = dot(edges[0], cross(edges[1], edges[2]));
  inverse[0] = cross(edges[1], edges[2]) * (1 / determinant);
  inverse[1] = cross(edges[2], edges[0]) * (1 / determinant);
  inverse[2] = cross(edges[0], edges[1]) * (1 / determinant);
  Vector last;
  for (int i = 0; i < 3; ++i) last = last + inverse[i] * (factors[i] - 1);
  const double lastConstant = 1 - dot(last, corners[0]);

  double rows[4][4];
  for (int i = 0; i < 3; ++i) {
    // From 0 to 1 onto -1 to 1.
    const Vector row = inverse[i] * (2 * factors[i]) - last;
    const double constant = -2 * factors[i] * dot(inverse[i], corners[0]) - lastConstant;
    const double values[4] = {row.x, row.y, row.z, constant};
    std::copy_n(values, 4, rows[i]);
  }
  const double values[4] = {last.x, last.y, last.z, lastConstant};
  std::copy_n(values, 4, rows[3]);

  constexpr int kCube[8][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                               {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
  const auto apply = [&](const double(&row)[4], const Vector& p) {
    return row[0] * p.x + row[1] * p.y + row[2] * p.z + row[3];
  };
  for (std::size_t corner = 0; corner < 8; ++corner) {
    const double w = apply(rows[3], corners[corner]);
    for (int i = 0; i < 3; ++i) {
      constexpr double kTolerance = 1e-3;
      if (!(w > 0 && std::fabs(apply(rows[i], corners[corner]) / w - kCube[corner][i]) < kTolerance)) fail();
    }
  }
  std::array<float, 16> matrix{};
  for (std::size_t i = 0; i < 16; ++i) matrix[i] = static_cast<float>(rows[i % 4][i / 4]);
  return matrix;
}

}  // namespace tool
