#include <facetbox/operations/OpenEdgeGuard.h>

#include <algorithm>
#include <numeric>
#include <tuple>
#include <utility>

namespace util {
namespace {

/// Calls `use(lower vertex, higher vertex)` for the edges of a face; an edge from a vertex to itself is none.
template <class Use>
void forEachEdgeOf(std::span<const std::uint32_t> corners, Use use) {
  if (corners.empty()) return;
  for (std::uint32_t before = corners.back(); const std::uint32_t v : corners) {
    if (v != before) use(std::min(v, before), std::max(v, before));
    before = v;
  }
}

class OpenEdgeGuard {
 public:
  OpenEdgeGuard(const MeshStorage& mesh, std::span<const GoingFace> going, const std::vector<bool>& mayStay)
      : mFaces(mesh.mFaces), mMonitor(mesh.mMonitor.get()), mMayStay(mayStay), mPatchOf(mayStay.size()) {
    std::iota(mPatchOf.begin(), mPatchOf.end(), 0u);
    listEdges(going);
    countUses(mesh.mVertices.size());
  }

  std::vector<bool> run() {
    std::vector<std::int64_t> opened(mPatchOf.size(), 0);
    for (const Edge& edge : mEdges) {
      if (edge.unit == kNone) continue;
      const bool isOpen = edge.uses == 1, willBeOpen = edge.uses - edge.goingUses == 1;
      opened[patchOf(edge.unit)] += int{willBeOpen} - int{isOpen};
    }
    std::vector<bool> stays(mPatchOf.size());
    for (std::uint32_t unit = 0; unit < stays.size(); ++unit) stays[unit] = opened[patchOf(unit)] > 0;
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
    for (const GoingFace& g : going)
      forEachEdgeOf(mFaces.corners(g.face), [&](std::uint32_t low, std::uint32_t high) {
        mEdges.push_back({low, high, mMayStay[g.unit] ? g.unit : kNone});
      });
    std::ranges::sort(mEdges, {}, [](const Edge& e) { return std::tuple(e.low, e.high, e.unit); });
    std::size_t kept = 0;
    for (const Edge& edge : mEdges) {
      if (kept == 0 || mEdges[kept - 1].low != edge.low || mEdges[kept - 1].high != edge.high) {
        mEdges[kept++] = edge;
        continue;
      }
      ++mEdges[kept - 1].goingUses;
      if (edge.unit != kNone) mPatchOf[patchOf(edge.unit)] = patchOf(mEdges[kept - 1].unit);
    }
    mEdges.resize(kept);
  }

  /// Counts the uses of these edges in the whole mesh.
  void countUses(std::size_t vertexCount) {
    Buffer<std::uint32_t> begins(vertexCount + 1, 0);  // per lower vertex, in mEdges
    for (const Edge& edge : mEdges) ++begins[edge.low + 1];
    std::partial_sum(begins.begin(), begins.end(), begins.begin());
    const auto count = [&](std::uint32_t low, std::uint32_t high) {
      const auto begin = mEdges.begin() + begins[low], end = mEdges.begin() + begins[low + 1];
      if (begin == end) return;
      const auto at = std::ranges::lower_bound(begin, end, high, {}, &Edge::high);
      if (at != end && at->high == high) ++at->uses;
    };
    for (Monitor::Blocks blocks(mMonitor, mFaces.size()); blocks.next();)
      for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
        forEachEdgeOf(mFaces.corners(face), count);
  }

  std::uint32_t patchOf(std::uint32_t unit) {
    while (mPatchOf[unit] != unit) unit = mPatchOf[unit] = mPatchOf[mPatchOf[unit]];
    return unit;
  }

  const PrimitiveList& mFaces;
  Monitor* const mMonitor;
  const std::vector<bool>& mMayStay;
  std::vector<std::uint32_t> mPatchOf;  // per unit one of its patch, up to the one that stands for all
  std::vector<Edge> mEdges;
};

}  // namespace

std::vector<bool> findUnitsToKeep(const MeshStorage& mesh, std::span<const GoingFace> going,
                                  const std::vector<bool>& mayStay) {
  return OpenEdgeGuard(mesh, going, mayStay).run();
}

}  // namespace util
