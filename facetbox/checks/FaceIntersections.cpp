#include <facetbox/checks/FaceIntersections.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <vector>

#include <facetbox/triangles/SelfIntersections.h>
#include <facetbox/triangulate.h>

namespace util {
namespace {

/// The faces of a mesh as triangles, with the vertices of the mesh, and further ones where outlines cross.
struct CutFaces {
  std::vector<std::uint32_t> corners;       // three vertices per triangle
  std::vector<std::uint32_t> faces;         // of each triangle; empty where face f is triangle f
  std::vector<double> points;               // of all vertices; empty where there are only the mesh's
  std::vector<std::uint32_t> crossedFaces;  // that cannot be cut without further vertices

  CutFaces(const CheckedMesh& mesh, const facetbox::CheckOptions& options) {
    const facetbox::MeshView& view = mesh.view();
    if (!mesh.hasHoles() && std::ranges::all_of(view.counts, [](std::uint32_t count) { return count == 3; })) {
      corners.assign(view.indices.begin(), view.indices.end());
      return;
    }
    const std::vector<std::uint8_t> isCut = addTriangles(mesh);
    const facetbox::Triangulation cut = facetbox::triangulate(view, {.isCancelled = options.isCancelled});
    for (std::size_t i = 0; i < cut.faces.size(); ++i) {
      const std::uint32_t face = cut.faces[i];
      if (isCut[face] == 0) continue;
      faces.push_back(face);
      for (std::size_t k = 3 * i; k < 3 * i + 3; ++k) {
        corners.push_back(cut.triangles[k]);
        if (cut.triangles[k] >= mesh.vertexCount()) crossedFaces.push_back(face);
      }
    }
    for (const facetbox::SkippedFace& skipped : cut.skipped)
      if (skipped.reason == facetbox::SkippedFace::Reason::tooManyCrossings) crossedFaces.push_back(skipped.face);
    std::ranges::sort(crossedFaces);
    crossedFaces.erase(std::unique(crossedFaces.begin(), crossedFaces.end()), crossedFaces.end());
    if (cut.madePoints.empty()) return;
    points.assign(view.points.begin(), view.points.end());
    points.insert(points.end(), cut.madePoints.begin(), cut.madePoints.end());
  }

 private:
  /// Adds the faces that are triangles, also those without area. Returns for each face whether it is to be cut.
  std::vector<std::uint8_t> addTriangles(const CheckedMesh& mesh) {
    std::vector<std::uint8_t> isCut(mesh.faceCount(), 1);
    for (std::uint32_t face = 0; face < mesh.faceCount(); ++face)
      if (mesh.corners(face).size() == 3 && !mesh.isHole(face)) isCut[face] = 0;
    for (std::uint32_t face = 0; face < mesh.faceCount(); ++face)
      if (mesh.isHole(face) && !mesh.isLeftOut(face)) isCut[mesh.outerOf(face)] = 1;
    for (std::uint32_t face = 0; face < mesh.faceCount(); ++face) {
      if (isCut[face] != 0) continue;
      corners.insert(corners.end(), mesh.corners(face).begin(), mesh.corners(face).end());
      faces.push_back(face);
    }
    return isCut;
  }
};

/// The corners of each surface, those of its holes included.
class SurfaceCorners {
 public:
  explicit SurfaceCorners(const CheckedMesh& mesh) : mEnds(mesh.faceCount() + std::size_t{1}, 0) {
    forEachCorner(mesh, [this](std::uint32_t face, std::uint32_t) { ++mEnds[face + std::size_t{1}]; });
    for (std::size_t face = 1; face < mEnds.size(); ++face) mEnds[face] += mEnds[face - 1];
    mCorners.resize(mEnds.back());
    // Filling moves the start of a face to its end.
    forEachCorner(mesh, [this](std::uint32_t face, std::uint32_t vertex) { mCorners[mEnds[face]++] = vertex; });
    for (std::uint32_t face = 0; face < mesh.faceCount(); ++face)
      std::sort(mCorners.begin() + begin(face), mCorners.begin() + mEnds[face]);
  }

  bool has(std::uint32_t face, std::uint32_t vertex) const {
    return std::binary_search(mCorners.begin() + begin(face), mCorners.begin() + mEnds[face], vertex);
  }

 private:
  template <class Use>
  static void forEachCorner(const CheckedMesh& mesh, Use use) {
    for (std::uint32_t face = 0; face < mesh.faceCount(); ++face) {
      if (mesh.isLeftOut(face)) continue;
      for (const std::uint32_t vertex : mesh.corners(face)) use(mesh.isHole(face) ? mesh.outerOf(face) : face, vertex);
    }
  }
  std::uint32_t begin(std::uint32_t face) const { return face == 0 ? 0 : mEnds[face - 1]; }

  std::vector<std::uint32_t> mEnds, mCorners;
};

}  // namespace

void checkSelfIntersections(const CheckedMesh& mesh, const facetbox::CheckOptions& options,
                            facetbox::Defects& defects) {
  const CutFaces cut(mesh, options);
  FaceTriangles triangles{cut.points.empty() ? mesh.view().points : cut.points, cut.corners, cut.faces, {}};
  std::optional<SurfaceCorners> corners;
  if (!cut.faces.empty()) {
    corners.emplace(mesh);
    triangles.isCornerOf = [&](std::uint32_t face, std::uint32_t vertex) { return corners->has(face, vertex); };
  }
  const SelfIntersections found = findSelfIntersections(triangles, options.mostListed, mesh.monitor());
  for (const auto& [a, b] : found.pairs) defects.selfIntersections.push_back({a, b});
  for (const std::uint32_t face : cut.crossedFaces) defects.selfIntersections.push_back({face, face});
  std::ranges::sort(defects.selfIntersections);
  defects.areSelfIntersectionsComplete = found.isComplete && defects.selfIntersections.size() <= options.mostListed;
  if (defects.selfIntersections.size() > options.mostListed) defects.selfIntersections.resize(options.mostListed);
}

}  // namespace util
