#include <facetbox/mesh/EdgeTwins.h>

#include <cassert>

#include <facetbox/mesh/EdgeBuckets.h>

namespace util {
namespace {

struct EdgeUse {
  static constexpr std::uint32_t kReversedBit = 0x80000000u;

  std::uint32_t mHighAndDirection;  ///< higher vertex; the top bit tells that the use runs from it to the lower one
  std::uint32_t mPosition;          ///< of the corner in the pool

  std::uint32_t high() const { return mHighAndDirection & ~kReversedBit; }
};

}  // namespace

EdgeTwins findEdgeTwins(const PrimitiveList& faces, std::size_t vertexCount, Monitor* monitor) {
  assert(vertexCount <= EdgeUse::kReversedBit);
  EdgeTwins twins;
  twins.mCorners.resize(faces.poolSize(), {EdgeTwins::kNone, 0});
  EdgeBuckets<EdgeUse> buckets(
      vertexCount, monitor, [&](auto visit) { forEachEdge(faces, monitor, visit); },
      [&](std::uint32_t face, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
        twins.mCorners[position].mFace = face;
        return EdgeUse{a < b ? b : a | EdgeUse::kReversedBit, position};
      });
  buckets.forEachPair([&](const EdgeUse& a, const EdgeUse& b) {
    const bool runOpposite = ((a.mHighAndDirection ^ b.mHighAndDirection) & EdgeUse::kReversedBit) != 0;
    if (!runOpposite || twins.faceOf(a.mPosition) == twins.faceOf(b.mPosition)) return;
    twins.mCorners[a.mPosition].mTwin = b.mPosition;
    twins.mCorners[b.mPosition].mTwin = a.mPosition;
  });
  return twins;
}

}  // namespace util
