#include <facetbox/operations/RemoveFacesDouble.h>

#include <algorithm>
#include <vector>

#include <facetbox/mesh/HoleClearing.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/DoubleFaceSearch.h>
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

}  // namespace

std::uint64_t removeFacesDouble(Mesh& mesh, bool compareAttributes) {
  MeshStorage& m = mesh.storage();
  if (m.mFaces.empty()) return 0;
  std::vector<DoubleFace> doubles = [&] {
    const Monitor::Part part(m.mMonitor.get(), 0.0, 0.7);
    return findDoubleFaces(m, compareAttributes);
  }();
  if (doubles.empty()) return 0;
  mergeTags(m, doubles);
  const std::vector<HoleTable::Group> groups = m.mHoles.groupsByOuter(m.mFaces.size());
  const Monitor::Part part(m.mMonitor.get(), 0.7, 1.0);
  for (const DoubleFace& pair : doubles) clearFaceAndHoles(m, pair.cleared, groups);
  compactMesh(mesh);
  return doubles.size();
}

}  // namespace util
