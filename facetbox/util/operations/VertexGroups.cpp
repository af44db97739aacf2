#include <facetbox/util/operations/VertexGroups.h>

#include <algorithm>
#include <locale>
#include <sstream>

#include <facetbox/util/RuntimeErrorST.h>
#include <facetbox/util/spatial/PointOctree.h>

namespace util {
namespace {

/// From this size on, a vertex that does not find itself is an error.
constexpr std::size_t kCheckedSize = 1000;

/// How far ahead of the search the memory that it needs is asked for.
constexpr std::uint32_t kLookAhead = 12;

[[noreturn]] void throwNotFound(const Vec3& vertex) {
  std::ostringstream text;
  text.imbue(std::locale::classic());
  text << "Merge failed : Vertex (" << vertex.x << ", " << vertex.y << ", " << vertex.z << ") not found in octree.";
  throw RuntimeErrorST(text.str());
}

}  // namespace

VertexGroups::VertexGroups(std::span<const Vec3> vertices, double tolerance) {
  const auto vertexCount = static_cast<std::uint32_t>(vertices.size());
  mGroupOf.resize(vertexCount, kNone);
  // A vertex belongs to the first seed that it is near to: an earlier seed has taken it before a later one could.
  // So seeds alone need to be searched.
  PointOctree seeds(vertices, tolerance);
  const double toleranceSq = tolerance * tolerance;
  for (std::uint32_t v = 0; v < vertexCount; ++v) {
    if (v + kLookAhead < vertexCount) seeds.prefetch(v + kLookAhead);
    const std::uint32_t seed = seeds.findFirstNear(v);
    if (seed != PointOctree::kNone) {
      mGroupOf[seed] = mGroupOf[v] = seed;
      mIsEmpty = false;
      continue;
    }
    if (vertexCount >= kCheckedSize && !(lengthSq(vertices[v] - vertices[v]) <= toleranceSq))
      throwNotFound(vertices[v]);
    seeds.insert(v);
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

void VertexGroups::removeFromGroup(std::uint32_t vertex) {
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
    return;
  }
  mGroupOf[vertex] = kNone;
  --mSizes[group];
  mSeeds[group] = skipLeft(mSeeds[group]);
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
