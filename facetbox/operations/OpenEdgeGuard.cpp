#include <facetbox/operations/OpenEdgeGuard.h>

#include <algorithm>
#include <numeric>
#include <tuple>

#include <facetbox/base/DisjointSets.h>
#include <facetbox/mesh/EdgeBuckets.h>

namespace util {
namespace {

class OpenEdgeGuard {
 public:
  OpenEdgeGuard(const MeshStorage& mesh, std::span<const GoingFace> going, const std::vector<bool>& mayStay)
      : mFaces(mesh.mFaces), mMonitor(mesh.mMonitor.get()), mMayStay(mayStay), mPatches(mayStay.size()) {
    listEdges(going);
    countUses(mesh.mVertices.size());
  }

  std::vector<bool> run() {
    std::vector<std::int64_t> opened(mMayStay.size(), 0);
    for (const Edge& edge : mEdges) {
      if (edge.unit == kNone) continue;
      const bool isOpen = edge.uses == 1, willBeOpen = edge.uses - edge.goingUses == 1;
      opened[mPatches.lowestOf(edge.unit)] += int{willBeOpen} - int{isOpen};
    }
    std::vector<bool> stays(mMayStay.size());
    for (std::uint32_t unit = 0; unit < stays.size(); ++unit) stays[unit] = opened[mPatches.lowestOf(unit)] > 0;
    return stays;
  }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  struct Edge {
    std::uint32_t low, high;
    std::uint32_t unit;  ///< one that may stay, or kNone
    std::uint32_t goingUses = 1, uses = 0;
  };

  /// The edges of the faces that go, ascending, each once. Joins the units that share one.
  void listEdges(std::span<const GoingFace> going) {
    for (const auto& [face, unit] : going) {
      const auto corners = mFaces.corners(face);
      for (std::uint32_t before = corners.back(); const std::uint32_t v : corners) {
        if (v != before) mEdges.push_back({std::min(v, before), std::max(v, before), mMayStay[unit] ? unit : kNone});
        before = v;
      }
    }
    std::ranges::sort(mEdges, {}, [](const Edge& e) { return std::tuple(e.low, e.high, e.unit); });
    std::size_t kept = 0;
    for (const Edge& edge : mEdges) {
      if (kept == 0 || mEdges[kept - 1].low != edge.low || mEdges[kept - 1].high != edge.high) {
        mEdges[kept++] = edge;
        continue;
      }
      ++mEdges[kept - 1].goingUses;
      if (edge.unit != kNone) mPatches.join(edge.unit, mEdges[kept - 1].unit);
    }
    mEdges.resize(kept);
  }

  /// Counts the uses of these edges in the whole mesh.
  void countUses(std::size_t vertexCount) {
    Buffer<std::uint32_t> begins(vertexCount + 1, 0);  // per lower vertex, in mEdges
    for (const Edge& edge : mEdges) ++begins[edge.low + 1];
    std::partial_sum(begins.begin(), begins.end(), begins.begin());
    forEachEdge(mFaces, mMonitor, [&](std::uint32_t, std::uint32_t, std::uint32_t a, std::uint32_t b) {
      if (a == b) return;
      const std::uint32_t low = std::min(a, b), high = std::max(a, b);
      const auto begin = mEdges.begin() + begins[low], end = mEdges.begin() + begins[low + 1];
      if (begin == end) return;
      const auto at = std::ranges::lower_bound(begin, end, high, {}, &Edge::high);
      if (at != end && at->high == high) ++at->uses;
    });
  }

  const PrimitiveList& mFaces;
  Monitor* const mMonitor;
  const std::vector<bool>& mMayStay;
  DisjointSets mPatches;  // units
  std::vector<Edge> mEdges;
};

}  // namespace

std::vector<bool> findUnitsToKeep(const MeshStorage& mesh, std::span<const GoingFace> going,
                                  const std::vector<bool>& mayStay) {
  return OpenEdgeGuard(mesh, going, mayStay).run();
}

}  // namespace util
