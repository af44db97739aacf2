#pragma once

#include <cstddef>
#include <cstdint>

#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/FacePlanes.h>
#include <facetbox/operations/MaterialRuns.h>
#include <facetbox/operations/NormalTest.h>
#include <facetbox/operations/TextureMap.h>

namespace util {

/// Decides which faces join the region that grows from a seed, by the rules at removeEdgesCoplanar().
class JoinTest {
 public:
  /// Whether a face with a plane of its own is held against the seed by its normal alone.
  enum class Flatness { ofNormals, ofCorners };

  JoinTest(const MeshStorage& mesh, const FacePlanes& planes, const NormalTest& normalTest, const MaterialRuns& runs,
           bool compareAttributes, Flatness flatness)
      : m(mesh),
        mPlanes(planes),
        mNormalTest(normalTest),
        mRuns(runs),
        mCompareAttributes(compareAttributes),
        mTestsAllCorners(flatness == Flatness::ofCorners) {}

  /// Starts a region.
  void setSeed(std::uint32_t seed) {
    mSeed = seed;
    mTextureMaps.clear();
    if (mCompareAttributes) appendTextureMaps(m, seed, mTextureMaps);
  }

  /// Whether `neighbor` joins the region across its clean edge with `face`, which leaves the pool positions `corner`
  /// in the face and `twin` in the neighbor.
  ///
  /// A face whose turn as a seed has passed without growing is not to be had any more.
  bool accepts(std::uint32_t face, std::uint32_t corner, std::uint32_t neighbor, std::uint32_t twin) {
    const bool hasPlane = mPlanes.hasPlane(neighbor);
    return mPlanes.comesLater(neighbor, mSeed) &&
           (!hasPlane || mNormalTest.accepts(m.mFaces.normal(neighbor), m.mFaces.normal(mSeed))) &&
           carrySameSets(neighbor, mSeed) && (!mCompareAttributes || attributesAgree(face, corner, neighbor, twin)) &&
           ((hasPlane && !mTestsAllCorners && mTextureMaps.empty()) || cornersFit(neighbor, corner));
  }

 private:
  /// Which corner kept a face out of a region last, and how often another had done that before.
  struct Scan {
    std::uint32_t corner;
    std::uint8_t count;
  };

  bool carrySameSets(std::uint32_t a, std::uint32_t b) const {
    return m.mFaces.mask(a) == m.mFaces.mask(b) && m.mFaces.hasNormalIndices(a) == m.mFaces.hasNormalIndices(b) &&
           m.mFaces.perVertexNormals(a) == m.mFaces.perVertexNormals(b);
  }
  bool attributesAgree(std::uint32_t face, std::uint32_t corner, std::uint32_t neighbor, std::uint32_t twin) const;
  bool cornersFit(std::uint32_t face, std::uint32_t corner);

  const MeshStorage& m;
  const FacePlanes& mPlanes;
  const NormalTest& mNormalTest;
  const MaterialRuns& mRuns;
  bool mCompareAttributes;
  const bool mTestsAllCorners;
  std::uint32_t mSeed = 0;
  TextureMaps mTextureMaps;  // of the seed; empty where attributes are not compared
  Buffer<Scan> mScans;       // per face; allocated for the first face of many corners
};

}  // namespace util
