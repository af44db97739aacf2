#include <facetbox/mesh/Validate.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>

#include <facetbox/mesh/EdgeTwins.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {
namespace {

std::string findRecordProblem(const MeshStorage& m, const PrimitiveList& list, std::size_t i) {
  if (list.isCleared(i)) return "is cleared";
  if (list.offset(i) + list.cornerCount(i) > list.poolSize()) return "ends behind the pool";
  for (const std::uint32_t v : list.corners(i))
    if (v >= m.mVertices.size()) return "refers to vertex " + std::to_string(v);
  if (list.perVertexNormals(i) && list.hasNormalIndices(i))
    for (const std::uint32_t normal : list.normalIndices(i))
      if (normal >= m.mNormals.size()) return "refers to normal " + std::to_string(normal);
  return "";
}

std::string findListProblem(const MeshStorage& m, const PrimitiveList& list) {
  if (!list.isParallel()) return "arrays of records or corners not parallel";
  std::vector<std::pair<std::size_t, std::size_t>> places(list.size());  // in the pool: begin and end
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (const std::string problem = findRecordProblem(m, list, i); !problem.empty())
      return "record " + std::to_string(i) + ' ' + problem;
    places[i] = {list.offset(i), list.offset(i) + list.cornerCount(i)};
  }
  std::ranges::sort(places);
  for (std::size_t i = 1; i < places.size(); ++i)
    if (places[i].first < places[i - 1].second) return "records overlap in the pool";
  return "";
}

std::string findHoleProblem(const SmallIndexList& list, std::size_t faceCount) {
  std::uint32_t outer = HoleTable::kNone;
  for (const std::uint32_t entry : list) {
    const bool endsGroup = entry == HoleTable::kEnd, beginsGroup = outer == HoleTable::kNone;
    if (endsGroup && beginsGroup) return "bare terminator in the hole list";
    if (!endsGroup && entry >= faceCount) return "hole list refers to face " + std::to_string(entry);
    if (!endsGroup && entry == outer) return "face " + std::to_string(entry) + " is its own hole";
    if (endsGroup || beginsGroup) outer = entry;
  }
  return outer == HoleTable::kNone ? "" : "unterminated hole group";
}

bool areTwinsOutdated(const MeshStorage& m) {
  std::optional<EdgeTwins> known = m.mConnectivity.takeTwins();
  if (!known) return false;
  const EdgeTwins fresh = findEdgeTwins(m.mFaces, m.mVertices.size());
  const bool areSame =
      std::ranges::equal(known->mCorners, fresh.mCorners, {}, &EdgeTwins::Corner::mTwin, &EdgeTwins::Corner::mTwin);
  m.mConnectivity.keepTwins(std::move(*known));
  return !areSame;
}

}  // namespace

std::string findMeshProblem(const Mesh& mesh) {
  const MeshStorage& m = mesh.storage();
  for (const PrimitiveList* list : {&m.mFaces, &m.mLines, &m.mPoints})
    if (const std::string problem = findListProblem(m, *list); !problem.empty()) return problem;
  if (m.mRunStarts.size() != m.mRunMaterials.size()) return "run starts not parallel to run materials";
  if (!m.mVertexIndexLists.empty() && m.mVertexIndexLists.size() != m.mVertices.size())
    return "vertex index lists not parallel to the vertices";
  ConnectivityCache fresh;
  if (m.mConnectivity.edges(m.mFaces) != fresh.edges(m.mFaces)) return "outdated connectivity";
  if (areTwinsOutdated(m)) return "outdated edge twins";
  return findHoleProblem(m.mHoles.list(), m.mFaces.size());
}

void assertValid([[maybe_unused]] const Mesh& mesh, [[maybe_unused]] const char* step) {
#ifdef FACETBOX_VALIDATE
  const std::string problem = findMeshProblem(mesh);
  if (problem.empty()) return;
  std::fprintf(stderr, "facetbox: broken mesh after %s: %s\n", step, problem.c_str());
  std::abort();
#endif
}

}  // namespace util
