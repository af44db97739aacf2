#include <facetbox/scene/ViewVolume.h>

#include <algorithm>
#include <cstddef>

namespace util {

ViewVolume::ViewVolume(const facetbox::Matrix& viewProjection, const Placement* placement)
    : mMatrix(viewProjection), mPlacement(placement) {
  static constexpr Vec3 kIdentity[3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
  const Vec3* rows = placement != nullptr ? placement->rows() : kIdentity;
  const Vec3 translation = placement != nullptr ? placement->translation() : Vec3{0, 0, 0};
  for (std::size_t r = 0; r < 4; ++r) {
    const double m[3] = {mMatrix[r], mMatrix[4 + r], mMatrix[8 + r]};
    const auto combined = [&](double x, double y, double z, double& sum, double& size) {
      sum = m[0] * x + m[1] * y + m[2] * z;
      size = std::fabs(m[0] * x) + std::fabs(m[1] * y) + std::fabs(m[2] * z);
    };
    combined(rows[0].x, rows[1].x, rows[2].x, mRows[r][0], mSizes[r][0]);
    combined(rows[0].y, rows[1].y, rows[2].y, mRows[r][1], mSizes[r][1]);
    combined(rows[0].z, rows[1].z, rows[2].z, mRows[r][2], mSizes[r][2]);
    combined(translation.x, translation.y, translation.z, mRows[r][3], mSizes[r][3]);
    mRows[r][3] += mMatrix[12 + r];
    mSizes[r][3] += std::fabs(mMatrix[12 + r]);
  }
}

VolumeSide ViewVolume::sideOf(const Box& box) const {
  // Of the sums here and of those in place(): some twenty roundings.
  constexpr double kRounding = 0x1p-46;
  const Vec3 center = 0.5 * (box.min + box.max), half = 0.5 * (box.max - box.min);
  const Vec3 farthest{std::fabs(center.x) + half.x, std::fabs(center.y) + half.y, std::fabs(center.z) + half.z};
  double middle[4], slack[4];
  for (int r = 0; r < 4; ++r) {
    middle[r] = mRows[r][0] * center.x + mRows[r][1] * center.y + mRows[r][2] * center.z + mRows[r][3];
    slack[r] =
        kRounding * (mSizes[r][0] * farthest.x + mSizes[r][1] * farthest.y + mSizes[r][2] * farthest.z + mSizes[r][3]);
  }
  bool isInside = true;
  for (int plane = 0; plane < kPlanes; ++plane) {
    const int r = plane / 2;
    const double sign = plane % 2 == 0 ? -1 : 1;
    const auto along = [&](int axis, double size) { return std::fabs(mRows[3][axis] + sign * mRows[r][axis]) * size; };
    const double value = middle[3] + sign * middle[r];
    const double reach = along(0, half.x) + along(1, half.y) + along(2, half.z);
    const double margin = slack[3] + slack[r];
    if (value + reach < -margin) return VolumeSide::outside;
    isInside = isInside && value - reach > margin;
  }
  return isInside ? VolumeSide::inside : VolumeSide::unsure;
}

bool touchesVolume(const ClipPoint (&corners)[3]) {
  for (const ClipPoint& corner : corners)
    if (corner.isInside()) return true;
  // Each plane adds a corner at most.
  ClipPoint polygon[3 + ViewVolume::kPlanes], cut[3 + ViewVolume::kPlanes];
  std::copy_n(corners, 3, polygon);
  int count = 3;
  for (int plane = 0; plane < ViewVolume::kPlanes; ++plane) {
    int kept = 0;
    for (int i = 0; i < count; ++i) {
      const ClipPoint &p = polygon[i], &next = polygon[i + 1 < count ? i + 1 : 0];
      const double here = planeAt(plane, p), there = planeAt(plane, next);
      if (here >= 0) cut[kept++] = p;
      if ((here > 0 && there < 0) || (here < 0 && there > 0)) {
        const double share = here / (here - there);
        cut[kept++] = {p.x + share * (next.x - p.x), p.y + share * (next.y - p.y), p.z + share * (next.z - p.z),
                       p.w + share * (next.w - p.w)};
      }
    }
    count = kept;
    if (count == 0) return false;
    std::copy_n(cut, count, polygon);
  }
  return std::any_of(polygon, polygon + count, [](const ClipPoint& p) { return p.w > 0; });
}

}  // namespace util
