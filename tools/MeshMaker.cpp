#include <tools/MeshMaker.h>

#include <algorithm>
#include <numeric>

namespace tool {
namespace {

using facetbox::kNone;

std::vector<std::pair<std::uint32_t, std::uint32_t>> listHoles(const FacePool& model) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> holes;
  for (auto entry = model.mHoles.begin(); entry != model.mHoles.end(); ++entry) {
    const std::uint32_t outer = *entry;
    while (*++entry != kNone) {
      if (model.mCounts[outer] >= 3 && model.mCounts[*entry] >= 3) holes.emplace_back(outer, *entry);
    }
  }
  std::sort(holes.begin(), holes.end());
  holes.erase(std::unique(holes.begin(), holes.end()), holes.end());
  return holes;
}

// Per face, the lowest face that hole groups connect it to and that is not a hole itself.
std::vector<std::uint32_t> findOwners(const FacePool& model) {
  std::vector<std::uint32_t> roots(model.faceCount());
  std::iota(roots.begin(), roots.end(), 0U);
  const auto rootOf = [&](std::uint32_t face) {
    while (roots[face] != face) face = roots[face] = roots[roots[face]];
    return face;
  };
  std::vector<bool> isHole(model.faceCount());
  for (const auto& [outer, hole] : listHoles(model)) {
    isHole[hole] = true;
    const std::uint32_t a = rootOf(outer), b = rootOf(hole);
    roots[std::max(a, b)] = std::min(a, b);
  }
  std::vector<std::uint32_t> ownerOfRoot(model.faceCount(), kNone), owners(model.faceCount(), kNone);
  for (std::uint32_t face = 0; face < owners.size(); ++face) {
    std::uint32_t& owner = ownerOfRoot[rootOf(face)];
    if (owner == kNone && !isHole[face] && model.mCounts[face] >= 3) owner = face;
  }
  for (std::uint32_t face = 0; face < owners.size(); ++face) {
    if (model.mCounts[face] >= 3) owners[face] = ownerOfRoot[rootOf(face)];
  }
  return owners;
}

// Turns each face's owner into the number of its set, counted from 0.
void numberSets(const FacePool& model, Grouping grouping, std::vector<std::uint32_t>& owners) {
  if (grouping == Grouping::face) return;
  std::vector<std::uint32_t> numbers(model.faceCount());
  if (grouping == Grouping::object) {
    for (std::uint32_t object = 0; object < model.mObjects.size(); ++object)
      std::fill(numbers.begin() + model.mObjects[object].mFirstFace, numbers.begin() + model.endFace(object), object);
  } else {
    const auto none = static_cast<std::uint32_t>(model.mMaterials.size());
    std::transform(model.mMaterialOf.begin(), model.mMaterialOf.end(), numbers.begin(),
                   [none](std::uint32_t material) { return material == kNone ? none : material; });
  }
  for (std::uint32_t& owner : owners) {
    if (owner != kNone) owner = numbers[owner];
  }
}

}  // namespace

FaceSets groupFaces(const FacePool& model, Grouping grouping) {
  std::vector<std::uint32_t> setOfFace = findOwners(model);
  numberSets(model, grouping, setOfFace);

  FaceSets sets;
  for (std::uint32_t face = 0; face < setOfFace.size(); ++face) {
    if (setOfFace[face] != kNone) sets.mFaces.push_back(face);
  }
  std::stable_sort(sets.mFaces.begin(), sets.mFaces.end(),
                   [&](std::uint32_t a, std::uint32_t b) { return setOfFace[a] < setOfFace[b]; });
  for (std::size_t i = 0; i < sets.mFaces.size(); ++i) {
    const std::uint32_t number = setOfFace[sets.mFaces[i]] + 1;
    if (!sets.mNumbers.empty() && sets.mNumbers.back() == number) continue;
    sets.mNumbers.push_back(number);
    sets.mStarts.push_back(i);
  }
  sets.mStarts.push_back(sets.mFaces.size());
  return sets;
}

MeshMaker::MeshMaker(const FacePool& model, const Vector& center, double scale)
    : mModel(model),
      mCenter(center),
      mScale(scale),
      mFirstCorners(model.faceCount()),
      mHolesOf(listHoles(model)),
      mLocalVertices(model.vertexCount(), kNone) {
  std::exclusive_scan(model.mCounts.begin(), model.mCounts.end(), mFirstCorners.begin(), std::size_t{0});
}

util::Mesh MeshMaker::make(std::span<const std::uint32_t> faces) {
  mIndices.clear();
  mHoles.clear();
  mVertices.clear();
  mCounts.clear();
  mCoordinates.clear();
  for (const std::uint32_t face : faces) {
    mCounts.push_back(static_cast<std::int32_t>(mModel.mCounts[face]));
    const std::size_t begin = mFirstCorners[face];
    for (std::size_t corner = begin; corner < begin + mModel.mCounts[face]; ++corner) {
      const std::uint32_t vertex = mModel.mIndices[corner];
      if (mLocalVertices[vertex] == kNone) {
        mLocalVertices[vertex] = static_cast<std::uint32_t>(mVertices.size());
        mVertices.push_back(vertex);
        const double* const p = mModel.mVertices.data() + std::size_t{3} * vertex;
        const Vector q = (Vector{p[0], p[1], p[2]} - mCenter) * mScale;
        for (const double c : {q.x, q.y, q.z}) mCoordinates.push_back(static_cast<float>(c));
      }
      mIndices.push_back(mLocalVertices[vertex]);
    }
  }
  for (const std::uint32_t vertex : mVertices) mLocalVertices[vertex] = kNone;

  const auto numberInSet = [&](std::uint32_t face) {
    return static_cast<std::uint32_t>(std::lower_bound(faces.begin(), faces.end(), face) - faces.begin());
  };
  for (std::uint32_t i = 0; i < faces.size() && !mHolesOf.empty(); ++i) {
    auto entry = std::lower_bound(mHolesOf.begin(), mHolesOf.end(), std::pair(faces[i], std::uint32_t{0}));
    if (entry == mHolesOf.end() || entry->first != faces[i]) continue;
    mHoles.push_back(i);
    for (; entry != mHolesOf.end() && entry->first == faces[i]; ++entry) mHoles.push_back(numberInSet(entry->second));
    mHoles.push_back(kNone);
  }
  return {nullptr,
          static_cast<int>(mCoordinates.size()),
          mCoordinates.data(),
          mIndices.data(),
          static_cast<int>(mCounts.size()),
          mCounts.data(),
          mHoles.empty() ? nullptr : mHoles.data(),
          static_cast<int>(mHoles.size()),
          nullptr};
}

}  // namespace tool
