#include <tools/Scene.h>

#include <algorithm>
#include <limits>

#include <facetbox/viewVolume.h>

namespace tool {

Scene::Scene(const FacePool& model, const std::string& name, Grouping grouping, Progress& progress) : Frame(model) {
  // The picker keeps the triangles, not the mesh.
  mEntries =
      takeApart(name, grouping, progress, [&](const SceneEntry& entry, const util::Mesh& mesh, std::span<const float>) {
        mPicker->addEntry(mHandle, entry.mId, {&mesh}, kInPlace.data());
      });
  mPicker->applyPendingCommands();
}

const SceneEntry& Scene::entry(std::uint32_t id) const {
  return *std::lower_bound(mEntries.begin(), mEntries.end(), id,
                           [](const SceneEntry& entry, std::uint32_t wanted) { return entry.mId < wanted; });
}

std::optional<Hit> Scene::firstHit(const Vector& origin, const Vector& direction,
                                   std::span<const std::uint32_t> ids) const {
  const FloatRay ray = rayOf(origin, direction);
  std::optional<Hit> first;
  float nearest = std::numeric_limits<float>::max();
  for (const std::uint32_t id : ids) {
    float distance = 0;
    std::array<float, 3> normal{};
    if (!mPicker->pickRay(mHandle, static_cast<std::int32_t>(id), ray.mOrigin.data(), ray.mDirection.data(), &distance,
                          normal.data()) ||
        distance >= nearest)
      continue;
    nearest = distance;
    first = Hit{id, ray.distanceOf(distance), {normal[0], normal[1], normal[2]}};
  }
  return first;
}

std::vector<std::uint32_t> Scene::idsIn(const std::array<float, 16>& matrix, bool wholeInside) const {
  std::array<float, 24> corners{};
  if (!facetbox::viewVolumeCorners(matrix.data(), corners.data())) return {};
  std::vector<std::uint32_t> ids(64);
  const auto pick = [&] {
    return mPicker->pickFrustum(mHandle, corners.data(), matrix.data(), wholeInside, ids.data(), ids.size());
  };
  std::int64_t count = pick();
  if (count < 0) {
    // The buffer was too small: the result is the negative of the number needed.
    ids.resize(static_cast<std::size_t>(-count));
    count = pick();
  }
  ids.resize(static_cast<std::size_t>(count));
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace tool
