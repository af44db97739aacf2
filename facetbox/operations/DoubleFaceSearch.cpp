#include <facetbox/operations/DoubleFaceSearch.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <iterator>
#include <span>
#include <utility>

#include <facetbox/operations/CanonicalCorners.h>
#include <facetbox/operations/FaceBuckets.h>
#include <facetbox/operations/FaceComparison.h>
#include <facetbox/operations/RepeatedVisits.h>
#include <facetbox/operations/TexCoordTree.h>

// The definition goes through the vertices, ascending. At a vertex it takes the faces that use it, ascending, and
// compares each with itself if it is there twice, and then with every higher one. A double is cleared at once.
//
// Whether two faces are double does not change while both are there. So each pair is decided at the first vertex that
// both use, their lowest, and a face's comparison with itself at the lowest vertex that it visits twice. Only faces of
// equal hash can be double, hence the buckets can be worked through one by one, in any order. The order of the
// definition is still needed to number new tag sets: DoubleFace carries the vertex for that.

namespace util {
namespace {

class DoubleFaceSearch {
 public:
  DoubleFaceSearch(const MeshStorage& mesh, const DoubleFaceRule& rule)
      : mMesh(mesh), mSelfIsDouble(rule.selfIsDouble), mComparison(mesh, rule) {}

  std::vector<DoubleFace> run() {
    Monitor* const monitor = mMesh.mMonitor.get();
    FaceBuckets buckets = [&] {
      const Monitor::Part part(monitor, 0.0, 0.5);
      return findCandidates();
    }();
    const Monitor::Part part(monitor, 0.5, 1.0, buckets.faces().size());
    std::size_t begin = 0;
    for (const std::uint32_t end : buckets.ends()) {
      const auto bucket = buckets.faces().subspan(begin, end - begin);
      if (bucket.size() > 1 || !mVisitingTwice.empty()) resolveBucket(bucket);
      if (monitor) monitor->tick(bucket.size());
      begin = end;
    }
    return std::move(mDoubles);
  }

 private:
  static constexpr std::size_t kFewCopies = 16;  // compared each with each

  /// The faces that may repeat another or themselves, in buckets by their hashes. Hole faces are left out.
  FaceBuckets findCandidates() {
    const PrimitiveList& faces = mMesh.mFaces;
    const auto faceCount = static_cast<std::uint32_t>(faces.size());
    const std::vector<std::uint32_t> outerOf = mMesh.mHoles.outerOfHoles(faceCount);
    const auto isCompared = [&](std::uint32_t face) {
      return !faces.isCleared(face) && (outerOf.empty() || outerOf[face] == HoleTable::kNone);
    };

    Buffer<std::uint32_t> hashes(faceCount);
    RepeatedHashes repeated(faceCount);
    RepeatedVisits repeatedVisits(mMesh.mVertices.size());
    const auto addFace = [&](std::uint32_t face) {
      const auto corners = faces.corners(face);
      hashes[face] = faceHash(corners);
      if (mSelfIsDouble && repeatedVisits.anyIn(face, corners)) {
        mVisitingTwice.push_back(face);
        repeated.addTwice(hashes[face]);
      } else {
        repeated.add(hashes[face]);
      }
    };
    Monitor* const monitor = mMesh.mMonitor.get();
    {
      const Monitor::Part part(monitor, 0.0, 0.5);
      for (Monitor::Blocks blocks(monitor, faceCount); blocks.next();)
        for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
          if (isCompared(face)) addFace(face);
    }

    Buffer<std::uint32_t> candidates;
    for (std::uint32_t face = 0; face < faceCount; ++face)
      if (isCompared(face) && repeated.mayRepeat(hashes[face])) candidates.push_back(face);
    const Monitor::Part part(monitor, 0.5, 1.0, candidates.size());
    return {candidates, hashes, monitor};
  }

  /// Finds the doubles among faces of one hash, ascending.
  void resolveBucket(std::span<const std::uint32_t> bucket) {
    if (bucket.size() <= kFewCopies) {
      resolvePairByPair(bucket);
      return;
    }
    sortByForm(bucket);
    for (auto begin = mForms.begin(); begin != mForms.end();) {
      const auto end = std::find_if(begin, mForms.end(), [&](const Form& form) { return *begin < form; });
      mAlike.clear();
      std::transform(begin, end, std::back_inserter(mAlike), [](const Form& form) { return form.face; });
      if (!mComparison.comparesAttributes() || mAlike.size() <= kFewCopies)
        resolvePairByPair(mAlike);
      else
        resolveByTree(mAlike);
      begin = end;
    }
  }

  /// What is equal for all faces that may be double: the material and the canonical corners.
  struct Form {
    std::uint32_t face, material;
    std::span<const std::uint32_t> corners;

    bool operator<(const Form& b) const {
      if (material != b.material) return material < b.material;
      return std::ranges::lexicographical_compare(corners, b.corners);
    }
  };

  /// Sorts a large bucket into mForms. Many faces of one hash may also be different ones, crafted to collide, or
  /// the rotations of one that visits a vertex many times.
  void sortByForm(std::span<const std::uint32_t> bucket) {
    std::size_t cornerCount = 0;
    for (const std::uint32_t face : bucket) cornerCount += mMesh.mFaces.cornerCount(face);
    mFormCorners.resize(cornerCount);
    mForms.clear();
    std::uint32_t* next = mFormCorners.data();
    for (const std::uint32_t face : bucket) {
      const std::uint32_t count = mMesh.mFaces.cornerCount(face);
      writeCanonicalCorners(mMesh.mFaces.corners(face), next, mScratch);
      mForms.push_back({face, mComparison.comparesAttributes() ? mComparison.materialOf(face) : 0, {next, count}});
      next += count;
    }
    std::ranges::stable_sort(mForms, [monitor = mMesh.mMonitor.get()](const Form& a, const Form& b) {
      if (monitor) monitor->tick();
      return a < b;
    });
  }

  void resolvePairByPair(std::span<const std::uint32_t> copies) {
    resolve(copies, [&](std::size_t copy, auto isDouble) {
      for (std::size_t later = copy + 1; later < copies.size(); ++later) {
        if (!mGone[later]) isDouble(later);
        tickEach(4096, later);
      }
    });
  }

  /// For many copies that only texture coordinates tell apart.
  void resolveByTree(std::span<const std::uint32_t> copies) {
    TexCoordTree tree(mMesh, copies, kTexCoordTolerance);
    resolve(copies, [&](std::size_t copy, auto isDouble) {
      // A face that is not even double to itself has an index beyond the texture coordinates, and so is to none.
      if (!mComparison.areDouble(copies[copy], copies[copy])) return;
      tree.forEachLater(static_cast<std::uint32_t>(copy),
                        [&](std::uint32_t later) { return mGone[later] || isDouble(later); });
    });
  }

  /// Lets each copy, ascending, remove its doubles among the later ones that are left. `forEachLater(copy, isDouble)`
  /// calls `isDouble` for each later copy that may be one; it returns whether that copy went.
  template <class ForEachLater>
  void resolve(std::span<const std::uint32_t> copies, ForEachLater forEachLater) {
    mGone.assign(copies.size(), 0);
    const auto removeIfDouble = [&](std::uint32_t vertex, std::uint32_t a, std::size_t copy) {
      if (!mComparison.areDouble(a, copies[copy])) return false;
      mDoubles.push_back({vertex, a, copies[copy]});
      mGone[copy] = 1;
      return true;
    };
    bool anyLeft = false;  // of those that visit a vertex twice
    for (std::size_t copy = 0; copy < copies.size(); ++copy) {
      tickEach(kFewCopies, copy);
      if (mGone[copy]) continue;
      const std::uint32_t a = copies[copy];
      const std::uint32_t lowest = std::ranges::min(mMesh.mFaces.corners(a));
      if (visitsTwice(a)) {
        if (lowestTwiceVisited(a) == lowest) removeIfDouble(lowest, a, copy);
        if (mGone[copy]) continue;
        anyLeft = true;
      }
      forEachLater(copy, [&](std::size_t later) { return removeIfDouble(lowest, a, later); });
    }
    if (!anyLeft) return;
    // Compared with itself only at a higher vertex, by when it has removed others.
    for (std::size_t copy = 0; copy < copies.size(); ++copy)
      if (!mGone[copy] && visitsTwice(copies[copy]))
        removeIfDouble(lowestTwiceVisited(copies[copy]), copies[copy], copy);
  }

  /// Tells the monitor of `count` steps, each time that so many more are done.
  void tickEach(std::size_t count, std::size_t done) const {
    if (done % count == count - 1 && mMesh.mMonitor) mMesh.mMonitor->tick(count);
  }

  bool visitsTwice(std::uint32_t face) const {
    return !mVisitingTwice.empty() && std::ranges::binary_search(mVisitingTwice, face);
  }

  std::uint32_t lowestTwiceVisited(std::uint32_t face) {
    const auto corners = mMesh.mFaces.corners(face);
    mScratch.assign(corners.begin(), corners.end());
    std::ranges::sort(mScratch);
    return *std::ranges::adjacent_find(mScratch);
  }

  const MeshStorage& mMesh;
  const bool mSelfIsDouble;
  FaceComparison mComparison;
  std::vector<std::uint32_t> mVisitingTwice;  // faces, ascending
  std::vector<DoubleFace> mDoubles;
  std::vector<std::uint8_t> mGone;  // of the copies at hand
  std::vector<Form> mForms;         // of a large bucket
  std::vector<std::uint32_t> mFormCorners, mAlike, mScratch;
};

}  // namespace

std::vector<DoubleFace> findDoubleFaces(const MeshStorage& mesh, const DoubleFaceRule& rule) {
  return DoubleFaceSearch(mesh, rule).run();
}

bool mayHaveDoubles(const MeshStorage& mesh, std::span<const std::uint32_t> faces) {
  assert(mesh.mHoles.empty());
  constexpr std::uint32_t kNone = 0xFFFFFFFFu;
  std::size_t stepsLeft = 16 * mesh.mFaces.size();
  const auto cornersOf = [&](std::uint32_t face) { return mesh.mFaces.corners(face); };
  // Chains by the lowest vertex, which doubles have in common.
  Buffer<std::uint32_t> first(mesh.mVertices.size(), kNone), next(faces.size());
  for (std::uint32_t i = 0; i < faces.size(); ++i)
    next[i] = std::exchange(first[std::ranges::min(cornersOf(faces[i]))], i);
  const auto mayBeDouble = [&](std::uint32_t a, std::uint32_t b) {
    const auto ofA = cornersOf(a), ofB = cornersOf(b);
    return a != b && ofA.size() == ofB.size() && faceHash(ofA) == faceHash(ofB);
  };
  for (Monitor::Blocks blocks(mesh.mMonitor.get(), mesh.mFaces.size()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
      for (std::uint32_t i = first[std::ranges::min(cornersOf(face))]; i != kNone; i = next[i])
        if (stepsLeft-- == 0 || mayBeDouble(face, faces[i])) return true;
  return false;
}

}  // namespace util
