#include <facetbox/operations/RemoveFacesDouble.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <facetbox/mesh/HoleClearing.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/DoubleFaceSearch.h>
#include <facetbox/operations/OpenEdgeGuard.h>
#include <facetbox/operations/TagMerger.h>

namespace util {
namespace {

/// Gives each face that stays the union of its tag and those of its doubles.
void mergeTags(MeshStorage& m, std::vector<DoubleFace>& doubles) {
  const auto isTagged = [&](const DoubleFace& pair) {
    return m.mFaces.tag(pair.kept) != -1 || m.mFaces.tag(pair.cleared) != -1;
  };
  if (std::ranges::none_of(doubles, isTagged)) return;
  std::ranges::sort(doubles);  // new sets are numbered in this order
  TagMerger merger(m.mTagSets);
  for (const DoubleFace& pair : doubles)
    m.mFaces.setTag(pair.kept, merger.merge(m.mFaces.tag(pair.kept), m.mFaces.tag(pair.cleared)));
}

/// Takes those out of the doubles without which the mesh would open: of each face, the lowest that runs against it at
/// most, as others of that direction repeat that one.
void keepClosed(const MeshStorage& m, std::span<const HoleTable::Group> groups, std::vector<DoubleFace>& doubles) {
  constexpr std::uint32_t kNone = 0xFFFFFFFFu;
  const FaceComparison comparison(m, {});
  std::vector<std::uint32_t> reverses(m.mFaces.size(), kNone);
  for (const auto& [vertex, kept, cleared] : doubles)
    if (cleared < reverses[kept] && !comparison.runAlike(kept, cleared)) reverses[kept] = cleared;
  std::vector<GoingFace> going;
  std::vector<bool> mayStay;
  for (std::uint32_t unit = 0; unit < doubles.size(); ++unit) {
    const auto& [vertex, kept, cleared] = doubles[unit];
    mayStay.push_back(cleared == reverses[kept]);
    going.push_back({cleared, unit});
    if (groups.empty()) continue;
    for (const HoleTable::Group& group : HoleTable::groupsOf(cleared, groups))
      for (const std::uint32_t hole : group.holes)
        if (hole < m.mFaces.size()) going.push_back({hole, unit});
  }
  const std::vector<bool> stays = findUnitsToKeep(m, going, mayStay);
  std::size_t unit = 0;
  std::erase_if(doubles, [&](const DoubleFace&) { return stays[unit++]; });
}

}  // namespace

std::uint64_t removeFacesDouble(Mesh& mesh, bool compareAttributes) {
  return removeFacesDouble(mesh, DoubleFaceRule{.compareAttributes = compareAttributes});
}

std::uint64_t removeFacesDouble(Mesh& mesh, const DoubleFaceRule& rule) {
  Monitor* const monitor = mesh.storage().mMonitor.get();
  std::vector<DoubleFace> doubles = [&] {
    const Monitor::Part part(monitor, 0.0, 0.7);
    return findDoubleFaces(mesh.storage(), rule);
  }();
  const Monitor::Part part(monitor, 0.7, 1.0);
  return removeDoubles(mesh, std::move(doubles), rule);
}

std::uint64_t removeDoubles(Mesh& mesh, std::vector<DoubleFace> doubles, const DoubleFaceRule& rule) {
  MeshStorage& m = mesh.storage();
  if (doubles.empty()) return 0;
  const std::vector<HoleTable::Group> groups = m.mHoles.groupsByOuter(m.mFaces.size());
  if (rule.keepClosed) keepClosed(m, groups, doubles);
  if (doubles.empty()) return 0;
  mergeTags(m, doubles);
  for (const DoubleFace& pair : doubles) clearFaceAndHoles(m, pair.cleared, groups);
  compactMesh(mesh);
  return doubles.size();
}

}  // namespace util
