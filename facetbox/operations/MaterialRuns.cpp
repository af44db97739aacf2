#include <facetbox/operations/MaterialRuns.h>

#include <cassert>
#include <utility>

namespace util {

MaterialRuns::MaterialRuns(MeshStorage& mesh) : m(mesh) {
  assert(m.mRunStarts.size() == m.mRunMaterials.size());
  if (m.mRunStarts.empty()) return;
  for (std::size_t face = 0; face < m.mFaces.size(); ++face) addRun();
}

void MaterialRuns::addRun() {
  // A face's run is the one before the first start greater than it, which can only move up with the face.
  while (mNextRun < m.mRunStarts.size() && m.mRunStarts[mNextRun] <= mRunOf.size()) ++mNextRun;
  mRunOf.push_back(static_cast<std::uint32_t>(mNextRun == 0 ? 0 : mNextRun - 1));
}

void MaterialRuns::changeLike(std::uint32_t face, std::uint32_t other) {
  if (mRunOf.empty() || m.mRunMaterials[mRunOf[face]] == m.mRunMaterials[mRunOf[other]]) return;
  mChanges.push_back({face, mRunOf[other]});
}

void MaterialRuns::applyChanges() {
  if (mChanges.empty()) return;
  for (const Change& change : mChanges) mRunOf[change.face] = change.run;
  std::vector<MaterialPair> materials;
  SmallIndexList starts;
  for (std::uint32_t face = 0; face < mRunOf.size(); ++face) {
    const MaterialPair& material = m.mRunMaterials[mRunOf[face]];
    if (materials.empty() || materials.back() != material) {
      materials.push_back(material);
      starts.push_back(face);
    }
    mRunOf[face] = static_cast<std::uint32_t>(materials.size() - 1);
  }
  mChanges.clear();
  mNextRun = materials.size();
  m.mRunMaterials = std::move(materials);
  m.mRunStarts = std::move(starts);
}

}  // namespace util
