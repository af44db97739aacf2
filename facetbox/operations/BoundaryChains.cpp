#include <facetbox/operations/BoundaryChains.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <facetbox/base/Monitor.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/operations/VertexNeighbors.h>

namespace util {
namespace {

constexpr std::uint32_t kNone = 0xFFFFFFFFu;

/// Takes out the vertices at which something begins that belongs to corners or edges of a face.
void addManyAtSeams(const PrimitiveList& faces, std::size_t face, Buffer<VertexNeighbors>& neighbors) {
  const auto corners = faces.corners(face);
  if (faces.carries(face, PrimitiveList::kSeamSet)) {
    const auto seams = faces.cornerSet(face, PrimitiveList::kSeamSet);
    for (std::size_t i = 0; i < corners.size(); ++i)
      if (seams[i] != kNone) neighbors[corners[i]].addMany();
  }
  if (faces.carries(face, PrimitiveList::kOutgoingEdgeSet)) {
    const auto ofEdges = faces.cornerSet(face, PrimitiveList::kOutgoingEdgeSet);
    for (std::size_t i = 0; i < corners.size(); ++i)
      if (ofEdges[i] != ofEdges[(i == 0 ? corners.size() : i) - 1]) neighbors[corners[i]].addMany();
  }
}

/// Two for the vertices inside chains, and for these only.
Buffer<VertexNeighbors> neighborsOnChains(const MeshStorage& m) {
  Buffer<VertexNeighbors> neighbors(m.mVertices.size(), VertexNeighbors{});
  for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const auto corners = m.mFaces.corners(face);
      std::uint32_t before = corners.back();
      for (std::size_t i = 0; i < corners.size(); ++i) {
        const std::uint32_t own = corners[i], after = corners[i + 1 == corners.size() ? 0 : i + 1];
        VertexNeighbors& list = neighbors[own];
        list.add(before);
        list.add(after);
        if (before == after || own == after) list.addMany();
        before = own;
      }
      if (m.mFaces.usesCornerSets()) addManyAtSeams(m.mFaces, face, neighbors);
    }
  return neighbors;
}

}  // namespace

/// Finds the chains in the order of their lowest vertices inside.
class BoundaryChains::Finder {
 public:
  Finder(const MeshStorage& mesh, BoundaryChains& chains)
      : mMesh(mesh), mNeighbors(neighborsOnChains(mesh)), mVertices(chains.mVertices), mEnds(chains.mEnds) {}

  void run() {
    const auto inside = static_cast<std::size_t>(std::ranges::count_if(mNeighbors, &VertexNeighbors::areTwo));
    mVertices.reserve(3 * inside);
    mEnds.reserve(inside);
    for (Monitor::Blocks blocks(mMesh.mMonitor.get(), mNeighbors.size()); blocks.next();)
      for (std::uint32_t v = blocks.begin(), end = blocks.end(); v < end; ++v)
        if (mNeighbors[v].areTwo()) addChainOf(v);
  }

 private:
  bool isInside(std::uint32_t v) const { return mNeighbors[v].areTwo(); }
  /// Where a chain goes on from a vertex inside it.
  std::uint32_t next(std::uint32_t v, std::uint32_t before) const {
    return mNeighbors[v].first == before ? mNeighbors[v].second : mNeighbors[v].first;
  }

  void addChainOf(std::uint32_t start) {
    // Back to an end, which in a loop is where we come from; `v` is the vertex next to it.
    std::uint32_t v = start, end = mNeighbors[start].first;
    while (end != start && isInside(end)) {
      const std::uint32_t before = std::exchange(v, end);
      end = next(end, before);
    }
    const std::size_t begin = mVertices.size();
    mVertices.push_back(end);
    for (std::uint32_t before = end; v != end && isInside(v);) {
      mVertices.push_back(v);
      before = std::exchange(v, next(v, before));
    }
    mVertices.push_back(v);
    orient(begin);
    mEnds.push_back(mVertices.size());
    // A chain is found once.
    for (std::size_t i = begin; i < mVertices.size(); ++i) mNeighbors[mVertices[i]].addMany();
  }

  /// Brings the newest chain into the order in which others see it.
  void orient(std::size_t begin) {
    const auto first = mVertices.begin() + static_cast<std::ptrdiff_t>(begin);
    if (*first > mVertices.back()) std::reverse(first, mVertices.end());
    if (!isInside(*first)) return;
    mVertices.pop_back();
    std::rotate(first, std::max_element(first, mVertices.end(), [this](auto a, auto b) { return isBefore(a, b); }),
                mVertices.end());
    mVertices.push_back(*first);
  }

  /// The order that a loop's extreme vertex ends. Of vertices at one place it is the lowest; what is not a number is
  /// beyond everything.
  bool isBefore(std::uint32_t a, std::uint32_t b) const {
    const double ofA = heightOf(a), ofB = heightOf(b);
    return ofA < ofB || (ofA == ofB && a > b);
  }
  double heightOf(std::uint32_t v) const {
    constexpr Vec3 kUp{0.48729, 0.69613, 0.52721};
    const double height = dot(mMesh.mVertices[v], kUp);
    return std::isnan(height) ? std::numeric_limits<double>::infinity() : height;
  }

  const MeshStorage& mMesh;
  Buffer<VertexNeighbors> mNeighbors;
  Buffer<std::uint32_t>& mVertices;
  Buffer<std::size_t>& mEnds;
};

BoundaryChains::BoundaryChains(const MeshStorage& mesh) { Finder(mesh, *this).run(); }

}  // namespace util
