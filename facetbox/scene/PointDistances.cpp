#include <facetbox/scene/PointDistances.h>

#include <algorithm>
#include <cmath>

#include <facetbox/math/Rounding.h>

namespace util {

UnitPoint::UnitPoint(const Vec3& point, Instructions instructions)
    : mData{{}, {}, {point.x, point.y, point.z}}, mFunctions(&kPointDistancesBase) {
#if defined(FACETBOX_HAS_AVX2)
  if (mayUseAvx2(instructions)) mFunctions = &kPointDistancesAvx2;
#else
  static_cast<void>(instructions);
#endif
  // Beyond this the boxes look nearer than they are, which does no harm.
  constexpr double kFar = 1e15;
  for (int a = 0; a < 3; ++a) {
    const double inCube = std::clamp(mData.at[a], -1.0, 1.0), beyond = std::fabs(mData.at[a] - inCube);
    mData.inCube[a] = static_cast<float>(inCube);
    mData.twiceBeyond[a] = static_cast<float>(2 * std::min(beyond, kFar));
    mCubeDistanceSq += beyond * beyond;
  }
}

float UnitPoint::excessLimit(double distance) const {
  constexpr double kMove = 1.75 * 0x1p-25, kRounding = 0x1p-20, kSumRounding = 8 * 0x1p-53;
  static_assert(kRounding > 8 * 0x1p-24);
  const double most = distance + kMove;
  const double excess = most * most * (1 + kSumRounding) - mCubeDistanceSq * (1 - kSumRounding);
  // Spelled so that NaN, a difference of infinities, is no limit.
  if (!(excess < kNoLimit / 2)) return kNoLimit;
  return excess < 0 ? -1.0F : roundedUp(excess * (1 + kRounding));
}

}  // namespace util
