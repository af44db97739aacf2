#include <facetbox/io/GltfMeshes.h>

#include <algorithm>
#include <cmath>

#include <facetbox/io/GltfMesh.h>

namespace facetbox {

GltfMeshes::GltfMeshes(GltfFile& file, std::vector<Mark>& marks) : mFile(file), mMarks(marks), mAccessors(file) {
  mFile.take(mFile.count("meshes") * sizeof(Mesh), mFile.root());
  mMeshes.resize(mFile.count("meshes"));
}

bool GltfMeshes::show(const JsonValue& index, const GltfTransform& transform, Object& object) {
  const JsonValue value = mFile.element("meshes", index);
  Mesh& mesh = meshOf(index);
  const bool isMirrored = transform.isMirroring();
  if (mesh.shown++ == 0) {
    if (const auto name = value.find("name")) mesh.name = name->string();
    mFile.take(mesh.name.size(), value);
    mesh.isEmpty = !GltfMesh(mFile, value, mMarks, mAccessors, mTouched).read(isMirrored, object);
  } else if (!mesh.isEmpty) {
    readAgain(value, mesh, isMirrored, object);
  }
  if (mesh.isEmpty) return false;
  mFile.take(mesh.name.size(), value);
  object.name = mesh.name;
  place(value, transform, object.mesh);
  return true;
}

void GltfMeshes::readAgain(const JsonValue& value, Mesh& mesh, bool isMirrored, Object& object) {
  std::unique_ptr<const Object>& kept = mesh.kept[isMirrored ? 1 : 0];
  if (!kept) {
    auto read = std::make_unique<Object>();
    GltfMesh(mFile, value, mMarks, mAccessors, mTouched, GltfMesh::Notes::wereTaken).read(isMirrored, *read);
    kept = std::move(read);
  }
  mFile.take(GltfMesh::memoryOf(*kept), value);
  object = *kept;
}

void GltfMeshes::place(const JsonValue& value, const GltfTransform& transform, PolyMesh& mesh) const {
  for (std::size_t i = 0; i < mesh.points.size(); i += 3) {
    mFile.context().poll();
    transform.apply(&mesh.points[i]);
    if (!std::isfinite(mesh.points[i]) || !std::isfinite(mesh.points[i + 1]) || !std::isfinite(mesh.points[i + 2]))
      value.fail("the node places a vertex where no number reaches");
  }
}

void GltfMeshes::noteOtherName(const JsonValue& index, const std::string& nameOfNode) {
  Mesh& mesh = meshOf(index);
  if (mesh.isNameNoted || mesh.name.empty() || mesh.name == nameOfNode) return;
  mesh.isNameNoted = true;
  mFile.context().notes().add("names of meshes whose nodes have other ones");
}

void GltfMeshes::noteUnused() const {
  facetbox::Notes& notes = mFile.context().notes();
  notes.add("meshes outside of the scene",
            static_cast<std::size_t>(std::ranges::count(mMeshes, std::size_t{0}, &Mesh::shown)));
  for (const auto& [accessor, elements] : mTouched)
    notes.add("vertices that no triangle uses",
              static_cast<std::size_t>(std::count(elements.begin(), elements.end(), false)));
}

}  // namespace facetbox
