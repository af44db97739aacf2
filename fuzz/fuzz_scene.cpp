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
  std::array<float, 24> corners;
  corners.fill(-7);
  const bool isVolume = facetbox::viewVolumeCorners(matrix.data(), corners.data());
  if (!std::ranges::all_of(corners, [=](float x) { return isVolume ? std::isfinite(x) : x == -7; })) fail("corners");
  if (!isVolume || in.next() % 4 == 0)
    for (float& corner : corners) corner = nextNumber(in);
  for (const bool wholeInside : {false, true}) {
    const std::vector<std::uint32_t> expected = plain.pickFrustum(corners, matrix, wholeInside);
    std::vector<std::uint32_t> ids(expected.size());
    const std::int64_t count =
        picker.pickFrustum(handle, corners.data(), matrix.data(), wholeInside, ids.data(), ids.size());
    if (count != static_cast<std::int64_t>(expected.size()) || ids != expected) fail("ids");
    if (expected.empty()) continue;
    // Too little room: the number alone.
    std::vector<std::uint32_t> few(in.next() % expected.size(), 77);
    if (picker.pickFrustum(handle, corners.data(), matrix.data(), wholeInside, few.data(), few.size()) != -count ||
        std::ranges::count(few, 77u) != static_cast<std::ptrdiff_t>(few.size()))
      fail("counts");
  }
}

void compareRays(Bytes& in, Picker& picker, std::size_t handle, const support::PlainPicker& plain) {
  std::array<float, 3> origin, direction;
  for (float& x : origin) x = nextNumber(in);
  for (float& x : direction) x = nextNumber(in);
  constexpr std::int32_t kOdd[] = {-1, 8, INT32_MAX, INT32_MIN};
  const std::uint8_t byte = in.next();
  const std::int32_t id = byte < 240 ? byte % 8 : kOdd[byte % 4];
  const support::RayAnswer expected = plain.pickRay(id, origin, direction);
  support::RayAnswer answer, bare;
  bare.mHit = picker.pickRay(handle, id, origin.data(), direction.data(), &bare.mDistance, nullptr);
  if (bare.mHit != expected.mHit || bare.mDistance != expected.mDistance) fail("hits without normal");
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
  if (Picker::getAssociatedPicker(handle) != picker.get()) fail("owners");
  // What the set was when the changes were executed last: a discard leads back there.
  support::PlainPicker executed;
  std::uint64_t pending = 0;
  const auto atQuery = [&] {
    if (picker->getPendingCommandCount() != pending) fail("numbers of changes");
    executed = plain;
    pending = 0;
  };
  while (!in.empty()) {
    const std::uint8_t step = in.next();
    if (step < 150) {
      const support::Matrix matrix = nextMatrix(in);
      std::vector<const util::Mesh*> some{&meshes[step % meshes.size()]};
      if (step % 8 == 1) some.push_back(&meshes[0]);
      if (step % 32 == 2) some.clear();
      // Many at a time: crowded cells have an index.
      for (int copy = step % 16 == 0 ? 80 : 1; copy > 0; --copy, ++pending) {
        picker->addEntry(handle, step % 8, some, matrix.data());
        plain.addEntry(step % 8, some, matrix);
      }
    } else if (step < 168) {
      const float dx = nextNumber(in), dy = nextNumber(in);
      picker->relocate(handle, dx, dy, 1);
      plain.relocate(dx, dy, 1);
      ++pending;
    } else if (step < 172) {
      picker->dispose(handle);
      handle = picker->createHandle();
      plain = executed = support::PlainPicker();
      ++pending;
    } else if (step < 175) {
      picker->discardPendingCommands();
      plain = executed;
      pending = 0;
    } else if (step < 180) {
      atQuery();
      picker->applyPendingCommands();
    } else if (step < 215) {
      atQuery();
      compareViews(in, *picker, handle, plain);
    } else {
      atQuery();
      compareRays(in, *picker, handle, plain);
    }
  }
  return 0;
}
