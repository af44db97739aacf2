#include "RandomSolid.h"

#include <array>
#include <cmath>
#include <vector>

#include <facetbox/math/Vec3.h>

namespace support {
namespace {

using facetbox::PolyMesh;
using util::Vec3;

/// Which cubes of a grid belong to the solid; there is air all around.
class Cubes {
 public:
  explicit Cubes(std::mt19937& random) {
    for (int& n : mSize) n = 1 + static_cast<int>(random() % 5);
    mFull.assign(static_cast<std::size_t>(mSize[0] * mSize[1] * mSize[2]), true);
    // Dents and tunnels of any length from the outside inward; none leaves a cavity.
    for (unsigned carvings = random() % 6; carvings-- > 0;) {
      std::array<int, 3> at;
      for (int axis = 0; axis < 3; ++axis) at[axis] = static_cast<int>(random() % static_cast<unsigned>(mSize[axis]));
      const unsigned along = random() % 3;
      at[along] = 0;
      for (int left = 1 + static_cast<int>(random() % static_cast<unsigned>(mSize[along])); left-- > 0; ++at[along])
        set(at, false);
    }
    if (count() == 0) set({0, 0, 0}, true);
  }

  bool isFull(std::array<int, 3> at) const {
    for (int axis = 0; axis < 3; ++axis)
      if (at[axis] < 0 || at[axis] >= mSize[axis]) return false;
    return mFull[index(at)];
  }
  std::size_t count() const {
    std::size_t n = 0;
    for (const bool full : mFull) n += full;
    return n;
  }
  template <class Use>
  void forEachFull(Use use) const {
    for (int x = 0; x < mSize[0]; ++x)
      for (int y = 0; y < mSize[1]; ++y)
        for (int z = 0; z < mSize[2]; ++z)
          if (isFull({x, y, z})) use(std::array{x, y, z});
  }

 private:
  std::size_t index(const std::array<int, 3>& at) const {
    return static_cast<std::size_t>((at[0] * mSize[1] + at[1]) * mSize[2] + at[2]);
  }
  void set(const std::array<int, 3>& at, bool full) { mFull[index(at)] = full; }

  std::array<int, 3> mSize{};
  std::vector<bool> mFull;
};

/// Where grid points go: a rotation, a scale and a move.
class Frame {
 public:
  Frame(std::mt19937& random, double unit) : mUnit(unit) {
    std::uniform_real_distribution<double> any(-1, 1);
    const Vec3 a{any(random), any(random), any(random) + 2}, b{any(random) + 2, any(random), any(random)};
    mX = a / length(a);
    const Vec3 z = cross(mX, b);
    mZ = z / length(z);
    mY = cross(mZ, mX);
    mPlace = 100 * unit * Vec3{any(random), any(random), any(random)};
    if (random() % 4 == 0) mX = {1, 0, 0}, mY = {0, 1, 0}, mZ = {0, 0, 1};
  }
  Vec3 operator()(const Vec3& p) const { return mPlace + mUnit * (p.x * mX + p.y * mY + p.z * mZ); }

 private:
  double mUnit;
  Vec3 mX{}, mY{}, mZ{}, mPlace{};
};

/// Writes the squares of a skin as faces of their own, cut up. Sides stay whole, so that neighbors fit.
class SkinWriter {
 public:
  SkinWriter(std::mt19937& random, const Frame& frame, double jitter, PolyMesh& mesh)
      : mRandom(random), mFrame(frame), mJitter(-jitter, jitter), mMesh(mesh) {}

  void square(const std::array<Vec3, 4>& c) {
    const Vec3 inside = 0.25 * (c[0] + c[1] + c[2] + c[3]) + 0.3 * (c[1] - c[0]);
    switch (mRandom() % 4) {
      case 0:
        return face({c[0], c[1], c[2], c[3]});
      case 1:
        face({c[0], c[1], c[2]});
        return face({c[2], c[3], c[0]});
      case 2:
        face({c[1], c[2], c[3]});
        return face({c[3], c[0], c[1]});
      default:
        face({c[0], c[1], inside});
        face({c[1], c[2], inside});
        face({c[2], c[3], c[0], inside});
    }
  }

 private:
  void face(const std::vector<Vec3>& corners) {
    const bool isTurned = mRandom() % 8 == 0;
    for (std::size_t i = 0; i < corners.size(); ++i) {
      const Vec3 p = mFrame(corners[isTurned ? corners.size() - 1 - i : i] +
                            Vec3{mJitter(mRandom), mJitter(mRandom), mJitter(mRandom)});
      mMesh.indices.push_back(static_cast<std::uint32_t>(mMesh.points.size() / 3));
      mMesh.points.insert(mMesh.points.end(), {p.x, p.y, p.z});
    }
    mMesh.counts.push_back(static_cast<std::uint32_t>(corners.size()));
  }

  std::mt19937& mRandom;
  const Frame& mFrame;
  std::uniform_real_distribution<double> mJitter;
  PolyMesh& mMesh;
};

}  // namespace

RandomSolid randomSolid(std::mt19937& random, double jitter) {
  RandomSolid solid;
  solid.unit = std::ldexp(1.0 + 0.1 * static_cast<double>(random() % 9), static_cast<int>(random() % 41) - 20);
  const Cubes cubes(random);
  const Frame frame(random, solid.unit);
  SkinWriter writer(random, frame, jitter, solid.mesh);
  std::size_t squares = 0;
  cubes.forEachFull([&](const std::array<int, 3>& at) {
    for (std::size_t axis = 0; axis < 3; ++axis)
      for (const int side : {0, 1}) {
        std::array<int, 3> beyond = at;
        beyond[axis] += side == 0 ? -1 : 1;
        if (cubes.isFull(beyond)) continue;
        ++squares;
        const std::size_t u = (axis + 1) % 3, v = (axis + 2) % 3;
        std::array<Vec3, 4> corners;
        for (std::size_t i = 0; i < 4; ++i) {
          std::array<double, 3> p{double(at[0]), double(at[1]), double(at[2])};
          p[axis] += side;
          const std::size_t k = side == 1 ? i : 3 - i;
          p[u] += k == 1 || k == 2;
          p[v] += k >= 2;
          corners[i] = {p[0], p[1], p[2]};
        }
        writer.square(corners);
      }
  });
  solid.volume = static_cast<double>(cubes.count()) * std::pow(solid.unit, 3);
  solid.area = static_cast<double>(squares) * std::pow(solid.unit, 2);
  return solid;
}

}  // namespace support
