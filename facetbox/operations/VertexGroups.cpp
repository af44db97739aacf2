#include <facetbox/operations/VertexGroups.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <locale>
#include <sstream>

#include <facetbox/spatial/PointOctree.h>
#include <facetbox/util/RuntimeErrorST.h>

namespace util {
namespace {

/// From this size on, a vertex that does not find itself is an error.
constexpr std::size_t kCheckedSize = 1000;

/// The slots of the vertices to come, found early enough that the memory their searches need is there in time.
class SlotsAhead {
 public:
  SlotsAhead(const PointOctree& octree, std::uint32_t vertexCount) : mOctree(octree), mVertexCount(vertexCount) {
    findFrom(0);
  }

  /// The slot of a vertex. To be asked of the vertices in order.
  std::uint32_t slotOf(std::uint32_t vertex) {
    if (mRevision != mOctree.revision()) findFrom(vertex);
    if (mVertexCount - vertex > kAhead) {
      mOctree.prefetchSlot(mSlots[(vertex + kAhead) % kRing] = mOctree.slotOfPoint(vertex + kAhead));
      mOctree.prefetchEntry(mSlots[(vertex + kAhead * 2 / 3) % kRing]);
      mOctree.prefetchPoint(mSlots[(vertex + kAhead / 3) % kRing]);
    }
    return mSlots[vertex % kRing];
  }

 private:
  static constexpr std::uint32_t kAhead = 24;
  static constexpr std::uint32_t kRing = 32;

  void findFrom(std::uint32_t vertex) {
    mRevision = mOctree.revision();
    const std::uint32_t end = vertex + std::min(kAhead, mVertexCount - vertex);
    for (std::uint32_t v = vertex; v < end; ++v) mSlots[v % kRing] = mOctree.slotOfPoint(v);
  }

  const PointOctree& mOctree;
  std::uint32_t mVertexCount;
  int mRevision;
  std::array<std::uint32_t, kRing> mSlots{};
};

[[noreturn]] void throwNotFound(const Vec3& vertex) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "Merge failed : Vertex (" << vertex.x << ", " << vertex.y << ", " << vertex.z << ") not found in octree.";
  throw RuntimeErrorST(text.str());
}

}  // namespace

VertexGroups::VertexGroups(std::span<const Vec3> vertices, double tolerance, Monitor* monitor) {
  const auto vertexCount = static_cast<std::uint32_t>(vertices.size());
  mGroupOf.resize(vertexCount, kNone);
  if (monitor) monitor->look();
  // A vertex belongs to the first seed that it is near to: an earlier seed has taken it before a later one could.
  // So seeds alone need to be searched.
  PointOctree seeds(vertices, tolerance, monitor);
  const double toleranceSq = tolerance * tolerance;
  SlotsAhead slots(seeds, vertexCount);
  for (Monitor::Blocks blocks(monitor, vertexCount); blocks.next();)
    for (std::uint32_t v = blocks.begin(), end = blocks.end(); v < end; ++v) {
      const std::uint32_t slot = slots.slotOf(v);
      const std::uint32_t seed = seeds.findFirstNear(v, slot);
      if (seed != PointOctree::kNone) {
        mGroupOf[seed] = mGroupOf[v] = seed;
        mIsEmpty = false;
        continue;
      }
      if (vertexCount >= kCheckedSize && !(lengthSq(vertices[v] - vertices[v]) <= toleranceSq))
        throwNotFound(vertices[v]);
      seeds.insert(v, slot);
    }
}

VertexGroups::VertexGroups(std::span<const Vec3> vertices, std::span<const Edge> edges, double tolerance) {
  mGroupOf.resize(vertices.size(), kNone);
  if (edges.empty()) return;
  // Per vertex those at the other ends of its edges, by counting.
  Buffer<std::uint32_t> ends(vertices.size() + 1, 0), others(2 * edges.size());
  for (const auto& [a, b] : edges) ++ends[a], ++ends[b];
  std::uint32_t total = 0;
  for (std::uint32_t& end : ends) total = end = total + end;
  for (const auto& [a, b] : edges) {
    others[--ends[a]] = b;
    others[--ends[b]] = a;
  }
  const double toleranceSq = tolerance * tolerance;
  std::vector<std::uint32_t> reached;
  for (std::uint32_t seed = 0; seed < vertices.size(); ++seed) {
    if (ends[seed] == ends[seed + 1] || mGroupOf[seed] != kNone) continue;
    // A group of one is none: the seed is marked when it has taken another vertex.
    reached.assign(1, seed);
    for (std::size_t at = 0; at < reached.size(); ++at)
      for (std::uint32_t i = ends[reached[at]]; i < ends[reached[at] + 1]; ++i) {
        const std::uint32_t v = others[i];
        if (v == seed || mGroupOf[v] != kNone || !(lengthSq(vertices[v] - vertices[seed]) <= toleranceSq)) continue;
        mGroupOf[v] = mGroupOf[seed] = seed;
        mIsEmpty = false;
        reached.push_back(v);
      }
  }
}

void VertexGroups::listMembers() {
  const auto vertexCount = static_cast<std::uint32_t>(mGroupOf.size());
  mSizes.resize(vertexCount, 0);
  for (const std::uint32_t group : mGroupOf)
    if (group != kNone) ++mSizes[group];
  mSeeds.resize(vertexCount);
  std::uint32_t end = 0;
  for (std::uint32_t group = 0; group < vertexCount; ++group) {
    mSeeds[group] = end;
    end += mSizes[group];
  }
  mMembers.resize(end);
  // Filling moves the starts to the ends; taking the sizes off moves them back.
  for (std::uint32_t v = 0; v < vertexCount; ++v)
    if (mGroupOf[v] != kNone) mMembers[mSeeds[mGroupOf[v]]++] = v;
  for (std::uint32_t group = 0; group < vertexCount; ++group) mSeeds[group] -= mSizes[group];
}

std::uint32_t VertexGroups::removeFromGroup(std::uint32_t vertex) {
  assert(mGroupOf[vertex] != kNone);
  if (mSeeds.empty()) listMembers();
  const std::uint32_t group = mGroupOf[vertex];
  const auto skipLeft = [&](std::uint32_t position) {
    while (mGroupOf[mMembers[position]] != group) ++position;
    return position;
  };
  if (mSizes[group] == 2) {
    const std::uint32_t first = mSeeds[group], second = skipLeft(first + 1);
    mGroupOf[mMembers[first]] = mGroupOf[mMembers[second]] = kNone;
    mSizes[group] = 0;
    return vertex == mMembers[first] ? mMembers[second] : mMembers[first];
  }
  mGroupOf[vertex] = kNone;
  --mSizes[group];
  mSeeds[group] = skipLeft(mSeeds[group]);
  return kNone;
}

Buffer<std::uint32_t> VertexGroups::intoNewNumbers(std::uint32_t& keptCount) && {
  // In place: a seed precedes its members, so its new number stands already when they are reached.
  Buffer<std::uint32_t> newNumbers = std::move(mGroupOf);
  keptCount = 0;
  for (std::uint32_t v = 0; v < newNumbers.size(); ++v) {
    const std::uint32_t group = newNumbers[v];
    const std::uint32_t seed = group == kNone ? v : seedOf(group);
    newNumbers[v] = seed == v ? keptCount++ : newNumbers[seed];
  }
  return newNumbers;
}

}  // namespace util
