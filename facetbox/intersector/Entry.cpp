#include <facetbox/intersector/Entry.h>

#include <cstddef>
#include <span>
#include <utility>

#include <facetbox/math/Matrix4.h>
#include <facetbox/triangles/FrustumCulling.h>
#include <facetbox/triangles/TriangleMeshFactory.h>

namespace util {

namespace {

/// A mesh in the world gets a new hierarchy wherever it is moved to. That pays beyond this number of triangles only,
/// which a mesh of few vertices hardly ever has.
constexpr std::size_t kManyTriangles = 64;

/// A copy, for others may be looking at the mesh: an instance's is never shared, but what is known about it is.
std::shared_ptr<TriangleMesh> moved(const TriangleMesh& mesh, const Vec3& offset) {
  const std::span<const double> from = mesh.vertexCoordinates();
  TriangleMeshArrays arrays;
  arrays.vertexCoordinates.reserve(from.size());
  for (std::size_t v = 0; v + 2 < from.size(); v += 3)
    for (const double coordinate : {from[v] + offset.x, from[v + 1] + offset.y, from[v + 2] + offset.z})
      arrays.vertexCoordinates.push_back(coordinate);
  arrays.indices.assign(mesh.indices().begin(), mesh.indices().end());
  const std::shared_ptr<TriangleMesh> copy(Triangulator::TriangleMeshFactory().create(std::move(arrays)));
  copy->shareEdgesOf(mesh);
  return copy;
}

}  // namespace

void prepareForQueries(TriangleMesh& mesh) {
  if (mesh.indices().size() > 3 * kManyTriangles) mesh.buildHierarchy();
}

void Entry::relocate(const Vec3& offset) {
  // First all that may fail.
  std::shared_ptr<const TriangleMesh> box = mBox ? moved(*mBox, offset) : nullptr;
  std::vector<std::shared_ptr<const TriangleMesh>> meshes;
  meshes.reserve(mInstances.size());
  for (const Instance& instance : mInstances) {
    if (instance.mTransform) {
      meshes.push_back(instance.mMesh);
      continue;
    }
    const std::shared_ptr<TriangleMesh> mesh = moved(*instance.mMesh, offset);
    prepareForQueries(*mesh);
    meshes.push_back(mesh);
  }

  mBox = std::move(box);
  const double translation[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, offset.x, offset.y, offset.z, 1};
  for (std::size_t i = 0; i < meshes.size(); ++i) {
    Instance& instance = mInstances[i];
    instance.mMesh = std::move(meshes[i]);
    instance.mRayTransform.reset();
    if (!instance.mTransform) continue;
    const std::array<double, 16> from = *instance.mTransform;
    multiply(translation, from.data(), instance.mTransform->data());
  }
}

}  // namespace util
