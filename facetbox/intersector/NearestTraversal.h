#pragma once

#include <cstddef>

#include <facetbox/intersector/ClipPolygon.h>
#include <facetbox/intersector/NearestSearch.h>
#include <facetbox/intersector/UnitFunction.h>
#include <facetbox/triangles/TriangleBvh.h>

namespace util {

/// The search of one mesh by its bounding volume hierarchy: nearest boxes first, frustum culling on the way.
///
/// Passes over the triangles that the search over all of them would reject, and no others; UnitFunction.h derives the
/// margins that make this certain.
class NearestSearch::Traversal {
 public:
  Traversal(NearestSearch& search, const TriangleBvh& hierarchy);

  /// Finds the nearest point of the mesh, unless the plain loop is faster or the numbers might overflow.
  /// @return whether every triangle has been dealt with
  bool run();

 private:
  static constexpr int kWidth = TriangleBvh::kWidth;
  static constexpr int kPlanes = ClipPolygon::kPlanes;

  struct Plane {
    UnitFunction distance;
    float outside, inside;  ///< limits
  };
  struct Waiting {
    TriangleBvh::Reference reference;
    float nearest;  ///< a bound of the depth, scaled
    bool isInside;  ///< whether the whole subtree lies in the volume
  };
  /// What is known of a node's children.
  struct alignas(32) Children {
    float nearest[kWidth];  ///< as in Waiting
    int isOut[kWidth], isIn[kWidth];
  };

  bool preparePlanes(const TriangleBvh& hierarchy);
  bool prepareDepth(const TriangleBvh& hierarchy);
  void limitDepth();
  void openNode(const TriangleBvh::Node& node, bool isInside);
  void cull(const TriangleBvh::Node& node, bool isInside, Children& children) const;
  bool testBlock(const TriangleBvh::Block& block, bool isInside);

  NearestSearch& mSearch;
  const TriangleBvh::View mView;
  bool mIsPossible = false;
  std::size_t mPatience;  ///< with triangles that have to be clipped: for many of them, the plain loop is faster
  Plane mPlanes[kPlanes];
  UnitFunction mDepth;
  double mCornerMargin = 0;  ///< what a clipped point may be nearer than its triangle's corners
  double mLimitedBest = 0;   ///< the best depth that the limit was made from
  float mDepthLimit = 0;     ///< subtrees beyond hold nothing of use
  int mCount = 0;            ///< on the stack
  Waiting mStack[TriangleBvh::kStackSize];
};

}  // namespace util
