#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/CornersOfVertices.h>

namespace util {

/// Decides which vertices of a chain (BoundaryChains) stay so that all others are straight against those that stay.
///
/// Let A and B stay, and nothing between them. Then each vertex m between them
/// - sees A and B under an angle of 180 - `toleranceDegrees` at least, or coincides with one of them. So up to 90
///   degrees no point of the old chain is farther from the edge AB than |AB| / 2 * tan(tolerance / 2);
/// - is not passed by the chain going back along AB by more than that, as it does where it has a spike;
/// - where texture coordinates count, lies between A and B in texture space as it does on the way |Am| + |mB|, off by
///   less than kTexCoordTolerance in each face and set.
///
/// Whether it is so, and what else has to stay, is decided by A, B and the vertices between them that stay in the end:
/// of those out of sight the one with the longest way |Am| + |mB|; else the two between which the chain goes back most;
/// else the one farthest off in texture space. (The way is longest at true corners: along an edge it is longer at one
/// of the ends, while along an arc it is longest in the middle.) From A to that vertex, and from there to B, it is the
/// same again. So what stays would stay again, if it came alone. Ties go to the lower vertex.
///
/// A ring is divided at its vertex farthest from its end first, and at least two vertices beside the end stay.
///
/// About O(n log n) for a chain of n vertices, O(n) times 320 at worst: where dividing a chain in this way has not come
/// to an end after 200 times, as in a comb of very many teeth, it is divided in the middle as well, at the vertex
/// farthest from the line AB; after 320 times, all stays.
class ChainStraightener {
 public:
  /// @param textured  the corners at each chain's second vertex, or null where texture coordinates do not count
  /// @param removed   per vertex, to be marked
  ChainStraightener(const MeshStorage& mesh, double toleranceDegrees, const CornersOfVertices* textured,
                    std::vector<bool>& removed);

  /// Marks the inner vertices of a chain that do not stay. Returns whether any stays.
  bool straighten(std::span<const std::uint32_t> chain);
  /// The same for an open chain of which something has to stay: the vertex with the longest way as well.
  void straightenKeepingOne(std::span<const std::uint32_t> chain);

 private:
  /// A part of the chain, by positions.
  struct Part {
    std::uint32_t begin, end;
    std::uint32_t depth;
  };
  /// How a face runs along the chain.
  struct Visit {
    std::uint32_t face;
    std::uint32_t position;  ///< of the chain's end
    bool isForward;
  };
  class Choice;

  void open(std::span<const std::uint32_t> chain);
  std::uint32_t lastPosition() const { return static_cast<std::uint32_t>(mChain.size() - 1); }
  bool straightenOne(std::span<const std::uint32_t> chain);
  bool isOneOffInTexture(std::span<const std::uint32_t> chain, const Vec3& toA, const Vec3& toB) const;
  void straightenRing();
  void straightenBetween(std::initializer_list<std::uint32_t> positions, std::uint32_t depth);
  void keep(std::uint32_t position);
  void push(const Part& part);
  void count(const Part& part);
  void divide(const Part& part);
  void divideAt(const Part& part, std::uint32_t a, std::uint32_t b);

  bool isOutOfSight(const Vec3& toA, const Vec3& toB) const;
  std::uint32_t findCorner(const Part& part) const;
  std::uint32_t findInTheMiddle(const Part& part) const;
  std::pair<std::uint32_t, std::uint32_t> findBack(const Part& part) const;
  void findVisits();
  std::uint32_t findOffInTexture(const Part& part) const;
  void offerOffInTexture(const Part& part, const Visit& visit, int set, Choice& choice) const;

  const MeshStorage& mMesh;
  const CornersOfVertices* const mTextured;
  std::vector<bool>& mRemoved;
  const bool mAllStraight;
  const bool mIsBelowRight;         // the tolerance, in degrees
  const double mSineSq, mCosineSq;  // of the tolerance
  const double mBack;               // how far a chain may go back, by half the edge

  // The current chain.
  std::span<const std::uint32_t> mChain;
  Buffer<Vec3> mPoints;
  std::vector<Visit> mVisits;
  std::vector<Part> mParts;  // to do
  std::size_t mKeptCount = 0;
  std::size_t mWork = 0;  // since the monitor was looked at
};

}  // namespace util
