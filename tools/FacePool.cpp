#include <tools/FacePool.h>

#include <limits>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {

using facetbox::kNone;

std::uint32_t FacePool::endFace(std::size_t object) const {
  return object + 1 < mObjects.size() ? mObjects[object + 1].mFirstFace : static_cast<std::uint32_t>(faceCount());
}

FacePool poolOf(const facetbox::Model& model, const std::string& name) {
  FacePool pool;
  for (const facetbox::Material& material : model.materials) pool.mMaterials.push_back(material.name);
  const std::size_t largest = std::numeric_limits<int>::max();
  for (const facetbox::Object& object : model.objects) {
    const facetbox::PolyMesh& mesh = object.mesh;
    const auto firstVertex = static_cast<std::uint32_t>(pool.vertexCount());
    const auto firstFace = static_cast<std::uint32_t>(pool.faceCount());
    if (pool.mVertices.size() + mesh.points.size() > largest || pool.mIndices.size() + mesh.indices.size() > largest)
      throw InputError(
          fmt::format("{}: is too large: more than {} numbers in one list; split the model", name, largest));
    pool.mObjects.push_back({object.name, firstFace});
    pool.mVertices.insert(pool.mVertices.end(), mesh.points.begin(), mesh.points.end());
    pool.mCounts.insert(pool.mCounts.end(), mesh.counts.begin(), mesh.counts.end());
    for (const std::uint32_t index : mesh.indices) pool.mIndices.push_back(firstVertex + index);
    for (const std::uint32_t entry : mesh.holes) pool.mHoles.push_back(entry == kNone ? kNone : firstFace + entry);
    for (const std::uint32_t label : mesh.labels) pool.mMaterialOf.push_back(model.marks[label].material);
    pool.mMaterialOf.resize(pool.faceCount(), kNone);
  }
  return pool;
}

}  // namespace tool
