#include <facetbox/operations/StraightenChains.h>

#include <algorithm>
#include <optional>
#include <vector>

#include <facetbox/operations/BoundaryChains.h>
#include <facetbox/operations/ChainBundles.h>
#include <facetbox/operations/ChainStraightener.h>
#include <facetbox/operations/CornersOfVertices.h>
#include <facetbox/operations/PackCorners.h>

namespace util {
namespace {

/// The corners at the second vertex of each chain.
CornersOfVertices cornersOfSeconds(const MeshStorage& m, const BoundaryChains& chains) {
  std::vector<bool> isSecond(m.mVertices.size());
  for (std::size_t i = 0; i < chains.size(); ++i) isSecond[chains[i][1]] = true;
  return CornersOfVertices(m.mFaces, isSecond, m.mMonitor.get());
}

/// Marks the vertices to remove. Returns whether open edges become one.
bool markStraight(const MeshStorage& m, const BoundaryChains& chains, double toleranceDegrees, bool keepTextureMapping,
                  std::vector<bool>& removed) {
  Monitor* const monitor = m.mMonitor.get();
  std::optional<CornersOfVertices> textured;
  if (keepTextureMapping && m.mFaces.usesCornerSets()) {
    const Monitor::Part part(monitor, 0.0, 0.3);
    textured.emplace(cornersOfSeconds(m, chains));
  }
  ChainStraightener straightener(m, toleranceDegrees, textured ? &*textured : nullptr, removed);
  Buffer<std::uint32_t> newEdges;
  newEdges.reserve(chains.size());
  {
    const Monitor::Part part(monitor, 0.3, 0.7);
    for (Monitor::Blocks blocks(monitor, chains.size()); blocks.next();)
      for (std::uint32_t i = blocks.begin(), end = blocks.end(); i < end; ++i)
        if (!straightener.straighten(chains[i])) newEdges.push_back(i);
  }
  const Monitor::Part part(monitor, 0.7, 1.0);
  const ChainBundles bundles = findBundles(m, chains, newEdges, removed);
  for (const std::uint32_t i : bundles.toKeepOne) straightener.straightenKeepingOne(chains[i]);
  return bundles.areEdgesJoined;
}

std::uint64_t removeMarked(MeshStorage& m, const std::vector<bool>& removed) {
  std::uint64_t removedCount = 0;
  for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const auto corners = m.mFaces.corners(face);
      std::uint32_t kept = 0;
      for (const std::uint32_t v : corners) kept += !removed[v];
      if (kept == corners.size()) continue;
      removedCount += corners.size() - kept;
      const auto isKept = [&](std::size_t i) { return !removed[corners[i]]; };
      if (m.mFaces.hasNormalIndices(face)) packEntries(m.mFaces.normalIndices(face), isKept);
      packCorners(m.mFaces, face, kept, isKept);
    }
  return removedCount;
}

}  // namespace

std::uint64_t straightenChains(MeshStorage& m, double toleranceDegrees, bool keepTextureMapping) {
  if (!(toleranceDegrees >= 0.0)) return 0;
  Monitor* const monitor = m.mMonitor.get();
  std::uint64_t removedCount = 0;
  for (bool areEdgesJoined = true; areEdgesJoined;) {
    const BoundaryChains chains = [&] {
      const Monitor::Part part(monitor, 0.0, 0.4);
      return BoundaryChains(m);
    }();
    if (chains.empty()) break;
    std::vector<bool> removed(m.mVertices.size());
    {
      const Monitor::Part part(monitor, 0.4, 0.8);
      areEdgesJoined = markStraight(m, chains, toleranceDegrees, keepTextureMapping, removed);
    }
    if (std::ranges::find(removed, true) == removed.end()) break;
    const Monitor::Part part(monitor, 0.8, 1.0);
    removedCount += removeMarked(m, removed);
  }
  return removedCount;
}

}  // namespace util
