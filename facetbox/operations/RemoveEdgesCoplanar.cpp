#include <facetbox/operations/RemoveEdgesCoplanar.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <vector>

#include <facetbox/mesh/EdgeTwins.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/FacePlanes.h>
#include <facetbox/operations/FaceRegions.h>
#include <facetbox/operations/JoinTest.h>
#include <facetbox/operations/MaterialRuns.h>
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
          return findEdgeTwins(m.mFaces, m.mVertices.size(), m.mMonitor.get());
        }()) {
    keepHolesApart();
    keepNonFiniteApart();
  }

  std::uint64_t run() {
    Monitor* const monitor = m.mMonitor.get();
    const FacePlanes planes = [&] {
      const Monitor::Part part(monitor, 0.3, 0.4);
      return FacePlanes(m);
    }();
    Buffer<std::uint32_t> seeds = [&] {
      const Monitor::Part part(monitor, 0.4, 0.5);
      return findSeeds(planes);
    }();
    if (seeds.empty()) return 0;
    sortByArea(seeds, planes.areas(), monitor);

    MaterialRuns runs(m);
    JoinTest joins(m, planes, mNormalTest, runs, mCompareAttributes, mFlatness);
    const Monitor::Part part(monitor, 0.5, 0.9, m.mFaces.poolSize());
    FaceRegions regions(m.mFaces, m.mVertices.size(), mTwins, planes.areas(), monitor);
    RegionOutline outline(m, mTwins);
    RegionMerger merger(m, runs);
    for (std::size_t i = 0; i < seeds.size(); ++i) {
      prefetchAhead(seeds, i, planes, regions);
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

 private:
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

  /// The faces that can grow at all: next to a face that they accept. Ascending. Forgets the twins across which no
  /// region can grow whatever its seed, as long as the two faces are at hand.
  Buffer<std::uint32_t> findSeeds(const FacePlanes& planes) {
    Buffer<std::uint32_t> seeds;
    seeds.reserve(m.mFaces.size());
    for (Monitor::Blocks blocks(m.mMonitor.get(), m.mFaces.size()); blocks.next();)
      for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
        if (planes.hasPlane(face) && canGrow(face, planes)) seeds.push_back(face);
    return seeds;
  }

  bool canGrow(std::uint32_t face, const FacePlanes& planes) {
    const Vec3& normal = m.mFaces.normal(face);
    bool isSeed = false;
    const std::size_t begin = m.mFaces.offset(face), end = begin + m.mFaces.cornerCount(face);
    for (std::size_t p = begin; p < end; ++p) {
      const std::uint32_t twin = mTwins.twinOf(p);
      if (twin == EdgeTwins::kNone) continue;
      const std::uint32_t neighbor = mTwins.faceOf(twin);
      if (planes.hasPlane(neighbor) && mNormalTest.areFarApart(m.mFaces.normal(neighbor), normal))
        mTwins.forgetTwin(p);
      else
        isSeed = isSeed || !planes.hasPlane(neighbor) || mNormalTest.accepts(m.mFaces.normal(neighbor), normal);
    }
    return isSeed;
  }

  /// Seeds come in the order of their areas, each from another end of the mesh: asks early for what the ones to come
  /// will need. Each step builds on what the one before it, some seeds ago, has brought.
  void prefetchAhead(std::span<const std::uint32_t> seeds, std::size_t position, const FacePlanes& planes,
                     const FaceRegions& regions) const {
    constexpr std::size_t kStep = 16;
    const auto prefetchFace = [&](std::uint32_t face) {
      m.mFaces.prefetch(face);
      regions.prefetch(face);
      planes.prefetch(face);
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
};

std::uint64_t mergeOnce(Mesh& mesh, double toleranceDegrees, bool compareAttributes, JoinTest::Flatness flatness) {
  Monitor* const monitor = mesh.storage().mMonitor.get();
  const std::uint64_t mergedCount = CoplanarMerge(mesh.storage(), toleranceDegrees, compareAttributes, flatness).run();
  const Monitor::Part part(monitor, 0.9, 1.0);
  if (mergedCount != 0) compactMesh(mesh);
  return mergedCount;
}

}  // namespace

std::uint64_t removeEdgesCoplanar(Mesh& mesh, double toleranceDegrees, bool compareAttributes) {
  if (!(toleranceDegrees >= 0.0)) return 0;
  return mergeOnce(mesh, toleranceDegrees, compareAttributes, JoinTest::Flatness::ofNormals);
}

std::uint64_t removeEdgesCoplanarKeepingFlat(Mesh& mesh, double toleranceDegrees, bool compareAttributes,
                                             bool isRepeated) {
  constexpr int kMostPasses = 100;
  if (!(toleranceDegrees >= 0.0)) return 0;
  std::uint64_t total = 0;
  for (int pass = 0; pass < (isRepeated ? kMostPasses : 1); ++pass) {
    const double begin = 1.0 - 1.0 / (pass + 1), end = isRepeated ? 1.0 - 1.0 / (pass + 2) : 1.0;
    const Monitor::Part part(mesh.storage().mMonitor.get(), begin, end);
    const std::uint64_t mergedCount =
        mergeOnce(mesh, toleranceDegrees, compareAttributes, JoinTest::Flatness::ofCorners);
    total += mergedCount;
    if (mergedCount == 0) break;
  }
  return total;
}

}  // namespace util
