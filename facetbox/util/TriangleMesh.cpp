#include <facetbox/util/TriangleMesh.h>

#include <utility>

#include <facetbox/triangles/EdgeList.h>
#include <facetbox/triangles/TriangleBvh.h>
#include <facetbox/triangles/TriangleMeshFactory.h>

namespace util {

TriangleMesh::TriangleMesh(TriangleMeshArrays&& arrays) noexcept
    : mVertexCoordinates(std::move(arrays.vertexCoordinates)),
      mSecondCoordinates(std::move(arrays.secondCoordinates)),
      mCoordinateSets(std::move(arrays.coordinateSets)),
      mIndices(std::move(arrays.indices)),
      mEdgePairs(std::move(arrays.edgePairs)) {}

TriangleMesh::~TriangleMesh() = default;

void TriangleMesh::buildHierarchy() { mHierarchy = std::make_unique<TriangleBvh>(mVertexCoordinates, mIndices); }

void TriangleMesh::buildEdges() {
  mEdges = std::make_shared<const EdgeList>(listEdges(mIndices, mVertexCoordinates.size() / 3));
}

TriangleMesh* Triangulator::TriangleMeshFactory::create(TriangleMeshArrays&& arrays) const {
  return new TriangleMesh(std::move(arrays));
}

}  // namespace util
