#include <facetbox/io/GltfTriangles.h>

#include <algorithm>

#include <facetbox/triangulate.h>

namespace facetbox {

GltfTriangles::GltfTriangles(const PolyMesh& mesh, Notes& notes) : mMesh(mesh), mPointCount(mesh.points.size() / 3) {
  if (mesh.holes.empty() && std::all_of(mesh.counts.begin(), mesh.counts.end(), [](auto n) { return n == 3; })) {
    mCorners = mesh.indices;
    mPairs = mesh.texIndices;
  } else {
    cut(notes);
  }
}

void GltfTriangles::cut(Notes& notes) {
  Triangulation cut = triangulate(mMesh);
  std::vector<bool> isInGroup(mMesh.counts.size());
  for (const std::uint32_t face : mMesh.holes)
    if (face != kNone) isInGroup[face] = true;
  std::size_t corner = 0, t = 0, polygons = 0, dropped = 0, skipped = 0;
  const bool isTextured = !mMesh.texIndices.empty();
  const auto copy = [&](const std::uint32_t* corners, const std::uint32_t* pairs, std::size_t face) {
    mOwnCorners.insert(mOwnCorners.end(), corners, corners + 3);
    if (isTextured) mOwnPairs.insert(mOwnPairs.end(), pairs, pairs + 3);
    mFaces.push_back(static_cast<std::uint32_t>(face));
  };
  for (std::size_t face = 0; face < mMesh.counts.size(); corner += mMesh.counts[face++]) {
    const bool isTriangle = mMesh.counts[face] == 3 && !isInGroup[face];
    if (isTriangle) copy(&mMesh.indices[corner], isTextured ? &mMesh.texIndices[corner] : nullptr, face);
    for (; skipped < cut.skipped.size() && cut.skipped[skipped].face <= face; ++skipped) dropped += isTriangle ? 0 : 1;
    if (!isTriangle) ++polygons;
    for (; t < cut.faces.size() && cut.faces[t] == face; ++t)
      if (!isTriangle) copy(&cut.triangles[3 * t], isTextured ? &cut.texIndices[3 * t] : nullptr, face);
  }
  mMadePoints = std::move(cut.madePoints);
  mMadeTexCoords = std::move(cut.madeTexCoords);
  mCorners = mOwnCorners;
  mPairs = mOwnPairs;
  notes.add("faces without triangles", dropped);
  notes.add("polygons and holes, cut into triangles", polygons - dropped);
  notes.add("vertices made where outlines cross", mMadePoints.size() / 3);
}

}  // namespace facetbox
