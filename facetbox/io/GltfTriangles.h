#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// A mesh as triangles. Faces that are triangles stay as they are, the others are cut, and holes left open.
class GltfTriangles {
 public:
  /// Notes what has been cut, made and left out.
  GltfTriangles(const PolyMesh& mesh, Notes& notes);
  GltfTriangles(const GltfTriangles&) = delete;
  GltfTriangles& operator=(const GltfTriangles&) = delete;

  std::size_t size() const { return mCorners.size() / 3; }
  std::size_t vertexCount() const { return mPointCount + mMadePoints.size() / 3; }

  /// Vertices, three per triangle.
  std::span<const std::uint32_t> corners() const { return mCorners; }
  /// Pairs of texture coordinates, kNone for none; empty where the mesh has none.
  std::span<const std::uint32_t> pairs() const { return mPairs; }
  std::uint32_t face(std::size_t triangle) const {
    return mFaces.empty() ? static_cast<std::uint32_t>(triangle) : mFaces[triangle];
  }
  const double* point(std::uint32_t vertex) const {
    return vertex < mPointCount ? &mMesh.points[3 * std::size_t{vertex}] : &mMadePoints[3 * (vertex - mPointCount)];
  }
  const double* texCoord(std::uint32_t pair) const {
    const std::size_t first = 2 * std::size_t{pair};
    return first < mMesh.texCoords.size() ? &mMesh.texCoords[first] : &mMadeTexCoords[first - mMesh.texCoords.size()];
  }

 private:
  void cut(Notes& notes);

  const PolyMesh& mMesh;
  const std::size_t mPointCount;
  std::span<const std::uint32_t> mCorners, mPairs;
  // Of meshes with other faces than triangles.
  std::vector<std::uint32_t> mOwnCorners, mOwnPairs, mFaces;
  std::vector<double> mMadePoints, mMadeTexCoords;
};

}  // namespace facetbox
