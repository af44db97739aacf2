#include <tools/Triangles.h>

#include <algorithm>
#include <array>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include <fmt/format.h>

#include <facetbox/util/Triangulator.h>
#include <tools/Errors.h>
#include <tools/MeshMaker.h>

namespace tool {
namespace {

class Maker {
 public:
  Maker(const Model& model, const std::string& name)
      : mModel(model), mName(name), mMeshes(model), mLabels(labelsOf(model)) {
    mResult.mTexCoords = model.mTexCoords;
    mResult.mMaterials = model.mMaterials;
    mResult.mGroups = model.mGroups;
    mResult.mLibraries = model.mLibraries;
  }

  Model run() {
    const FaceSets sets = groupFaces(mModel, Grouping::face);
    std::size_t set = 0;
    for (std::size_t object = 0; object < mModel.mObjects.size(); ++object) {
      mResult.mObjects.push_back(mModel.mObjects[object]);
      mResult.mObjects.back().mFirstFace = static_cast<std::uint32_t>(mResult.faceCount());
      // Numbers count from 1.
      for (; set < sets.size() && sets.mNumbers[set] <= mModel.endFace(object); ++set)
        addFace(sets.mNumbers[set] - 1, sets.faces(set));
      mAddedEnds.push_back(mAdded.size());
    }
    placeVertices();
    return std::move(mResult);
  }

 private:
  void addFace(std::uint32_t face, std::span<const std::uint32_t> faces) {
    if (faces.size() == 1 && mModel.mCounts[face] == 3) {
      const std::size_t corner = mMeshes.firstCorner(face);
      addTriangle(mLabels[face], {corner, corner + 1, corner + 2});
      return;
    }
    const std::unique_ptr<util::TriangleMesh> triangles = triangulate(face, faces);
    const auto vertices = triangles->vertexCoordinates();
    const std::span<const std::uint32_t> corners = mMeshes.corners();
    const std::size_t firstAdded = mAdded.size();
    for (std::size_t v = corners.size(); 3 * v < vertices.size(); ++v)
      mAdded.push_back({static_cast<float>(vertices[3 * v]), static_cast<float>(vertices[3 * v + 1]),
                        static_cast<float>(vertices[3 * v + 2])});
    const auto cornerOf = [&](std::uint32_t vertex) {
      return vertex < corners.size() ? corners[vertex] : mModel.mIndices.size() + firstAdded + vertex - corners.size();
    };
    const auto indices = triangles->indices();
    for (std::size_t i = 0; i < indices.size(); i += 3)
      addTriangle(mLabels[face], {cornerOf(indices[i]), cornerOf(indices[i + 1]), cornerOf(indices[i + 2])});
  }

  std::unique_ptr<util::TriangleMesh> triangulate(std::uint32_t face, std::span<const std::uint32_t> faces) {
    try {
      const util::Mesh mesh = mMeshes.make(faces);
      const std::span<const float> coordinates = mMeshes.coordinates();
      return std::unique_ptr<util::TriangleMesh>(
          mTriangulator.triangulate(mesh, {coordinates.begin(), coordinates.end()}, 0));
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& error) {
      throw RunError(fmt::format("{}: face {} cannot be triangulated: {}", mName, face + 1, error.what()));
    }
  }

  // Corner numbers beyond the model's stand for added vertices.
  void addTriangle(const Label& label, const std::array<std::size_t, 3>& corners) {
    mResult.startRun(label);
    mResult.mCounts.push_back(3);
    bool isTextured = !mModel.mTexIndices.empty();
    for (const std::size_t corner : corners) {
      const bool isAdded = corner >= mModel.mIndices.size();
      isTextured = isTextured && !isAdded;
      mResult.mIndices.push_back(
          isAdded ? static_cast<std::uint32_t>(corner - mModel.mIndices.size() + mModel.vertexCount())
                  : mModel.mIndices[corner]);
    }
    if (mModel.mTexIndices.empty()) return;
    for (const std::size_t corner : corners)
      mResult.mTexIndices.push_back(isTextured ? mModel.mTexIndices[corner] : kNoTexCoord);
  }

  // Moves added vertices after those of their object and renumbers.
  void placeVertices() {
    std::vector<std::uint32_t> newIndices(mModel.vertexCount() + mAdded.size());
    std::uint32_t next = 0, old = 0;
    std::size_t added = 0;
    for (std::size_t object = 0; object < mModel.mObjects.size(); ++object) {
      mResult.mObjects[object].mFirstVertex = next;
      const std::size_t end =
          object + 1 < mModel.mObjects.size() ? mModel.mObjects[object + 1].mFirstVertex : mModel.vertexCount();
      for (; old < end; ++old) newIndices[old] = next++;
      for (; added < mAddedEnds[object]; ++added) newIndices[mModel.vertexCount() + added] = next++;
    }
    mResult.mVertices.resize(std::size_t{3} * next);
    for (std::size_t v = 0; v < newIndices.size(); ++v) {
      const float* const p =
          v < mModel.vertexCount() ? mModel.mVertices.data() + 3 * v : mAdded[v - mModel.vertexCount()].data();
      std::copy_n(p, 3, mResult.mVertices.begin() + std::ptrdiff_t{3} * newIndices[v]);
    }
    for (std::uint32_t& index : mResult.mIndices) index = newIndices[index];
  }

  const Model& mModel;
  const std::string& mName;
  MeshMaker mMeshes;
  util::Triangulator mTriangulator;
  std::vector<Label> mLabels;
  std::vector<std::array<float, 3>> mAdded;  // vertices where contours cross
  std::vector<std::size_t> mAddedEnds;       // per object: added vertices up to its end
  Model mResult;
};

}  // namespace

Model triangulated(const Model& model, const std::string& name) { return Maker(model, name).run(); }

}  // namespace tool
