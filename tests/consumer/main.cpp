// Uses what a host may use and nothing else; prints the version and what is left of a mesh.

#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <facetbox/Scene.h>
#include <facetbox/cleanup/Cleanup.h>
#include <facetbox/intersector/Intersector.h>
#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>
#include <facetbox/picker/Picker.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/RuntimeErrorST.h>
#include <facetbox/util/Triangulator.h>
#include <facetbox/version.h>
#include <facetbox/viewVolume.h>

int main() {
  if (std::strcmp(facetbox::version(), FACETBOX_VERSION_STRING) != 0) return 1;

  float coords[] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  std::uint32_t indices[] = {0, 1, 2};
  const std::int32_t counts[] = {3};
  std::string log;
  const util::Mesh mesh("triangle", 9, coords, indices, 1, counts, nullptr, 0, &log);
  delete mesh.clone(true);
  delete mesh.derive(nullptr, false);

  util::Triangulator triangulator;
  const std::unique_ptr<util::TriangleMesh> triangles(
      triangulator.triangulate(mesh, std::vector<double>(coords, coords + 9), 1));
  if (triangles->indices().size() != 3 || triangles->edgePairs().size() != 6) return 1;

  const std::unique_ptr<Picker> picker(Picker::createPicker());
  const std::size_t handle = picker->createHandle();
  const double place[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  picker->addEntry(handle, 7, {&mesh}, place);
  const float view[16] = {0.5f, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, -0.5f, 0, 0, 0, 0, 1};
  float corners[24];
  std::uint32_t id = 0;
  if (!facetbox::viewVolumeCorners(view, corners)) return 1;
  if (picker->pickFrustum(handle, corners, view, true, &id, 1) != 1 || id != 7) return 1;
  picker->dispose(handle);
  if (Picker::getAssociatedPicker(handle) != picker.get()) return 1;

  const std::unique_ptr<Intersector> intersector(Intersector::createIntersector());
  const std::size_t object = intersector->createHandle();
  intersector->addEntry(object, mesh, place, triangulator);
  if (!intersector->setOABBox(object, mesh, triangulator)) return 1;
  if (!intersector->intersectsFrustum(object, view, true)) return 1;
  const float origin[3] = {0.25f, 0.25f, 2}, direction[3] = {0, 0, -1};
  float distance = 0;
  if (!intersector->intersectsRay(object, origin, direction, &distance, nullptr) || distance != 2) return 1;
  if (Intersector::getAssociatedIntersector(object) != intersector.get()) return 1;

  facetbox::Scene scene;
  const facetbox::Id placed =
      scene.add(std::make_shared<const facetbox::PolyMesh>(
                    facetbox::PolyMesh{.points = {0, 0, 0, 1, 0, 0, 0, 1, 0}, .counts = {3}, .indices = {0, 1, 2}}),
                {{{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, -1}}});
  const double from[] = {0.25, 0.25, 2}, down[] = {0, 0, -1};
  const facetbox::Hits hits = scene.castRays(from, down);
  if (hits.t[0] != 3 || hits.id[0] != placed || hits.normal[2] != 1) return 1;
  if (scene.anyHit(from, down)[0] != 1 || scene.nearest(from)[0]->distance != 3) return 1;

  // Exceptions must be caught across the library's border by their type.
  try {
    throw util::RuntimeErrorST("thrown by the host");
  } catch (const std::runtime_error& error) {
    if (!dynamic_cast<const util::RuntimeErrorST*>(&error)) return 1;
  }
  const std::uint32_t beyond[] = {0, 1, 9};
  try {
    const util::Mesh broken("", 9, coords, beyond, 1, counts, nullptr, 0, nullptr);
    return 1;
  } catch (const std::out_of_range&) {
  }

  std::uint32_t sizes[] = {3};
  Cleanup::MeshData data{};
  data.mVertexCoords = coords;
  data.mVCCount = 9;
  data.mIndices = indices;
  data.mCounts = sizes;
  data.mCountCount = 1;
  const Cleanup::MeshData* result = Cleanup::removeFacesZero(0.1f, data);
  if (!result) return 1;
  std::printf("facetbox %s: %d face\n", facetbox::version(), result->mCountCount);
  Cleanup::freeMeshDataAndHoles(result);

  std::vector<float> many(3000, std::numeric_limits<float>::infinity());
  data.mVertexCoords = many.data();
  data.mVCCount = 3000;
  try {
    Cleanup::mergeVertices(0.1f, data);
    return 1;
  } catch (const util::RuntimeErrorST&) {
  }

  const facetbox::Model model =
      facetbox::parseModel("v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", facetbox::Format::obj, "memory");
  std::string text;
  facetbox::writeModel(model, facetbox::Format::obj, [&text](std::string_view bytes) { text += bytes; });
  if (text.find("f 1 2 3") == std::string::npos) return 1;
  try {
    facetbox::parseModel("v 0 0", facetbox::Format::obj, "memory");
    return 1;
  } catch (const facetbox::ReadError&) {
  }
}
