#include <facetbox/operations/ChainBundles.h>

#include <algorithm>
#include <span>
#include <utility>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/Monitor.h>
#include <facetbox/operations/CornersOfVertices.h>

namespace util {
namespace {

/// Finds out about chains that are to become edges.
class BundleFinder {
 public:
  BundleFinder(const MeshStorage& mesh, const BoundaryChains& chains, const std::vector<bool>& removed)
      : mMesh(mesh), mChains(chains), mRemoved(removed), mIsEnd(mesh.mVertices.size()) {}

  ChainBundles run(const Buffer<std::uint32_t>& newEdges) {
    if (newEdges.empty()) return {};
    sortEdges(newEdges);
    findTwins();
    walkFaces();
    keepThinFaces();
    judgeBundles();
    return std::move(mResult);
  }

 private:
  /// A chain that is to become an edge, by its higher end.
  struct NewEdge {
    std::uint32_t end, chain;
    bool isToKeepOne = false;
    friend bool operator<(const NewEdge& a, const NewEdge& b) {
      return a.end < b.end || (a.end == b.end && a.chain < b.chain);
    }
  };
  /// A run of a face along one of the bundle that begins at this new edge.
  struct Use {
    std::size_t bundle;
    std::uint32_t face;
    bool isUpward;  ///< from the lower end to the higher one
    bool isEdge;    ///< not a chain
  };

  /// By their lower ends, by counting.
  void sortEdges(const Buffer<std::uint32_t>& newEdges) {
    mStarts.assign(mMesh.mVertices.size() + 2, 0);
    for (const std::uint32_t i : newEdges) {
      const auto chain = mChains[i];
      mIsEnd[chain.front()] = mIsEnd[chain.back()] = true;
      ++mStarts[chain.front() + 2];
    }
    for (std::size_t v = 2; v < mStarts.size(); ++v) mStarts[v] += mStarts[v - 1];
    mEdges.resize(newEdges.size());
    for (const std::uint32_t i : newEdges) mEdges[mStarts[mChains[i].front() + 1]++] = {mChains[i].back(), i};
  }

  /// Sorts the new edges of each lower end, and finds those with the same two ends.
  void findTwins() {
    for (std::size_t v = 0; v + 2 < mStarts.size(); ++v) {
      const auto first = mEdges.begin() + mStarts[v], last = mEdges.begin() + mStarts[v + 1];
      if (last - first < 2) continue;
      std::sort(first, last);
      for (auto i = first; i != last;) {
        const auto next = std::find_if(i, last, [i](const NewEdge& e) { return e.end != i->end; });
        if (next - i > 1) mBundles.push_back(static_cast<std::size_t>(i - mEdges.begin()));
        i = next;
      }
    }
  }

  /// Finds the edges beside new edges, and the faces of which too little would be left.
  void walkFaces() {
    for (Monitor::Blocks blocks(mMesh.mMonitor.get(), mMesh.mFaces.size()); blocks.next();)
      for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
        const auto corners = mMesh.mFaces.corners(face);
        std::uint32_t before = corners.back();
        std::size_t kept = 0;
        for (const std::uint32_t v : corners) {
          if (mIsEnd[v] && mIsEnd[before]) addEdge(face, before, v);
          kept += !mRemoved[v];
          before = v;
        }
        if (kept < kFewestCorners) mThinFaces.push_back(face);
      }
  }

  void addEdge(std::uint32_t face, std::uint32_t from, std::uint32_t to) {
    const auto [lower, higher] = std::minmax(from, to);
    const auto first = mEdges.begin() + mStarts[lower], last = mEdges.begin() + mStarts[lower + 1];
    const auto found = std::lower_bound(first, last, NewEdge{higher, 0});
    if (found == last || found->end != higher) return;
    const auto bundle = static_cast<std::size_t>(found - mEdges.begin());
    mBundles.push_back(bundle);
    mUses.push_back({bundle, face, from < to, true});
  }

  /// A face that runs along one chain to and fro.
  void keepThinFaces() {
    if (mThinFaces.empty()) return;
    std::vector<bool> isThin(mMesh.mVertices.size());
    for (const std::uint32_t face : mThinFaces)
      for (const std::uint32_t v : mMesh.mFaces.corners(face)) isThin[v] = true;
    for (NewEdge& edge : mEdges)
      if (isThin[mChains[edge.chain][1]]) keepOne(edge);
  }

  void judgeBundles() {
    if (mBundles.empty()) return;
    std::sort(mBundles.begin(), mBundles.end());
    mBundles.erase(std::unique(mBundles.begin(), mBundles.end()), mBundles.end());
    addUsesOfChains();
    std::stable_sort(mUses.begin(), mUses.end(), [](const Use& a, const Use& b) { return a.bundle < b.bundle; });
    auto use = mUses.begin();
    for (const std::size_t bundle : mBundles) {
      const auto first = use;
      while (use != mUses.end() && use->bundle == bundle) ++use;
      judge(bundle, {first, use});
    }
  }

  /// The new edge behind the last of a bundle.
  std::size_t endOf(std::size_t bundle) const {
    const std::uint32_t first = mChains[mEdges[bundle].chain].front(), last = mEdges[bundle].end;
    std::size_t end = bundle + 1;
    while (end < mEdges.size() && mEdges[end].end == last && mChains[mEdges[end].chain].front() == first) ++end;
    return end;
  }

  void addUsesOfChains() {
    std::vector<bool> isSecond(mMesh.mVertices.size());
    for (const std::size_t bundle : mBundles)
      for (std::size_t i = bundle, end = endOf(bundle); i < end; ++i) isSecond[mChains[mEdges[i].chain][1]] = true;
    const CornersOfVertices cornersOf(mMesh.mFaces, isSecond, mMesh.mMonitor.get());
    for (const std::size_t bundle : mBundles)
      for (std::size_t i = bundle, end = endOf(bundle); i < end; ++i) {
        const auto chain = mChains[mEdges[i].chain];
        for (const FaceCorner& at : cornersOf[chain[1]]) {
          const auto corners = mMesh.mFaces.corners(at.face);
          const bool isUpward = corners[at.position + 1 == corners.size() ? 0 : at.position + 1] == chain[2];
          mUses.push_back({bundle, at.face, isUpward, false});
        }
      }
  }

  void judge(std::size_t bundle, std::span<const Use> uses) {
    const std::size_t end = endOf(bundle), chains = end - bundle;
    // Each chain has a use, and so has an edge.
    if (uses.size() == 2 && (chains == 2 || uses[0].isEdge != uses[1].isEdge) && uses[0].face != uses[1].face &&
        uses[0].isUpward != uses[1].isUpward) {
      mResult.areEdgesJoined = true;
      return;
    }
    for (std::size_t i = bundle; i < end; ++i) keepOne(mEdges[i]);
  }

  void keepOne(NewEdge& edge) {
    if (!edge.isToKeepOne) mResult.toKeepOne.push_back(edge.chain);
    edge.isToKeepOne = true;
  }

  static constexpr std::size_t kFewestCorners = 3;

  const MeshStorage& mMesh;
  const BoundaryChains& mChains;
  const std::vector<bool>& mRemoved;
  ChainBundles mResult;
  std::vector<bool> mIsEnd;           // per vertex: of a new edge
  Buffer<NewEdge> mEdges;             // by lower end, higher end and chain
  Buffer<std::uint32_t> mStarts;      // per vertex, of the new edges with this lower end
  std::vector<std::size_t> mBundles;  // with other chains or edges between the same ends
  std::vector<Use> mUses;
  std::vector<std::uint32_t> mThinFaces;
};

}  // namespace

ChainBundles findBundles(const MeshStorage& mesh, const BoundaryChains& chains, const Buffer<std::uint32_t>& newEdges,
                         const std::vector<bool>& removed) {
  return BundleFinder(mesh, chains, removed).run(newEdges);
}

}  // namespace util
