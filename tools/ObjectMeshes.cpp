#include <tools/ObjectMeshes.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

#include <fmt/format.h>

#include <tools/Errors.h>
#include <tools/MeshMaker.h>

namespace tool {
namespace {

constexpr std::uint32_t kUnmapped = 0xFFFFFFFF;
static_assert(kNoTexCoord == facetbox::kNone && kEndOfGroup == facetbox::kNone);

// Renumbers `indices` (entries kNoTexCoord stay) to the ascending list of the distinct ones and `extra`, which is
// returned. Costs no more than sorting the indices, however large the pool that they point into.
std::vector<std::uint32_t> compactIndices(std::vector<std::uint32_t>& indices, std::vector<std::uint32_t> extra) {
  std::vector<std::uint32_t> used = std::move(extra);
  std::copy_if(indices.begin(), indices.end(), std::back_inserter(used),
               [](std::uint32_t index) { return index != kNoTexCoord; });
  if (used.empty()) return used;
  const auto [lowest, highest] = std::minmax_element(used.begin(), used.end());
  const std::uint32_t base = *lowest;
  const std::size_t window = std::size_t{*highest} - base + 1;
  if (window / 16 > used.size()) {  // a few indices, far apart
    std::sort(used.begin(), used.end());
    used.erase(std::unique(used.begin(), used.end()), used.end());
    for (std::uint32_t& index : indices) {
      if (index != kNoTexCoord)
        index = static_cast<std::uint32_t>(std::lower_bound(used.begin(), used.end(), index) - used.begin());
    }
    return used;
  }
  std::vector<std::uint32_t> newIndices(window, kUnmapped);
  for (const std::uint32_t index : used) newIndices[index - base] = 0;
  used.clear();
  for (std::size_t i = 0; i < window; ++i) {
    if (newIndices[i] == kUnmapped) continue;
    newIndices[i] = static_cast<std::uint32_t>(used.size());
    used.push_back(base + static_cast<std::uint32_t>(i));
  }
  for (std::uint32_t& index : indices) {
    if (index != kNoTexCoord) index = newIndices[index - base];
  }
  return used;
}

// Appends the rows of a pool, each of `width` numbers.
void gather(const std::vector<double>& pool, const std::vector<std::uint32_t>& rows, std::size_t width,
            std::vector<double>& values) {
  values.reserve(values.size() + rows.size() * width);
  for (const std::uint32_t row : rows) {
    const auto first = pool.begin() + static_cast<std::ptrdiff_t>(row * width);
    values.insert(values.end(), first, first + static_cast<std::ptrdiff_t>(width));
  }
}

bool isTextured(const std::vector<std::uint32_t>& indices) {
  return std::any_of(indices.begin(), indices.end(), [](std::uint32_t index) { return index != kNoTexCoord; });
}

std::size_t objectOf(const Model& model, std::uint32_t face) {
  const auto behind = std::upper_bound(model.mObjects.begin(), model.mObjects.end(), face,
                                       [](std::uint32_t f, const ObjectStart& o) { return f < o.mFirstFace; });
  return static_cast<std::size_t>(behind - model.mObjects.begin()) - 1;
}

}  // namespace

ObjectMeshes::ObjectMeshes(const Model& model, const std::string& name)
    : mModel(model), mSlices(model.mObjects.size()) {
  sliceCorners();
  sliceHoles(name);
  numberLabels();
}

void ObjectMeshes::sliceCorners() {
  std::vector<bool> isUsed(mModel.vertexCount());
  for (const std::uint32_t index : mModel.mIndices) isUsed[index] = true;
  std::size_t corner = 0;
  for (std::size_t object = 0; object < mSlices.size(); ++object) {
    Slice& slice = mSlices[object];
    slice.mFirstCorner = corner;
    for (std::uint32_t face = mModel.mObjects[object].mFirstFace; face < mModel.endFace(object); ++face)
      corner += mModel.mCounts[face];
    slice.mEndCorner = corner;
    const std::size_t endVertex =
        object + 1 < mSlices.size() ? mModel.mObjects[object + 1].mFirstVertex : mModel.vertexCount();
    for (std::uint32_t vertex = mModel.mObjects[object].mFirstVertex; vertex < endVertex; ++vertex) {
      if (!isUsed[vertex]) slice.mUnusedVertices.push_back(vertex);
    }
  }
}

// Several groups of one face become one. Groups never span objects, so the outer face decides.
void ObjectMeshes::sliceHoles(const std::string& name) {
  std::map<std::uint32_t, std::vector<std::uint32_t>> holesOf;
  std::map<std::uint32_t, std::uint32_t> outerOf;
  for (auto entry = mModel.mHoles.begin(); entry != mModel.mHoles.end(); ++entry) {
    const std::uint32_t outer = *entry;
    while (*++entry != kEndOfGroup) {
      const auto [known, isNew] = outerOf.try_emplace(*entry, outer);
      if (isNew)
        holesOf[outer].push_back(*entry);
      else if (known->second != outer)
        throw InputError(fmt::format("{}: face {} is a hole of face {} and of face {}; correct the hole lines", name,
                                     *entry + 1, known->second + 1, outer + 1));
    }
  }
  for (const auto& [outer, holes] : holesOf) {
    if (const auto known = outerOf.find(outer); known != outerOf.end())
      throw InputError(fmt::format("{}: face {} is a hole of face {} and has holes itself; correct the hole lines",
                                   name, outer + 1, known->second + 1));
    const std::size_t object = objectOf(mModel, outer);
    std::vector<std::uint32_t>& groups = mSlices[object].mHoles;
    const std::uint32_t first = mModel.mObjects[object].mFirstFace;
    groups.push_back(outer - first);
    for (const std::uint32_t hole : holes) groups.push_back(hole - first);
    groups.push_back(kEndOfGroup);
  }
}

void ObjectMeshes::numberLabels() {
  std::map<Label, std::uint32_t> numbers;
  mFaceLabels.reserve(mModel.faceCount());
  for (const Label& label : labelsOf(mModel)) {
    if (!mFaceLabels.empty() && mLabels[mFaceLabels.back()] == label) {
      mFaceLabels.push_back(mFaceLabels.back());
      continue;
    }
    const auto [known, isNew] = numbers.try_emplace(label, static_cast<std::uint32_t>(mLabels.size()));
    if (isNew) mLabels.push_back(label);
    mFaceLabels.push_back(known->second);
  }
}

facetbox::PolyMesh ObjectMeshes::make(std::size_t object) const {
  const Slice& slice = mSlices[object];
  const auto copy = [](const std::vector<std::uint32_t>& list, std::size_t begin, std::size_t end) {
    return std::vector(list.begin() + static_cast<std::ptrdiff_t>(begin),
                       list.begin() + static_cast<std::ptrdiff_t>(end));
  };
  const std::uint32_t begin = mModel.mObjects[object].mFirstFace, end = mModel.endFace(object);
  facetbox::PolyMesh mesh;
  mesh.counts = copy(mModel.mCounts, begin, end);
  mesh.labels = copy(mFaceLabels, begin, end);
  mesh.holes = slice.mHoles;
  mesh.indices = copy(mModel.mIndices, slice.mFirstCorner, slice.mEndCorner);
  gather(mModel.mVertices, compactIndices(mesh.indices, slice.mUnusedVertices), 3, mesh.points);
  if (mModel.mTexIndices.empty()) return mesh;
  mesh.texIndices = copy(mModel.mTexIndices, slice.mFirstCorner, slice.mEndCorner);
  if (!isTextured(mesh.texIndices)) mesh.texIndices.clear();
  gather(mModel.mTexCoords, compactIndices(mesh.texIndices, {}), 2, mesh.texCoords);
  return mesh;
}

void ObjectMeshes::append(std::size_t object, const facetbox::PolyMesh& mesh, Model& result) const {
  const auto firstFace = static_cast<std::uint32_t>(result.faceCount());
  const auto firstVertex = static_cast<std::uint32_t>(result.vertexCount());
  const auto firstPair = static_cast<std::uint32_t>(result.mTexCoords.size() / 2);
  const std::size_t firstCorner = result.mIndices.size(), endCorner = firstCorner + mesh.indices.size();
  result.mObjects.push_back({mModel.mObjects[object].mName, firstFace, firstVertex, firstPair});
  result.mVertices.insert(result.mVertices.end(), mesh.points.begin(), mesh.points.end());
  for (const std::uint32_t index : mesh.indices) result.mIndices.push_back(firstVertex + index);
  for (std::size_t face = 0; face < mesh.counts.size(); ++face) {
    result.startRun(mLabels[mesh.labels[face]]);
    result.mCounts.push_back(mesh.counts[face]);
  }
  for (const std::uint32_t entry : mesh.holes)
    result.mHoles.push_back(entry == kEndOfGroup ? kEndOfGroup : firstFace + entry);

  if (isTextured(mesh.texIndices)) {
    std::vector<std::uint32_t> indices = mesh.texIndices;
    gather(mesh.texCoords, compactIndices(indices, {}), 2, result.mTexCoords);
    result.mTexIndices.resize(firstCorner, kNoTexCoord);
    for (const std::uint32_t index : indices)
      result.mTexIndices.push_back(index == kNoTexCoord ? kNoTexCoord : firstPair + index);
  } else if (!result.mTexIndices.empty()) {
    result.mTexIndices.resize(endCorner, kNoTexCoord);
  }
}

Model emptyLike(const Model& model) {
  Model empty;
  empty.mMaterials = model.mMaterials;
  empty.mGroups = model.mGroups;
  empty.mLibraries = model.mLibraries;
  return empty;
}

}  // namespace tool
