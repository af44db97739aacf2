#include <facetbox/operations/SurfacePieces.h>

#include <algorithm>
#include <utility>

#include <facetbox/mesh/EdgeBuckets.h>
#include <facetbox/mesh/EdgeTwins.h>
#include <facetbox/operations/PieceMeasure.h>

namespace util {
namespace {

/// Ends the uses of one edge in a list.
constexpr std::uint32_t kEndOfEdge = 0xFFFFFFFFu;

template <class Item>
void sortWithTicks(std::span<Item> items, Monitor* monitor) {
  if (monitor)
    std::ranges::sort(items, [monitor](Item a, Item b) {
      monitor->tick();
      return a < b;
    });
  else
    std::ranges::sort(items);
}

}  // namespace

SurfacePieces::SurfacePieces(const MeshStorage& mesh) {
  Monitor* const monitor = mesh.mMonitor.get();
  linkEachToItself(mesh.mFaces.size());
  linkHoles(mesh);
  {
    const Monitor::Part part(monitor, 0.0, 0.8);
    linkNeighbors(mesh);
  }
  const Monitor::Part part(monitor, 0.8, 1.0);
  linkToLowest(monitor);
  judgeOverused(monitor);
  listPieces(monitor);
}

void SurfacePieces::linkEachToItself(std::size_t faceCount) {
  mIsOpen.assign(faceCount, 0);
  mLinks.resize(faceCount);
  for (std::uint32_t face = 0; face < faceCount; ++face) mLinks[face] = face << 1;
}

void SurfacePieces::linkHoles(const MeshStorage& mesh) {
  const std::vector<std::uint32_t> outerOf = mesh.mHoles.outerOfHoles(mesh.mFaces.size());
  if (outerOf.empty()) return;
  Monitor* const monitor = mesh.mMonitor.get();
  mRims.assign(outerOf.size(), Rim::none);
  for (const HoleTable::Group& group : mesh.mHoles.groupsByOuter(outerOf.size())) {
    if (outerOf[group.outer] != HoleTable::kNone) continue;
    const Vec3 area = doubleAreaOf(mesh.mVertices, mesh.mFaces.corners(group.outer));
    for (const std::uint32_t hole : group.holes) {
      if (monitor) monitor->tick();
      if (hole >= outerOf.size() || outerOf[hole] != group.outer) continue;
      // Both turn together, so a second time this is as it is the first time.
      const bool isAlike = dot(area, doubleAreaOf(mesh.mVertices, mesh.mFaces.corners(hole))) > 0.0;
      mRims[hole] = isAlike ? Rim::reversed : Rim::asItRuns;
      join(hole, group.outer, 0);
    }
  }
}

/// The order in which neighbors are joined matters only where a piece cannot be oriented: then it is done once more, in
/// the order of the edges.
void SurfacePieces::linkNeighbors(const MeshStorage& mesh) {
  if (mesh.mVertices.size() <= DirectedUse::kReversedBit) {
    mAreOrientable = linkPairs(mesh);
    if (mAreOrientable) return;
    mOverused.clear();
    linkEachToItself(mesh.mFaces.size());
    linkHoles(mesh);
  }
  linkInOrder(mesh);
}

/// False where a piece cannot be oriented.
bool SurfacePieces::linkPairs(const MeshStorage& mesh) {
  bool fits = true;
  const auto useOf = [&](const EdgeTwins& twins, const DirectedUse& use) {
    const std::uint32_t face = twins.faceOf(use.mPosition);
    return face << 1 | (use.runsDown() != isRimReversed(face) ? 1u : 0u);
  };
  const auto judgePair = [&](const EdgeTwins& twins, std::uint32_t low, const DirectedUse& a, const DirectedUse& b) {
    if (a.high() == low) return;
    const FaceAndDirection first = useOf(twins, a), second = useOf(twins, b);
    const std::uint32_t isSameDirection = ~(first ^ second) & 1;
    if (first >> 1 != second >> 1)
      fits = join(first >> 1, second >> 1, isSameDirection) && fits;
    else if (isSameDirection != 0)
      mIsOpen[first >> 1] = 1;
  };
  const auto judgeOthers = [&](const EdgeTwins& twins, std::uint32_t low, std::span<const DirectedUse> uses) {
    if (uses.front().high() == low) return;
    if (uses.size() == 1) {
      mIsOpen[useOf(twins, uses.front()) >> 1] = 1;
      return;
    }
    for (const DirectedUse& use : uses) mOverused.push_back(useOf(twins, use));
    mOverused.push_back(kEndOfEdge);
  };
  Monitor* const monitor = mesh.mMonitor.get();
  EdgeTwins twins = findEdgeTwins(mesh.mFaces, mesh.mVertices.size(), monitor, judgePair, judgeOthers);
  mesh.mConnectivity.keepTwins(std::move(twins));
  return fits;
}

void SurfacePieces::linkInOrder(const MeshStorage& mesh) {
  Monitor* const monitor = mesh.mMonitor.get();
  // A use is the higher vertex of the edge, then the face and the direction: sorted, edges come by both vertices.
  EdgeBuckets<std::uint64_t> buckets(
      mesh.mVertices.size(), monitor, [&](auto visit) { forEachEdge(mesh.mFaces, monitor, visit); },
      [this](std::uint32_t face, std::uint32_t, std::uint32_t a, std::uint32_t b) {
        const bool runsDown = (a > b) != isRimReversed(face);
        return std::uint64_t{std::max(a, b)} << 32 | face << 1 | (runsDown ? 1u : 0u);
      });
  std::uint32_t low = 0;
  buckets.forEach([&](std::span<std::uint64_t> bucket) {
    sortWithTicks(bucket, bucket.size() < EdgeBuckets<std::uint64_t>::kSortFrom ? nullptr : monitor);
    for (std::size_t begin = 0, end = 0; begin < bucket.size(); begin = end) {
      const std::uint64_t high = bucket[begin] >> 32;
      while (end < bucket.size() && bucket[end] >> 32 == high) ++end;
      if (high != low) judgeEdge(bucket.subspan(begin, end - begin));
    }
    ++low;
  });
}

void SurfacePieces::judgeEdge(std::span<const std::uint64_t> uses) {
  if (uses.size() > 2) {
    for (const std::uint64_t use : uses) mOverused.push_back(static_cast<FaceAndDirection>(use));
    mOverused.push_back(kEndOfEdge);
    return;
  }
  const auto first = static_cast<FaceAndDirection>(uses.front()), second = static_cast<FaceAndDirection>(uses.back());
  const std::uint32_t face = first >> 1, other = second >> 1, isSameDirection = ~(first ^ second) & 1;
  // The faces of one surface run alike from the beginning.
  const bool fits = uses.size() == 2 && join(face, other, isSameDirection);
  if (!fits) mIsOpen[face] = 1;
}

/// The link of a face to the lowest one of its tree as far as known; it leads there when no face in between is left.
std::uint32_t SurfacePieces::shortenedLink(std::uint32_t face) {
  std::uint32_t parity = 0;
  for (;;) {
    const std::uint32_t link = mLinks[face], next = link >> 1;
    if (next == face) return face << 1 | parity;
    // Each face on the way is led past the next one.
    mLinks[face] = mLinks[next] ^ (link & 1);
    parity ^= mLinks[face] & 1;
    face = mLinks[face] >> 1;
  }
}

/// False where the two are joined already, and otherwise.
bool SurfacePieces::join(std::uint32_t a, std::uint32_t b, std::uint32_t isAgainst) {
  const std::uint32_t linkA = shortenedLink(a), linkB = shortenedLink(b);
  const std::uint32_t low = std::min(linkA, linkB), high = std::max(linkA, linkB);
  const std::uint32_t parity = (linkA ^ linkB ^ isAgainst) & 1;
  if (low >> 1 == high >> 1) return parity == 0;
  mLinks[high >> 1] = (low >> 1) << 1 | parity;
  return true;
}

/// Every link leads to the lowest face itself.
void SurfacePieces::linkToLowest(Monitor* monitor) {
  for (Monitor::Blocks blocks(monitor, mLinks.size()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const std::uint32_t link = mLinks[face];
      mLinks[face] = mLinks[link >> 1] ^ (link & 1);
      mIsOpen[mLinks[face] >> 1] |= mIsOpen[face];
    }
}

/// Edges of three uses and more join nothing, but a piece may be closed there all the same.
void SurfacePieces::judgeOverused(Monitor* monitor) {
  const std::span<FaceAndDirection> overused = mOverused;
  for (std::size_t begin = 0, end; begin < overused.size(); begin = end + 1) {
    for (end = begin; overused[end] != kEndOfEdge; ++end)
      overused[end] = mLinks[overused[end] >> 1] ^ (overused[end] & 1);  // the piece and its direction
    const auto uses = overused.subspan(begin, end - begin);
    sortWithTicks(uses, monitor);
    std::size_t upCount = 0, count = 0;
    for (std::size_t i = 0; i < uses.size(); ++i) {
      ++count;
      upCount += (uses[i] & 1) == 0;
      if (i + 1 < uses.size() && uses[i + 1] >> 1 == uses[i] >> 1) continue;
      if (2 * upCount != count) mIsOpen[uses[i] >> 1] = 1;
      upCount = count = 0;
    }
  }
}

void SurfacePieces::listPieces(Monitor* monitor) {
  const auto faceCount = static_cast<std::uint32_t>(mLinks.size());
  Buffer<std::uint32_t> pieceOf(faceCount);
  mStarts.push_back(0);
  for (Monitor::Blocks blocks(monitor, faceCount); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const std::uint32_t lowest = mLinks[face] >> 1;
      if (lowest == face) {
        pieceOf[face] = static_cast<std::uint32_t>(mStarts.size() - 1);
        mStarts.push_back(0);
      }
      pieceOf[face] = pieceOf[lowest];
      ++mStarts[pieceOf[face] + 1];
    }
  // Filling moves each start on to its end, so the starts stand one place further up.
  std::uint32_t start = 0;
  for (std::size_t piece = 1; piece < mStarts.size(); ++piece) start += std::exchange(mStarts[piece], start);
  mByPiece.resize(faceCount);
  for (Monitor::Blocks blocks(monitor, faceCount); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face)
      mByPiece[mStarts[pieceOf[face] + 1]++] = face;
}

}  // namespace util
