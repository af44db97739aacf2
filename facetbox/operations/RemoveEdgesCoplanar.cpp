#include <facetbox/operations/RemoveEdgesCoplanar.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/mesh/EdgeTwins.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/FacePlanes.h>
#include <facetbox/operations/FaceRegions.h>
#include <facetbox/operations/JoinTest.h>
#include <facetbox/operations/MaterialRuns.h>
#include <facetbox/operations/MovingTwins.h>
#include <facetbox/operations/NormalTest.h>
#include <facetbox/operations/RegionMerger.h>
#include <facetbox/operations/RegionOutline.h>
#include <facetbox/operations/SortByArea.h>

namespace util {
namespace {

class CoplanarMerge {
 public:
  CoplanarMerge(MeshStorage& mesh, double toleranceDegrees, bool compareAttributes, JoinTest::Flatness flatness)
      : m(mesh), mNormalTest(toleranceDegrees), mCompareAttributes(compareAttributes), mFlatness(flatness), mTwins([&] {
          const Monitor::Part part(m.mMonitor.get(), 0.0, 0.3);
          if (std::optional<EdgeTwins> known = m.mConnectivity.takeTwins()) return std::move(*known);
          return findEdgeTwins(m.mFaces, m.mVertices.size(), m.mMonitor.get());
        }()) {
    keepHolesApart();
    keepNonFiniteApart();
  }

  std::uint64_t run(int mostPasses) {
    Monitor* const monitor = m.mMonitor.get();
    if (mostPasses > 1) mMovingTwins.emplace(mTwins);
    mPlanes = [&] {
      const Monitor::Part part(monitor, 0.3, 0.4);
      return FacePlanes(m);
    }();
    Buffer<std::uint32_t> seeds = [&] {
      const Monitor::Part part(monitor, 0.4, 0.5);
      return findSeeds(m.mFaces.size(), [](std::uint32_t face) { return face; });
    }();
    if (seeds.empty()) return 0;

    MaterialRuns runs(m);
    const Monitor::Part part(monitor, 0.5, 0.9, m.mFaces.poolSize());
    FaceRegions regions(m.mFaces, m.mVertices.size(), mTwins, mPlanes.areas(), monitor);
    std::uint64_t mergedCount = merge(seeds, regions, runs);
    for (int pass = 1; pass < mostPasses; ++pass) {
      std::vector<std::uint32_t> changed = mMovingTwins->takeChanged();
      if (changed.empty()) break;
      std::erase_if(changed, [this](std::uint32_t face) { return m.mFaces.isCleared(face); });
      seeds = findSeedsAround(changed, regions);
      mergedCount += merge(seeds, regions, runs);
    }
    return mergedCount;
  }

 private:
  /// One region after the other. Returns how many faces were merged into others.
  std::uint64_t merge(Buffer<std::uint32_t>& seeds, FaceRegions& regions, MaterialRuns& runs) {
    Monitor* const monitor = m.mMonitor.get();
    sortByArea(seeds, mPlanes.areas(), monitor);
    JoinTest joins(m, mPlanes, mNormalTest, runs, mCompareAttributes, mFlatness);
    RegionOutline outline(m, mTwins);
    RegionMerger merger(m, runs, mMovingTwins ? &*mMovingTwins : nullptr);
    for (std::size_t i = 0; i < seeds.size(); ++i) {
      prefetchAhead(seeds, i, regions);
      const std::uint32_t seed = seeds[i];
      if (monitor) monitor->tick();
      if (!regions.isFree(seed)) continue;
      joins.setSeed(seed);
      regions.grow(seed, [&](std::uint32_t face, std::uint32_t corner, std::uint32_t neighbor, std::uint32_t twin) {
        if (monitor) monitor->tick();
        return joins.accepts(face, corner, neighbor, twin);
      });
      if (regions.members().size() > 1 && !outline.mend(seed, regions)) regions.giveUp();
      if (regions.members().size() > 1)
        merger.mergeFacesWithSharedEdge(seed, regions.members(), outline.outerLoop(), outline.innerLoops());
      regions.finish();
    }
    if (merger.mergedCount() != 0) merger.finish();
    return merger.mergedCount();
  }

  /// The faces that can grow after others have changed. Regions only ever reach what hangs together over twins that are
  /// not put aside; where nothing in all of that has changed, nor hung together with what has changed, everything would
  /// come to nothing as it did before.
  Buffer<std::uint32_t> findSeedsAround(std::span<const std::uint32_t> changed, FaceRegions& regions) {
    mPlanes.remeasure(m, changed);
    mIsAround.resize(m.mFaces.size(), 0);
    std::vector<std::uint32_t> around;
    const auto add = [&](std::uint32_t face) {
      if (!std::exchange(mIsAround[face], std::uint8_t{1})) around.push_back(face);
    };
    const auto addNeighbors = [&](std::uint32_t face) {
      forEachCorner(face, [&](std::uint32_t p) {
        if (mTwins.twinOf(p) != EdgeTwins::kNone) add(mTwins.faceOf(mTwins.twinOf(p)));
      });
    };
    for (const std::uint32_t face : changed) {
      add(face);
      addNeighbors(face);
      forEachCorner(face, [&](std::uint32_t p) {
        if (mTwins.isAside(p) && !areFarApart(face, mTwins.faceOf(mTwins.mCorners[p].mTwin))) mTwins.turnAside(p);
      });
    }
    for (const std::uint32_t face : changed)
      if (mPlanes.hasPlane(face)) canGrow(face);
    for (std::size_t next = 0; next < around.size(); ++next) {
      if (m.mMonitor) m.mMonitor->tick();
      addNeighbors(around[next]);
    }
    for (const std::uint32_t face : around) mIsAround[face] = 0;
    std::ranges::sort(around);
    regions.startOver(around, mPlanes.areas());
    return findSeeds(around.size(), [&](std::uint32_t i) { return around[i]; });
  }

  template <class Use>
  void forEachCorner(std::uint32_t face, Use use) const {
    const auto begin = static_cast<std::uint32_t>(m.mFaces.offset(face));
    for (std::uint32_t p = begin, end = begin + m.mFaces.cornerCount(face); p < end; ++p) use(p);
  }

  /// Hole faces take no part.
  void keepHolesApart() {
    const std::vector<std::uint32_t> outerOf = m.mHoles.outerOfHoles(m.mFaces.size());
    for (std::size_t face = 0; face < outerOf.size(); ++face)
      if (outerOf[face] != HoleTable::kNone) keepApart(face);
  }

  /// Nor do faces with a corner that is not finite.
  void keepNonFiniteApart() {
    const auto isNotFinite = [](const Vec3& p) {
      return !(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z));
    };
    if (std::ranges::none_of(m.mVertices, isNotFinite)) return;
    for (std::size_t face = 0; face < m.mFaces.size(); ++face)
      if (std::ranges::any_of(m.mFaces.corners(face), [&](std::uint32_t v) { return isNotFinite(m.mVertices[v]); }))
        keepApart(face);
  }

  void keepApart(std::size_t face) {
    for (std::size_t p = m.mFaces.offset(face); p < m.mFaces.offset(face) + m.mFaces.cornerCount(face); ++p)
      mTwins.forgetTwin(static_cast<std::uint32_t>(p));
  }

  /// Of the faces `faceAt(0)`, `faceAt(1)` ..., those that can grow at all: next to a face that they accept. Forgets
  /// the twins across which no region can grow whatever its seed, as long as the two faces are at hand; only for now
  /// where merging may go on.
  template <class FaceAt>
  Buffer<std::uint32_t> findSeeds(std::size_t count, FaceAt faceAt) {
    Buffer<std::uint32_t> seeds;
    seeds.reserve(count);
    for (Monitor::Blocks blocks(m.mMonitor.get(), count); blocks.next();)
      for (std::uint32_t i = blocks.begin(), end = blocks.end(); i < end; ++i) {
        const std::uint32_t face = faceAt(i);
        if (mPlanes.hasPlane(face) && canGrow(face)) seeds.push_back(face);
      }
    return seeds;
  }

  /// Whether no region has both, whatever its seed.
  bool areFarApart(std::uint32_t a, std::uint32_t b) const {
    return mPlanes.hasPlane(a) && mPlanes.hasPlane(b) &&
           mNormalTest.areFarApart(m.mFaces.normal(b), m.mFaces.normal(a));
  }

  bool canGrow(std::uint32_t face) {
    const Vec3& normal = m.mFaces.normal(face);
    bool isSeed = false;
    const std::size_t begin = m.mFaces.offset(face), end = begin + m.mFaces.cornerCount(face);
    for (std::size_t p = begin; p < end; ++p) {
      const std::uint32_t twin = mTwins.twinOf(p);
      if (twin == EdgeTwins::kNone) continue;
      const std::uint32_t neighbor = mTwins.faceOf(twin);
      if (mPlanes.hasPlane(neighbor) && mNormalTest.areFarApart(m.mFaces.normal(neighbor), normal))
        forget(static_cast<std::uint32_t>(p));
      else
        isSeed = isSeed || !mPlanes.hasPlane(neighbor) || mNormalTest.accepts(m.mFaces.normal(neighbor), normal);
    }
    return isSeed;
  }

  void forget(std::uint32_t corner) {
    if (mMovingTwins)
      mTwins.turnAside(corner);
    else
      mTwins.forgetTwin(corner);
  }

  /// Seeds come in the order of their areas, each from another end of the mesh: asks early for what the ones to come
  /// will need. Each step builds on what the one before it, some seeds ago, has brought.
  void prefetchAhead(std::span<const std::uint32_t> seeds, std::size_t position, const FaceRegions& regions) const {
    constexpr std::size_t kStep = 16;
    const auto prefetchFace = [&](std::uint32_t face) {
      m.mFaces.prefetch(face);
      regions.prefetch(face);
      mPlanes.prefetch(face);
    };
    const auto forEachTwin = [&](std::uint32_t face, auto use) {
      const std::size_t begin = m.mFaces.offset(face), end = begin + std::min(m.mFaces.cornerCount(face), 4u);
      for (std::size_t corner = begin; corner < end; ++corner)
        if (mTwins.twinOf(corner) != EdgeTwins::kNone) use(mTwins.twinOf(corner));
    };
    const auto prefetchCorner = [&](std::size_t corner) {
      m.mFaces.prefetchCorner(corner);
      mTwins.prefetch(corner);
    };
    if (position + 4 * kStep >= seeds.size()) return;
    prefetchFace(seeds[position + 4 * kStep]);
    // A face that has grown lies behind the corners that have twins.
    if (const std::uint32_t seed = seeds[position + 3 * kStep]; regions.isFree(seed))
      prefetchCorner(m.mFaces.offset(seed));
    if (const std::uint32_t seed = seeds[position + 2 * kStep]; regions.isFree(seed)) forEachTwin(seed, prefetchCorner);
    if (const std::uint32_t seed = seeds[position + kStep]; regions.isFree(seed))
      forEachTwin(seed, [&](std::uint32_t twin) { prefetchFace(mTwins.faceOf(twin)); });
  }

  MeshStorage& m;
  NormalTest mNormalTest;
  bool mCompareAttributes;
  const JoinTest::Flatness mFlatness;
  EdgeTwins mTwins;
  FacePlanes mPlanes;
  std::optional<MovingTwins> mMovingTwins;  // where merging may go on
  Buffer<std::uint8_t> mIsAround;           // per face; zero between two passes
};

std::uint64_t mergeRegions(Mesh& mesh, double toleranceDegrees, bool compareAttributes, JoinTest::Flatness flatness,
                           int mostPasses) {
  if (!(toleranceDegrees >= 0.0)) return 0;
  Monitor* const monitor = mesh.storage().mMonitor.get();
  const std::uint64_t mergedCount =
      CoplanarMerge(mesh.storage(), toleranceDegrees, compareAttributes, flatness).run(mostPasses);
  const Monitor::Part part(monitor, 0.9, 1.0);
  if (mergedCount != 0) compactMesh(mesh);
  return mergedCount;
}

}  // namespace

std::uint64_t removeEdgesCoplanar(Mesh& mesh, double toleranceDegrees, bool compareAttributes) {
  return mergeRegions(mesh, toleranceDegrees, compareAttributes, JoinTest::Flatness::ofNormals, 1);
}

std::uint64_t removeEdgesCoplanarKeepingFlat(Mesh& mesh, double toleranceDegrees, bool compareAttributes,
                                             bool isRepeated) {
  constexpr int kMostPasses = 100;
  return mergeRegions(mesh, toleranceDegrees, compareAttributes, JoinTest::Flatness::ofCorners,
                      isRepeated ? kMostPasses : 1);
}

}  // namespace util
