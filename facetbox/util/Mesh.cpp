#include <facetbox/util/Mesh.h>

#include <algorithm>
#include <span>
#include <stdexcept>
#include <utility>

#include <facetbox/math/Matrix4.h>
#include <facetbox/mesh/FillFaces.h>
#include <facetbox/mesh/FlipFace.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/Polygon.h>
#include <facetbox/mesh/PolygonArea.h>

namespace util {
namespace {

std::size_t countOf(int count) { return count > 0 ? static_cast<std::size_t>(count) : 0; }

void readVertices(int coordCount, const float* coords, Buffer<Vec3>& vertices) {
  const std::size_t count = countOf(coordCount) / 3;
  requireArray(coords, count > 0, "vertex coordinates");
  vertices.resize(count);
  for (std::size_t v = 0; v < count; ++v) vertices[v] = {coords[3 * v], coords[3 * v + 1], coords[3 * v + 2]};
}

void readTexCoords(int coordCount, const float* coords, Buffer<Vec2>& texCoords) {
  const std::size_t count = countOf(coordCount) / 2;
  requireArray(coords, count > 0, "texture coordinates");
  texCoords.resize(count);
  for (std::size_t p = 0; p < count; ++p) texCoords[p] = {coords[2 * p], coords[2 * p + 1]};
}

void appendAll(const std::vector<Polygon>& records, std::size_t vertexCount, PrimitiveList& list) {
  for (const Polygon& record : records) list.append(record);
  checkIndices(list, vertexCount);
}

}  // namespace

MeshBase::~MeshBase() = default;

Mesh::Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int faceCount,
           const std::int32_t* counts, const std::uint32_t* holes, int holesCount, std::string* log)
    : Mesh(name, coordCount, coords, indices, 0, nullptr, nullptr, faceCount, counts, holes, holesCount, nullptr,
           nullptr, log) {}

Mesh::Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int texCoordCount,
           const float* texCoords, const std::uint32_t* texCoordIndices, int faceCount, const std::int32_t* counts,
           const std::uint32_t* holes, int holesCount, const MaterialPair* materials, const std::uint32_t* runStarts,
           std::string* log)
    : mStorage(std::make_unique<MeshStorage>()) {
  if (materials || runStarts) throw std::invalid_argument("material runs are not for hosts to hand in");
  build(name, coordCount, coords, indices, texCoordCount, texCoords, texCoordIndices, faceCount, counts, holes,
        holesCount, log);
}

Mesh::Mesh(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int texCoordCount,
           const float* texCoords, const std::uint32_t* texCoordIndices, int faceCount, const std::int32_t* counts,
           const std::uint32_t* holes, int holesCount, std::vector<MaterialPair> materials,
           std::span<const std::uint32_t> runStarts, std::string* log)
    : mStorage(std::make_unique<MeshStorage>()) {
  mStorage->mRunMaterials = std::move(materials);
  mStorage->mRunStarts.assign(runStarts.begin(), runStarts.end());
  build(name, coordCount, coords, indices, texCoordCount, texCoords, texCoordIndices, faceCount, counts, holes,
        holesCount, log);
}

void Mesh::build(const char* name, int coordCount, const float* coords, const std::uint32_t* indices, int texCoordCount,
                 const float* texCoords, const std::uint32_t* texCoordIndices, int faceCount,
                 const std::int32_t* counts, const std::uint32_t* holes, int holesCount, std::string* log) {
  MeshStorage& m = *mStorage;
  if (name) m.mName = name;
  readVertices(coordCount, coords, m.mVertices);
  readTexCoords(texCoordCount, texCoords, m.mTexCoords[0]);
  if (holes) m.mHoles.append(holes, countOf(holesCount));

  const bool hasTexCoords = !m.mTexCoords[0].empty();
  const FaceArrays<std::int32_t> arrays{counts, countOf(faceCount), indices, hasTexCoords ? texCoordIndices : nullptr,
                                        hasTexCoords};
  const std::size_t leftOut = fillFaces(*this, arrays, Indices::unchecked);
  if (leftOut != 0 && log)
    *log = "Constructing Mesh from array : " + std::to_string(leftOut) + " illegal faces (<3 vertices) were ignored.";
}

Mesh::Mesh(const std::string& name, const std::vector<Vec3>& vertices, const std::vector<Polygon>& faces)
    : mStorage(std::make_unique<MeshStorage>()) {
  mStorage->mName = name;
  mStorage->mVertices.assign(vertices.begin(), vertices.end());
  appendAll(faces, vertices.size(), mStorage->mFaces);
}

Mesh::Mesh(const std::string& name, const std::vector<Vec3>& vertices, const std::vector<Polygon>& lines,
           const std::vector<Polygon>& points)
    : mStorage(std::make_unique<MeshStorage>()) {
  mStorage->mName = name;
  mStorage->mVertices.assign(vertices.begin(), vertices.end());
  appendAll(lines, vertices.size(), mStorage->mLines);
  appendAll(points, vertices.size(), mStorage->mPoints);
}

Mesh::Mesh(const Mesh& other) : MeshBase(other), mStorage(std::make_unique<MeshStorage>(*other.mStorage)) {}

Mesh::Mesh(const Mesh& other, bool withMaterialsAndHoles) : Mesh(other) {
  if (withMaterialsAndHoles) return;
  mStorage->mDefaultMaterial = {};
  mStorage->mRunMaterials.clear();
  mStorage->mRunStarts.clear();
  mStorage->mHoles.clear();
}

Mesh& Mesh::operator=(const Mesh& other) {
  if (this != &other) *mStorage = *other.mStorage;
  return *this;
}

Mesh::~Mesh() = default;

Mesh* Mesh::clone(bool withMaterialsAndHoles) const { return new Mesh(*this, withMaterialsAndHoles); }

Mesh* Mesh::derive(const double* matrix, bool reverseMirrored) const {
  auto derived = std::make_unique<Mesh>(*this);
  MeshStorage& m = *derived->mStorage;
  m.mHoles.clear();
  m.mNormals.clear();
  for (PrimitiveList* list : {&m.mFaces, &m.mLines, &m.mPoints}) list->dropNormalIndices();
  if (matrix) {
    for (Vec3& vertex : m.mVertices) vertex = transformPoint(matrix, vertex);
    if (reverseMirrored && mirrors(matrix))
      for (std::size_t face = 0; face < m.mFaces.size(); ++face) flipFace(m.mFaces, face);
  }
  recomputeFaceNormals(*derived);
  return derived.release();
}

}  // namespace util
