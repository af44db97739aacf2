#include <facetbox/io/JoinedObjects.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <facetbox/io/CutFaces.h>
#include <facetbox/io/LeftOut.h>

namespace facetbox {
namespace {

bool areSamePairs(const PolyMesh& mesh, std::uint32_t a, std::uint32_t b) {
  return a == b ||
         std::memcmp(&mesh.texCoords[2 * std::size_t{a}], &mesh.texCoords[2 * std::size_t{b}], 2 * sizeof(double)) == 0;
}

std::vector<std::uint32_t> pairsOfVertices(const PolyMesh& mesh) {
  const std::size_t vertexCount = mesh.points.size() / 3;
  std::vector<std::uint32_t> pairs(vertexCount, kNone);
  if (mesh.texIndices.empty()) return {};
  // Pairs that are numbered as the vertices belong to unused ones too.
  if (mesh.texCoords.size() == vertexCount * 2 && mesh.texIndices == mesh.indices) {
    for (std::uint32_t vertex = 0; vertex < vertexCount; ++vertex) pairs[vertex] = vertex;
    return pairs;
  }
  for (std::size_t corner = 0; corner < mesh.indices.size(); ++corner) {
    std::uint32_t& pair = pairs[mesh.indices[corner]];
    const std::uint32_t here = mesh.texIndices[corner];
    if (pair == kNone) pair = here;
    if (here == kNone || !areSamePairs(mesh, pair, here)) return {};
  }
  if (std::ranges::find(pairs, kNone) != pairs.end()) return {};
  return pairs;
}

}  // namespace

JoinedObjects::JoinedObjects(const Model& model, Notes& notes) {
  for (const Object& object : model.objects) {
    const PolyMesh* mesh = &object.mesh;
    if (std::optional<PolyMesh> cut = cutFaces(*mesh, Unknown::facesWithHoles, notes))
      mesh = &mCutMeshes.emplace_back(std::move(*cut));
    mParts.push_back({&object, mesh, static_cast<std::uint32_t>(mVertexCount), colorsOf(object, *mesh, notes)});
    mParts.back().pairOfVertex = pairsOfVertices(*mesh);
    mVertexCount += mesh->points.size() / 3;
    const auto withoutCorners = static_cast<std::uint64_t>(std::ranges::count(mesh->counts, 0U));
    notes.add("faces without corners", withoutCorners);
    mFaceCount += mesh->counts.size() - withoutCorners;
    if (mVertexCount >= kNone || mFaceCount >= kNone) throw std::length_error("more than 2^32 - 2 vertices or faces");
  }
  if (model.objects.size() > 1) notes.add("limits between objects", model.objects.size());
  noteObjectNames(model, notes);
  noteGroups(model, notes);
  noteSemantics(model, notes);
  noteParts(model, notes);
  noteDocument(model, notes);
  checkColors(notes);
}

bool JoinedObjects::hasTexCoords() const {
  return std::ranges::any_of(mParts, [](const Part& part) { return !part.mesh->texIndices.empty(); });
}

bool JoinedObjects::hasTexCoordPerVertex() const {
  return hasTexCoords() && std::ranges::all_of(mParts, [](const Part& part) {
           return part.pairOfVertex.size() == part.mesh->points.size() / 3;
         });
}

const std::vector<float>* JoinedObjects::colorsOf(const Object& object, const PolyMesh& mesh, Notes& notes) {
  const std::size_t size = mesh.points.size() / 3 * 4;
  if (mesh.points.size() == object.mesh.points.size() || object.colors.size() != object.mesh.points.size() / 3 * 4)
    return &object.colors;
  std::vector<float>& colors = mLongerColors.emplace_back();
  colors.reserve(size);
  colors = object.colors;
  colors.resize(size, 1.0F);
  notes.add("vertices made where outlines cross, which are white", (size - object.colors.size()) / 4);
  return &colors;
}

void JoinedObjects::checkColors(Notes& notes) {
  std::size_t colors = 0;
  mHasColors = true;
  for (const Part& part : mParts) {
    const std::vector<float>& own = *part.colors;
    colors += own.size() / 4;
    mHasColors &= own.size() / 4 == part.mesh->points.size() / 3 && own.size() % 4 == 0 &&
                  std::ranges::all_of(own, [](float value) { return value >= 0 && value <= 1; });
  }
  mHasColors &= colors > 0;
  if (!mHasColors) notes.add("colors of vertices: not all have one from 0 to 1", colors);
}

const Material* materialOf(const Model& model, const PolyMesh& mesh, std::size_t face) {
  const std::uint32_t label = mesh.labels.empty() ? kNone : mesh.labels[face];
  const std::uint32_t material = label < model.marks.size() ? model.marks[label].material : kNone;
  return material < model.materials.size() ? &model.materials[material] : nullptr;
}

}  // namespace facetbox
