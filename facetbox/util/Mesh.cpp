#include <facetbox/util/Mesh.h>

#include <algorithm>
#include <span>
#include <stdexcept>
#include <utility>

#include <facetbox/math/Matrix4.h>
#include <facetbox/mesh/FaceRenumbering.h>
#include <facetbox/mesh/FlipFace.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/Polygon.h>
#include <facetbox/mesh/PolygonArea.h>

namespace util {
namespace {

constexpr std::int32_t kFewestCorners = 3;

/// The flat arrays that the two array constructors have in common.
struct FaceArrays {
  const std::uint32_t* indices;
  const std::uint32_t* texCoordIndices;  ///< null without texture coordinates
  bool hasTexCoords;
  const std::int32_t* counts;
  std::size_t faceCount;
};

std::size_t countOf(int count) { return count > 0 ? static_cast<std::size_t>(count) : 0; }

void requireArray(const void* array, bool needed, const char* what) {
  if (needed && !array) throw std::invalid_argument(std::string("mesh has faces or vertices, but no ") + what);
}

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

/// `numberOf(i)` is the caller's number of record i.
template <class NumberOf>
[[noreturn]] void throwIndexOutOfRange(const PrimitiveList& list, std::size_t vertexCount, NumberOf numberOf) {
  for (std::size_t i = 0; i < list.size(); ++i)
    for (const std::uint32_t v : list.corners(i))
      if (v >= vertexCount)
        throw std::out_of_range("face " + std::to_string(numberOf(i)) + " refers to vertex " + std::to_string(v) +
                                ", but the mesh has " + std::to_string(vertexCount) + " vertices");
  throw std::logic_error("no index is out of range");
}

/// Everything after this check may rely on the indices. `numberOf(i)` is the caller's number of record i.
template <class NumberOf>
void checkIndices(const PrimitiveList& list, std::size_t vertexCount, NumberOf numberOf) {
  std::uint32_t largest = 0;
  bool any = false;
  for (std::size_t i = 0; i < list.size(); ++i)
    for (const std::uint32_t v : list.corners(i)) {
      largest = std::max(largest, v);
      any = true;
    }
  if (any && largest >= vertexCount) throwIndexOutOfRange(list, vertexCount, numberOf);
}

/// Reads the faces; those of fewer than three corners are left out. `renumbering` learns which, unless null.
/// Returns the number of faces left out.
std::size_t readFaces(const FaceArrays& in, std::size_t vertexCount, FaceRenumbering* renumbering,
                      PrimitiveList& faces) {
  std::size_t legalCount = 0, cornerCount = 0;
  for (std::size_t f = 0; f < in.faceCount; ++f) {
    if (in.counts[f] < kFewestCorners) continue;
    ++legalCount;
    cornerCount += static_cast<std::size_t>(in.counts[f]);
  }
  requireArray(in.indices, cornerCount > 0, "vertex indices");
  requireArray(in.texCoordIndices, in.hasTexCoords && cornerCount > 0, "texture-coordinate indices");
  if (cornerCount > 0xFFFFFFFFu) throw std::length_error("mesh has more than 2^32 - 1 corners");

  Buffer<std::uint32_t> counts(legalCount), corners(cornerCount);
  Buffer<std::uint32_t> texCoordIndices(in.texCoordIndices ? cornerCount : 0);
  if (legalCount == in.faceCount) {
    // The arrays are back to back already.
    std::copy_n(in.counts, legalCount, counts.begin());
    std::copy_n(in.indices, cornerCount, corners.begin());
    if (in.texCoordIndices) std::copy_n(in.texCoordIndices, cornerCount, texCoordIndices.begin());
  } else {
    std::int64_t position = 0;
    std::size_t face = 0, end = 0;
    for (std::size_t f = 0; f < in.faceCount; ++f) {
      const std::int32_t count = in.counts[f];
      if (count >= kFewestCorners) {
        counts[face++] = static_cast<std::uint32_t>(count);
        std::copy_n(in.indices + position, count, corners.begin() + static_cast<std::ptrdiff_t>(end));
        if (in.texCoordIndices)
          std::copy_n(in.texCoordIndices + position, count, texCoordIndices.begin() + static_cast<std::ptrdiff_t>(end));
        end += static_cast<std::size_t>(count);
      }
      if (renumbering) renumbering->add(count >= kFewestCorners);
      // An illegal face's indices are passed over; a negative count moves back, but never before the array.
      position = std::max<std::int64_t>(position + count, 0);
    }
  }
  faces.adopt(std::move(counts), std::move(corners), std::move(texCoordIndices));
  checkIndices(faces, vertexCount, [&](std::size_t legal) {
    std::size_t f = 0;
    while (in.counts[f] < kFewestCorners || legal-- > 0) ++f;
    return f;
  });
  return in.faceCount - legalCount;
}

void appendAll(const std::vector<Polygon>& records, std::size_t vertexCount, PrimitiveList& list) {
  for (const Polygon& record : records) list.append(record);
  checkIndices(list, vertexCount, [](std::size_t i) { return i; });
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
  const FaceArrays arrays{indices, hasTexCoords ? texCoordIndices : nullptr, hasTexCoords, counts, countOf(faceCount)};
  requireArray(counts, arrays.faceCount > 0, "corner counts");
  const bool mustRenumber = !m.mHoles.empty() || !m.mRunStarts.empty();
  FaceRenumbering renumbering(mustRenumber ? arrays.faceCount : 0);
  const std::size_t illegalCount =
      readFaces(arrays, m.mVertices.size(), mustRenumber ? &renumbering : nullptr, m.mFaces);
  recomputeFaceNormals(*this);
  if (illegalCount == 0) return;

  m.renumberFaces(renumbering);
  removeUnusedVertices(*this);
  if (log)
    *log =
        "Constructing Mesh from array : " + std::to_string(illegalCount) + " illegal faces (<3 vertices) were ignored.";
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
