// Turns bytes into meshes, places and views, plays them to a picker and to its slow twin, and compares every answer.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

#include <facetbox/picker/Picker.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/viewVolume.h>
#include "SceneInput.h"
#include "tests/support/PlainPicker.h"

namespace {

void compareViews(Bytes& in, Picker& picker, std::size_t handle, const support::PlainPicker& plain) {
  std::array<float, 16> matrix;
  std::ranges::transform(nextMatrix(in), matrix.begin(), [](double x) { return static_cast<float>(x * 0.125); });
  std::array<float, 24> corners{};
  if (!facetbox::viewVolumeCorners(matrix.data(), corners.data()))
    for (float& corner : corners) corner = nextNumber(in);
  for (const bool wholeInside : {false, true}) {
    const std::vector<std::uint32_t> expected = plain.pickFrustum(corners, matrix, wholeInside);
    std::vector<std::uint32_t> ids(expected.size());
    const std::int64_t count =
        picker.pickFrustum(handle, corners.data(), matrix.data(), wholeInside, ids.data(), ids.size());
    if (count != static_cast<std::int64_t>(expected.size()) || ids != expected) fail("ids");
  }
}

void compareRays(Bytes& in, Picker& picker, std::size_t handle, const support::PlainPicker& plain) {
  std::array<float, 3> origin, direction;
  for (float& x : origin) x = nextNumber(in);
  for (float& x : direction) x = nextNumber(in);
  const std::int32_t id = in.next() % 8;
  const support::RayAnswer expected = plain.pickRay(id, origin, direction);
  support::RayAnswer answer;
  answer.mHit = picker.pickRay(handle, id, origin.data(), direction.data(), &answer.mDistance, answer.mNormal.data());
  // A normal may be NaN.
  const bool sameNormal = std::ranges::equal(
      answer.mNormal, expected.mNormal, [](float a, float b) { return a == b || (std::isnan(a) && std::isnan(b)); });
  if (answer.mHit != expected.mHit || answer.mDistance != expected.mDistance || !sameNormal) fail("hits");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Bytes in(bytes, size);
  const std::unique_ptr<Picker> picker(Picker::createPicker());
  support::PlainPicker plain;
  std::vector<util::Mesh> meshes;
  for (int count = 1 + in.next() % 3; count > 0; --count) meshes.push_back(nextMesh(in));
  std::size_t handle = picker->createHandle();
  while (!in.empty()) {
    const std::uint8_t step = in.next();
    if (step < 150) {
      const support::Matrix matrix = nextMatrix(in);
      const util::Mesh& mesh = meshes[step % meshes.size()];
      // Many at a time: crowded cells have an index.
      for (int copy = step % 16 == 0 ? 80 : 1; copy > 0; --copy) {
        picker->addEntry(handle, step % 8, {&mesh}, matrix.data());
        plain.addEntry(step % 8, {&mesh}, matrix);
      }
    } else if (step < 170) {
      const float dx = nextNumber(in), dy = nextNumber(in);
      picker->relocate(handle, dx, dy, 1);
      plain.relocate(dx, dy, 1);
    } else if (step < 175) {
      picker->dispose(handle);
      handle = picker->createHandle();
      plain = support::PlainPicker();
    } else if (step < 215) {
      compareViews(in, *picker, handle, plain);
    } else {
      compareRays(in, *picker, handle, plain);
    }
  }
  return 0;
}
