#include <facetbox/operations/FaceComparison.h>

#include <algorithm>
#include <bit>
#include <cassert>
#include <cmath>
#include <cstddef>
#include <unordered_map>

#include <facetbox/operations/TexCoordTolerance.h>

namespace util {
namespace {

/// Bounds the cost of faces that are crafted to visit one vertex again and again.
constexpr int kMostBeginnings = 16;

constexpr std::uint32_t kTexCoordSetBits = (1u << PrimitiveList::kTexCoordSets) - 1;

/// The directions in which one face may still run like the other.
struct Directions {
  bool forward, backward;
  bool any() const { return forward || backward; }
};

/// Walks once around face b and, from the corner `begin` of a, around a in both directions. Drops each direction in
/// which `agree(corner of a, corner of b)` fails somewhere.
template <class Agree>
Directions walk(std::size_t n, std::size_t begin, Directions directions, Agree agree) {
  std::size_t ahead = begin, back = begin;
  for (std::size_t k = 0; k < n && directions.any(); ++k) {
    directions.forward = directions.forward && agree(ahead, k);
    directions.backward = directions.backward && agree(back, k);
    ahead = ahead + 1 == n ? 0 : ahead + 1;
    back = back == 0 ? n - 1 : back - 1;
  }
  return directions;
}

/// Whether the texture coordinates at a corner of a and one of b agree in every set that a carries.
inline bool sameTexCoords(const MeshStorage& m, std::uint32_t a, std::size_t cornerOfA, std::uint32_t b,
                          std::size_t cornerOfB) {
  const PrimitiveList& faces = m.mFaces;
  for (std::uint32_t bits = faces.mask(a) & kTexCoordSetBits; bits != 0; bits &= bits - 1) {
    const int set = std::countr_zero(bits);
    if (!faces.carries(b, set)) return false;
    const auto& pairs = m.mTexCoords[static_cast<std::size_t>(set)];
    const std::uint32_t pairOfA = faces.cornerSet(a, set)[cornerOfA], pairOfB = faces.cornerSet(b, set)[cornerOfB];
    if (pairOfA >= pairs.size() || pairOfB >= pairs.size()) return false;
    const double u = pairs[pairOfA].x - pairs[pairOfB].x, v = pairs[pairOfA].y - pairs[pairOfB].y;
    // Written so that a NaN distance does not count as different.
    if (std::sqrt(u * u + v * v) >= kTexCoordTolerance) return false;
  }
  return true;
}

}  // namespace

FaceComparison::FaceComparison(const MeshStorage& mesh, const DoubleFaceRule& rule) : mMesh(mesh), mRule(rule) {
  assert(mesh.mRunStarts.size() == mesh.mRunMaterials.size());
  std::uint32_t highest = 0;
  for (const std::uint32_t start : mesh.mRunStarts) mHighestStarts.push_back(highest = std::max(highest, start));
  std::unordered_map<const void*, std::uint32_t> numbers;
  for (const MaterialPair& material : mesh.mRunMaterials)
    mMaterialNumbers.push_back(numbers.try_emplace(material.first.identity(), numbers.size()).first->second);
}

// The first start greater than the face is also the first at which the highest start so far is: bisection finds the
// same run as MeshStorage::runOf(), whatever the order of the starts.
std::uint32_t FaceComparison::materialOf(std::uint32_t face) const {
  if (mMaterialNumbers.empty()) return 0;
  const auto next = std::ranges::upper_bound(mHighestStarts, face) - mHighestStarts.begin();
  return mMaterialNumbers[static_cast<std::size_t>(std::max<std::ptrdiff_t>(next, 1) - 1)];
}

bool FaceComparison::areDouble(std::uint32_t a, std::uint32_t b) const {
  assert(a <= b && !mMesh.mFaces.isCleared(b));
  const auto cornersOfA = mMesh.mFaces.corners(a), cornersOfB = mMesh.mFaces.corners(b);
  const std::size_t n = cornersOfA.size();
  if (cornersOfB.size() != n) return false;
  int beginnings = mRule.selfIsDouble ? 1 : kMostBeginnings;
  for (auto at = cornersOfA.begin(); beginnings > 0; ++at, --beginnings) {
    at = std::find(at, cornersOfA.end(), cornersOfB[0]);
    if (at == cornersOfA.end()) return false;
    if (areDoubleFrom(static_cast<std::size_t>(at - cornersOfA.begin()), a, b)) return true;
  }
  return false;
}

bool FaceComparison::areDoubleFrom(std::size_t begin, std::uint32_t a, std::uint32_t b) const {
  const auto cornersOfA = mMesh.mFaces.corners(a), cornersOfB = mMesh.mFaces.corners(b);
  const std::size_t n = cornersOfA.size();
  const Directions directions =
      walk(n, begin, {true, true}, [&](std::size_t i, std::size_t j) { return cornersOfA[i] == cornersOfB[j]; });
  if (!mRule.compareAttributes || !directions.any()) return directions.any();
  if (materialOf(a) != materialOf(b)) return false;
  return walk(n, begin, directions, [&](std::size_t i, std::size_t j) { return sameTexCoords(mMesh, a, i, b, j); })
      .any();
}

bool FaceComparison::runAlike(std::uint32_t a, std::uint32_t b) const {
  const auto cornersOfA = mMesh.mFaces.corners(a), cornersOfB = mMesh.mFaces.corners(b);
  const std::size_t n = cornersOfA.size();
  for (std::size_t begin = 0; begin < n; ++begin)
    if (cornersOfA[begin] == cornersOfB[0] && cornersOfA[begin + 1 == n ? 0 : begin + 1] == cornersOfB[1]) return true;
  return false;
}

}  // namespace util
