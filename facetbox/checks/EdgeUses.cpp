#include <facetbox/checks/EdgeUses.h>

#include <algorithm>
#include <span>
#include <utility>

#include <facetbox/base/DisjointSets.h>
#include <facetbox/mesh/EdgeBuckets.h>

namespace util {
namespace {

struct EdgeUse {
  std::uint32_t higherVertex;
  std::uint32_t face;  // for the rim of a hole its outer face
  bool isAscending;

  std::uint32_t high() const { return higherVertex; }
};

/// Calls `visit(face, position, a, b)` for every edge of every face, as it runs along the surface.
template <class Visit>
void forEachUse(const CheckedMesh& mesh, Visit visit) {
  const auto visitFace = [&](std::uint32_t face) {
    if (mesh.isLeftOut(face)) return;
    const bool isHole = mesh.isHole(face), isReversed = isHole && mesh.isRimReversed(face);
    const std::uint32_t surface = isHole ? mesh.outerOf(face) : face;
    const auto corners = mesh.corners(face);
    std::uint32_t from = corners.back();
    for (const std::uint32_t to : corners) {
      const std::uint32_t a = std::exchange(from, to);
      if (a != to) visit(surface, 0u, isReversed ? to : a, isReversed ? a : to);
    }
  };
  for (Monitor::Blocks blocks(mesh.monitor(), mesh.faceCount()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) visitFace(face);
}

void numberComponents(const CheckedMesh& mesh, DisjointSets& sets, facetbox::Defects& defects) {
  defects.components.assign(mesh.faceCount(), facetbox::kNone);
  for (std::uint32_t face = 0; face < mesh.faceCount(); ++face) {
    if (mesh.isLeftOut(face)) continue;
    const std::uint32_t lowest = sets.lowestOf(face);
    defects.components[face] = lowest == face ? defects.componentCount++ : defects.components[lowest];
  }
}

/// Sorts the uses of one edge into the lists.
void judge(std::uint32_t low, std::span<const EdgeUse> uses, facetbox::Defects& defects) {
  const facetbox::Defects::Pair edge{low, uses[0].higherVertex};
  if (uses.size() == 1)
    defects.openEdges.push_back(edge);
  else if (uses.size() > 2)
    defects.overusedEdges.push_back(edge);
  else if (uses[0].isAscending == uses[1].isAscending)
    defects.sameDirectionEdges.push_back(edge);
}

}  // namespace

void checkEdges(const CheckedMesh& mesh, facetbox::Defects& defects) {
  EdgeBuckets<EdgeUse> buckets(
      mesh.vertexCount(), mesh.monitor(), [&](auto visit) { forEachUse(mesh, visit); },
      [](std::uint32_t face, std::uint32_t, std::uint32_t a, std::uint32_t b) {
        return EdgeUse{std::max(a, b), face, a < b};
      });
  DisjointSets sets(mesh.faceCount());
  if (mesh.monitor()) mesh.monitor()->look();
  std::uint32_t low = 0;
  buckets.forEach([&](std::span<EdgeUse> bucket) {
    std::ranges::sort(bucket, {}, &EdgeUse::higherVertex);
    if (mesh.monitor()) mesh.monitor()->tick(bucket.size());
    for (std::size_t begin = 0; begin < bucket.size();) {
      std::size_t end = begin + 1;
      for (; end < bucket.size() && bucket[end].higherVertex == bucket[begin].higherVertex; ++end)
        sets.join(bucket[begin].face, bucket[end].face);
      judge(low, bucket.subspan(begin, end - begin), defects);
      begin = end;
    }
    ++low;
  });
  for (std::uint32_t face = 0; face < mesh.faceCount(); ++face)
    if (mesh.isHole(face) && !mesh.isLeftOut(face)) sets.join(face, mesh.outerOf(face));
  if (mesh.monitor()) mesh.monitor()->look();
  numberComponents(mesh, sets, defects);
  defects.isClosed = defects.componentCount != 0 && defects.openEdges.empty() && defects.overusedEdges.empty();
  defects.isOriented = defects.sameDirectionEdges.empty();
}

}  // namespace util
