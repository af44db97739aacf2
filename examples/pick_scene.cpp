// Two threads describe a scene of plates, some with a hole. Then the host asks what is in view and what a ray hits.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include <facetbox/picker/Picker.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/viewVolume.h>

namespace {

// A square with sides of 4 around the origin, facing +z; the hole in its center has sides of 2.
util::Mesh plate(bool withHole) {
  const float coords[] = {-2, -2, 0, 2, -2, 0, 2, 2, 0, -2, 2, 0, -1, -1, 0, -1, 1, 0, 1, 1, 0, 1, -1, 0};
  const std::uint32_t corners[] = {0, 1, 2, 3, 4, 5, 6, 7};
  const std::int32_t counts[] = {4, 4};
  const std::uint32_t holes[] = {0, 1, 0xFFFFFFFF};  // face 1 is a hole of face 0
  return {"plate",          24,     coords, corners, withHole ? 2 : 1, counts, withHole ? holes : nullptr,
          withHole ? 3 : 0, nullptr};
}

// Runs on a thread of the host. Objects are triangulated here and queued, so the thread never waits for a query.
void addPlates(Picker& picker, std::size_t handle, std::uint32_t firstId, bool withHole) {
  const util::Mesh mesh = plate(withHole);  // triangulated once: the picker recognizes it afterwards
  for (std::uint32_t i = 0; i < 3; ++i) {
    const double z = -2.0 * i - (withHole ? 0 : 1);
    const double matrix[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, z, 1};  // column-major
    picker.addEntry(handle, firstId + i, {&mesh}, matrix);
  }
}

std::vector<std::uint32_t> idsInView(Picker& picker, std::size_t handle, const float viewProjection[16]) {
  float corners[24];
  if (!facetbox::viewVolumeCorners(viewProjection, corners)) return {};  // no volume
  std::vector<std::uint32_t> ids(4);
  const auto pick = [&] { return picker.pickFrustum(handle, corners, viewProjection, false, ids.data(), ids.size()); };
  std::int64_t count = pick();
  if (count < 0) {  // the buffer is too small: the negative of the number needed
    ids.resize(static_cast<std::size_t>(-count));
    count = pick();
  }
  ids.resize(static_cast<std::size_t>(count));
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace

int main() {
  const std::unique_ptr<Picker> picker(Picker::createPicker());
  const std::size_t handle = picker->createHandle();
  std::thread whole([&] { addPlates(*picker, handle, 1, false); });
  std::thread pierced([&] { addPlates(*picker, handle, 11, true); });
  whole.join();
  pierced.join();

  // Looks down from (0, 0, 10), without perspective: x and y from -3 to 3, z from 5 to -15.
  const float viewProjection[16] = {1 / 3.0f, 0, 0, 0, 0, 1 / 3.0f, 0, 0, 0, 0, -0.1f, 0, 0, 0, -0.5f, 1};
  const std::vector<std::uint32_t> ids = idsInView(*picker, handle, viewProjection);
  std::printf("in view:");
  for (const std::uint32_t id : ids) std::printf(" %u", id);

  // The nearest of the candidates; of equally near ones the lower id.
  const float origin[] = {0.5f, 0, 10}, direction[] = {0, 0, -1};
  std::uint32_t hit = 0;
  float nearest = 0, distance = 0;
  for (const std::uint32_t id : ids) {
    if (!picker->pickRay(handle, static_cast<std::int32_t>(id), origin, direction, &distance, nullptr)) continue;
    if (hit != 0 && distance >= nearest) continue;
    hit = id;
    nearest = distance;
  }
  std::printf("\nthrough the hole, %u is hit after %g\n", hit, static_cast<double>(nearest));
  picker->dispose(handle);
}
