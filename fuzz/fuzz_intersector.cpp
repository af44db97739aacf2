// Turns bytes into meshes, places and views, plays them to an intersector and to its slow twin, and compares every
// answer.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include <facetbox/intersector/Intersector.h>
#include "tests/support/PlainIntersector.h"

namespace {

/// Reads small values from the input; zero when it is used up.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : mData(data), mSize(size) {}
  bool empty() const { return mSize == 0; }
  std::uint8_t next() {
    if (mSize == 0) return 0;
    --mSize;
    return *mData++;
  }
  /// Mostly a small integer grid, where ties happen; now and then something nasty.
  float number() {
    constexpr float kNasty[] = {NAN, INFINITY, 3e38f, -1e-40f, 0.3f, -0.0f, 1e9f, -3e38f};
    const std::uint8_t byte = next();
    if (byte >= 0xF8) return kNasty[byte - 0xF8];
    return static_cast<float>(byte % 16 - 8) * (byte < 128 ? 1.0f : 0.25f);
  }
  support::Matrix matrix(double scale) {
    support::Matrix m{scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, scale, 0, 0, 0, 0, 1};
    const std::uint8_t changed = next();
    for (const std::size_t i : {12, 13, 14}) m[i] = scale * number();
    for (int i = changed % 4; i > 0; --i) m[next() % 16] = scale * number();
    return m;
  }

 private:
  const std::uint8_t* mData;
  std::size_t mSize;
};

/// Of few or enough vertices to be shared, with few or enough triangles to have a hierarchy.
util::Mesh nextMesh(Bytes& in) {
  const std::uint32_t vertexCount = in.next() % 24;
  std::vector<float> coords;
  for (std::uint32_t i = 0; i < 3 * vertexCount; ++i) coords.push_back(in.number());
  std::vector<std::uint32_t> indices;
  std::vector<std::int32_t> counts;
  for (int face = vertexCount == 0 ? 0 : in.next() % 100; face > 0; --face) {
    counts.push_back(3);
    const std::uint32_t first = in.next();
    for (const std::uint32_t corner : {first, first + 1 + first % 3, first / 5 + 2})
      indices.push_back(corner % vertexCount);
  }
  return util::Mesh("", static_cast<int>(coords.size()), coords.data(), indices.data(), static_cast<int>(counts.size()),
                    counts.data(), nullptr, 0, nullptr);
}

/// NaN equals NaN.
template <std::size_t N>
bool same(const std::array<float, N>& a, const std::array<float, N>& b) {
  return std::ranges::equal(a, b, [](float x, float y) { return x == y || (std::isnan(x) && std::isnan(y)); });
}

void expect(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s differ from the twin's\n", what);
  std::abort();
}

void compare(Bytes& in, Intersector& intersector, std::size_t handle, const support::PlainIntersector& plain) {
  std::array<float, 16> m;
  std::ranges::transform(in.matrix(0.125), m.begin(), [](double x) { return static_cast<float>(x); });
  for (const bool contained : {false, true})
    expect(intersector.intersectsFrustum(handle, m.data(), contained) ==
               (contained ? plain.contains(m) : plain.overlaps(m)),
           "volumes");

  std::array<float, 3> from, along;
  for (float& x : from) x = in.number();
  for (float& x : along) x = in.number();
  support::NearestAnswer nearest;
  float* out = nearest.mVectors.data();
  nearest.mFound =
      intersector.findNearestInFrustum(handle, m.data(), from.data(), along.data(), out, out + 3, out + 6, out + 9);
  const support::NearestAnswer expectedNearest = plain.findNearest(m, from, along);
  expect(nearest.mFound == expectedNearest.mFound && same(nearest.mVectors, expectedNearest.mVectors),
         "nearest points");

  support::RayAnswer ray;
  ray.mHit = intersector.intersectsRay(handle, from.data(), along.data(), &ray.mDistance, ray.mNormal.data());
  const support::RayAnswer expectedRay = plain.intersectRay(from, along);
  expect(
      ray.mHit == expectedRay.mHit && ray.mDistance == expectedRay.mDistance && same(ray.mNormal, expectedRay.mNormal),
      "hits");

  support::Raster raster;
  raster.mWidth = in.next() % 40 - 1;
  raster.mHeight = in.next() % 40 - 1;
  raster.mViewport = {in.next() % 8 - 4, in.next() % 8 - 4, raster.mWidth, raster.mHeight};
  raster.mOffsetX = in.next() % 8 - 4;
  if (raster.mWidth > 0 && raster.mHeight > 0) {
    raster.mCells.assign(static_cast<std::size_t>(raster.mWidth * raster.mHeight), 1);
    raster.mCells[in.next() % raster.mCells.size()] = 0;
  }
  expect(intersector.testRaster(handle, m.data(), raster.mViewport.data(), raster.mCells.data(), raster.mWidth,
                                raster.mHeight, raster.mOffsetX, 0) == plain.testRaster(m, raster),
         "masks");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Bytes in(bytes, size);
  const std::unique_ptr<Intersector> intersector(Intersector::createIntersector());
  util::Triangulator triangulator;
  support::PlainIntersector plain;
  std::vector<util::Mesh> meshes;
  for (int count = 1 + in.next() % 3; count > 0; --count) meshes.push_back(nextMesh(in));
  std::size_t handle = intersector->createHandle();
  while (!in.empty()) {
    const std::uint8_t step = in.next();
    const util::Mesh& mesh = meshes[step % meshes.size()];
    if (step < 120) {
      const support::Matrix matrix = in.matrix(1);
      intersector->addEntry(handle, mesh, matrix.data(), triangulator);
      plain.addEntry(mesh, matrix);
    } else if (step < 135) {
      intersector->setOABBox(handle, mesh, triangulator);
      plain.setBox(mesh);
    } else if (step < 160) {
      const float dx = in.number(), dy = in.number();
      intersector->relocate(handle, dx, dy, 1);
      plain.relocate(dx, dy, 1);
    } else if (step < 165) {
      intersector->dispose(handle);
      handle = intersector->createHandle();
      plain = {};
    } else {
      compare(in, *intersector, handle, plain);
    }
  }
  return 0;
}
