#include <facetbox/mesh/FillFaces.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <facetbox/base/Buffer.h>
#include <facetbox/mesh/FaceRenumbering.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {
namespace {

constexpr int kFewestCorners = 3;

template <class Count>
bool isLegal(Count count) {
  return count >= static_cast<Count>(kFewestCorners);
}

/// `numberOf(i)` is the caller's number of record i.
template <class NumberOf>
void checkIndices(const PrimitiveList& list, std::size_t vertexCount, NumberOf numberOf) {
  std::uint32_t largest = 0;
  bool any = false;
  for (std::size_t i = 0; i < list.size(); ++i)
    for (const std::uint32_t v : list.corners(i)) {
      largest = std::max(largest, v);
      any = true;
    }
  if (!any || largest < vertexCount) return;
  for (std::size_t i = 0; i < list.size(); ++i)
    for (const std::uint32_t v : list.corners(i))
      if (v >= vertexCount)
        throw std::out_of_range("face " + std::to_string(numberOf(i)) + " refers to vertex " + std::to_string(v) +
                                ", but the mesh has " + std::to_string(vertexCount) + " vertices");
}

/// The sizes of what is not left out.
struct Legal {
  std::size_t faces = 0, corners = 0;
};

template <class Count>
Legal countLegal(const FaceArrays<Count>& in) {
  Legal legal;
  for (std::size_t f = 0; f < in.faceCount; ++f) {
    if (!isLegal(in.counts[f])) continue;
    ++legal.faces;
    legal.corners += static_cast<std::size_t>(in.counts[f]);
  }
  return legal;
}

/// Copies the legal faces, which are not all.
template <class Count>
void copyLegal(const FaceArrays<Count>& in, std::uint32_t* counts, std::uint32_t* corners,
               std::uint32_t* texCoordIndices) {
  std::int64_t position = 0;
  for (std::size_t f = 0; f < in.faceCount; ++f) {
    const std::int64_t count = in.counts[f];
    if (isLegal(in.counts[f])) {
      *counts++ = static_cast<std::uint32_t>(count);
      corners = std::copy_n(in.indices + position, count, corners);
      if (in.texCoordIndices) texCoordIndices = std::copy_n(in.texCoordIndices + position, count, texCoordIndices);
    }
    position = std::max<std::int64_t>(position + count, 0);
  }
}

template <class Count>
void readFaces(const FaceArrays<Count>& in, const Legal& legal, PrimitiveList& faces) {
  requireArray(in.indices, legal.corners > 0, "vertex indices");
  requireArray(in.texCoordIndices, in.hasTexCoords && legal.corners > 0, "texture-coordinate indices");
  if (legal.corners > 0xFFFFFFFFu) throw std::length_error("mesh has more than 2^32 - 1 corners");

  Buffer<std::uint32_t> counts(legal.faces), corners(legal.corners);
  Buffer<std::uint32_t> texCoordIndices(in.texCoordIndices ? legal.corners : 0);
  if (legal.faces == in.faceCount) {
    // The arrays are back to back already.
    std::copy_n(in.counts, legal.faces, counts.begin());
    std::copy_n(in.indices, legal.corners, corners.begin());
    if (in.texCoordIndices) std::copy_n(in.texCoordIndices, legal.corners, texCoordIndices.begin());
  } else {
    copyLegal(in, counts.data(), corners.data(), texCoordIndices.data());
  }
  faces.adopt(std::move(counts), std::move(corners), std::move(texCoordIndices));
}

}  // namespace

void requireArray(const void* array, bool needed, const char* what) {
  if (needed && !array) throw std::invalid_argument(std::string("mesh has faces or vertices, but no ") + what);
}

void checkIndices(const PrimitiveList& list, std::size_t vertexCount) {
  checkIndices(list, vertexCount, [](std::size_t i) { return i; });
}

template <class Count>
std::size_t fillFaces(Mesh& mesh, const FaceArrays<Count>& in, Indices indices, Normals normals) {
  MeshStorage& m = mesh.storage();
  requireArray(in.counts, in.faceCount > 0, "corner counts");
  const Legal legal = countLegal(in);
  readFaces(in, legal, m.mFaces);
  if (indices == Indices::unchecked)
    checkIndices(m.mFaces, m.mVertices.size(), [&](std::size_t number) {
      std::size_t f = 0;
      while (!isLegal(in.counts[f]) || number-- > 0) ++f;
      return f;
    });
  if (normals == Normals::computed)
    recomputeFaceNormals(mesh);
  else
    m.mFaces.dropNormals();
  if (legal.faces == in.faceCount) return 0;

  if (!m.mHoles.empty() || !m.mRunStarts.empty() || m.mHistory) {
    FaceRenumbering renumbering(in.faceCount);
    for (std::size_t f = 0; f < in.faceCount; ++f) renumbering.add(isLegal(in.counts[f]));
    m.renumberFaces(renumbering);
  }
  removeUnusedVertices(mesh);
  return in.faceCount - legal.faces;
}

template std::size_t fillFaces(Mesh&, const FaceArrays<std::int32_t>&, Indices, Normals);
template std::size_t fillFaces(Mesh&, const FaceArrays<std::uint32_t>&, Indices, Normals);

}  // namespace util
