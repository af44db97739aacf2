#include <facetbox/util/mesh/EdgeTwins.h>

#include <facetbox/util/mesh/EdgeBuckets.h>

namespace util {
namespace {

struct EdgeUse {
  static constexpr std::uint32_t kReversedBit = 0x80000000u;

  std::uint32_t mHighAndDirection;  ///< higher vertex; the top bit tells that the use runs from it to the lower one
  std::uint32_t mPosition;          ///< of the corner in the pool

  std::uint32_t high() const { return mHighAndDirection & ~kReversedBit; }
};

}  // namespace

EdgeTwins findEdgeTwins(const PrimitiveList& faces, std::size_t vertexCount) {
  EdgeTwins twins;
  twins.mTwinOf.resize(faces.poolSize(), EdgeTwins::kNone);
  twins.mFaceOf.resize(faces.poolSize());
  EdgeBuckets<EdgeUse> buckets(
      vertexCount, [&](auto visit) { forEachEdge(faces, visit); },
      [&](std::uint32_t face, std::uint32_t position, std::uint32_t a, std::uint32_t b) {
        twins.mFaceOf[position] = face;
        return EdgeUse{a < b ? b : a | EdgeUse::kReversedBit, position};
      });
  buckets.forEachPair([&](const EdgeUse& a, const EdgeUse& b) {
    const bool runOpposite = ((a.mHighAndDirection ^ b.mHighAndDirection) & EdgeUse::kReversedBit) != 0;
    if (!runOpposite || twins.mFaceOf[a.mPosition] == twins.mFaceOf[b.mPosition]) return;
    twins.mTwinOf[a.mPosition] = b.mPosition;
    twins.mTwinOf[b.mPosition] = a.mPosition;
  });
  return twins;
}

}  // namespace util
