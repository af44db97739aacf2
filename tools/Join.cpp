#include <tools/Join.h>

#include <cstddef>
#include <map>
#include <utility>

namespace tool {

using facetbox::kNone;
using facetbox::Mark;
using facetbox::Model;
using facetbox::Object;
using facetbox::PolyMesh;

namespace {

// Moves the rows of `from` that `rows` names behind those of `to`; all of them without `rows`.
template <typename T>
void appendRow(std::vector<T>& to, const std::vector<T>& from, std::size_t row, std::size_t width) {
  const auto first = from.begin() + static_cast<std::ptrdiff_t>(row * width);
  to.insert(to.end(), first, first + static_cast<std::ptrdiff_t>(width));
}

// Renumbers to the order of first use, and tells which are used.
class Renumbering {
 public:
  explicit Renumbering(std::size_t count) : mNew(count, kNone) {}
  std::uint32_t operator()(std::uint32_t old) {
    if (mNew[old] == kNone) {
      mNew[old] = static_cast<std::uint32_t>(mUsed.size());
      mUsed.push_back(old);
    }
    return mNew[old];
  }
  const std::vector<std::uint32_t>& used() const { return mUsed; }
  void clear() {
    for (const std::uint32_t old : mUsed) mNew[old] = kNone;
    mUsed.clear();
  }

 private:
  std::vector<std::uint32_t> mNew, mUsed;
};

}  // namespace

Joined::Joined(Model model) : mMarks(model.marks) {
  std::vector<Object> objects = std::exchange(model.objects, {});
  mModel = std::move(model);
  mModel.objects.resize(1);
  mMarks.push_back({});
  const auto noMark = static_cast<std::uint32_t>(mMarks.size() - 1);
  PolyMesh& mesh = mModel.objects[0].mesh;
  bool isTextured = false, isColored = false;
  for (const Object& object : objects) {
    isTextured = isTextured || !object.mesh.texIndices.empty();
    isColored = isColored || !object.colors.empty();
  }
  std::map<std::uint32_t, std::uint32_t> vertexOf;  // by number in the file
  for (std::uint32_t number = 0; number < objects.size(); ++number) {
    Object& object = objects[number];
    const PolyMesh& part = object.mesh;
    std::vector<std::uint32_t> vertices(part.points.size() / 3);
    for (std::size_t v = 0; v < vertices.size(); ++v) {
      vertices[v] = static_cast<std::uint32_t>(mesh.points.size() / 3);
      if (!object.fileVertices.empty())
        vertices[v] = vertexOf.try_emplace(object.fileVertices[v], vertices[v]).first->second;
      if (vertices[v] < mesh.points.size() / 3) continue;
      appendRow(mesh.points, part.points, v, 3);
      if (!isColored) continue;
      if (object.colors.empty())
        mModel.objects[0].colors.resize(mesh.points.size() / 3 * 4, 1.0F);
      else
        appendRow(mModel.objects[0].colors, object.colors, v, 4);
    }
    const auto firstFace = static_cast<std::uint32_t>(mesh.counts.size());
    const auto firstPair = static_cast<std::uint32_t>(mesh.texCoords.size() / 2);
    for (const std::uint32_t index : part.indices) mesh.indices.push_back(vertices[index]);
    for (const std::uint32_t index : part.texIndices)
      mesh.texIndices.push_back(index == kNone ? kNone : firstPair + index);
    if (isTextured) mesh.texIndices.resize(mesh.indices.size(), kNone);
    for (const std::uint32_t entry : part.holes) mesh.holes.push_back(entry == kNone ? kNone : firstFace + entry);
    mesh.counts.insert(mesh.counts.end(), part.counts.begin(), part.counts.end());
    mesh.texCoords.insert(mesh.texCoords.end(), part.texCoords.begin(), part.texCoords.end());
    std::map<std::uint32_t, std::uint32_t> labelOf;  // of a mark, in this object
    for (std::size_t face = 0; face < part.counts.size(); ++face) {
      const std::uint32_t mark = part.labels.empty() ? noMark : part.labels[face];
      const auto [label, isNew] = labelOf.try_emplace(mark, static_cast<std::uint32_t>(mMarkOf.size()));
      if (isNew) {
        mMarkOf.push_back(mark);
        mObjectOf.push_back(number);
      }
      mesh.labels.push_back(label->second);
    }
    mNames.push_back(std::move(object.name));
    mPlaces.push_back(std::move(object.place));
    object = {};
  }
  mModel.marks.clear();
  for (const std::uint32_t mark : mMarkOf) mModel.marks.push_back(mMarks[mark]);
}

Model Joined::split(Model changed) const {
  std::vector<Object> all = std::exchange(changed.objects, {});
  changed.marks = mMarks;
  if (all.empty()) return changed;
  const PolyMesh& mesh = all[0].mesh;
  std::vector<std::vector<std::uint32_t>> facesOf(mNames.size());
  std::vector<std::size_t> firstCorners(mesh.counts.size());
  std::size_t corners = 0;
  for (std::uint32_t face = 0; face < mesh.counts.size(); ++face) {
    facesOf[mObjectOf[mesh.labels[face]]].push_back(face);
    firstCorners[face] = corners;
    corners += mesh.counts[face];
  }
  std::map<std::uint32_t, std::vector<std::uint32_t>> holesOf;
  for (auto entry = mesh.holes.begin(); entry != mesh.holes.end(); ++entry) {
    const std::uint32_t outer = *entry;
    while (*++entry != kNone) holesOf[outer].push_back(*entry);
  }
  // A hole belongs to the object of its outer face.
  std::vector<std::uint32_t> homeOf(mesh.counts.size());
  for (std::uint32_t face = 0; face < homeOf.size(); ++face) homeOf[face] = mObjectOf[mesh.labels[face]];
  for (const auto& [outer, holes] : holesOf)
    for (const std::uint32_t hole : holes) homeOf[hole] = homeOf[outer];
  for (auto& faces : facesOf) faces.clear();
  for (std::uint32_t face = 0; face < homeOf.size(); ++face) facesOf[homeOf[face]].push_back(face);

  Renumbering vertices(mesh.points.size() / 3), pairs(mesh.texCoords.size() / 2), faceNumbers(mesh.counts.size());
  for (std::size_t number = 0; number < facesOf.size(); ++number) {
    if (facesOf[number].empty()) continue;
    Object object{.name = mNames[number], .place = mPlaces[number]};
    PolyMesh& part = object.mesh;
    bool isTextured = false;
    for (const std::uint32_t face : facesOf[number]) {
      faceNumbers(face);
      part.counts.push_back(mesh.counts[face]);
      part.labels.push_back(mMarkOf[mesh.labels[face]]);
      for (std::size_t corner = firstCorners[face]; corner < firstCorners[face] + mesh.counts[face]; ++corner) {
        part.indices.push_back(vertices(mesh.indices[corner]));
        if (mesh.texIndices.empty()) continue;
        const std::uint32_t pair = mesh.texIndices[corner];
        isTextured = isTextured || pair != kNone;
        part.texIndices.push_back(pair == kNone ? kNone : pairs(pair));
      }
    }
    if (!isTextured) part.texIndices.clear();
    for (const std::uint32_t face : facesOf[number]) {
      const auto holes = holesOf.find(face);
      if (holes == holesOf.end()) continue;
      part.holes.push_back(faceNumbers(face));
      for (const std::uint32_t hole : holes->second) part.holes.push_back(faceNumbers(hole));
      part.holes.push_back(kNone);
    }
    for (const std::uint32_t vertex : vertices.used()) {
      appendRow(part.points, mesh.points, vertex, 3);
      if (!all[0].colors.empty()) appendRow(object.colors, all[0].colors, vertex, 4);
    }
    object.fileVertices = vertices.used();
    for (const std::uint32_t pair : pairs.used()) appendRow(part.texCoords, mesh.texCoords, pair, 2);
    changed.objects.push_back(std::move(object));
    vertices.clear();
    pairs.clear();
    faceNumbers.clear();
  }
  return changed;
}

}  // namespace tool
