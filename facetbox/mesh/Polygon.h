#pragma once

#include <cstdint>
#include <vector>

#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/SmallIndexList.h>

namespace util {

/// One face, line or point as a record of its own. Inside a mesh the same values are stored flat (PrimitiveList).
struct Polygon {
  SmallIndexList mVertexIndices;                ///< the corners, in order
  SmallIndexList mNormalIndices;                ///< one per corner, or empty
  std::uint32_t mTexCoordCount = 0;             ///< number of indices per present set: the corner count, or 0
  std::uint32_t mTexCoordMask = 0;              ///< bits 0 to 9: texture-coordinate sets; 10, 11: further corner sets
  std::vector<std::uint32_t> mTexCoordIndices;  ///< mTexCoordCount indices per present set, in bit order
  Vec3 mNormal{0.0, 0.0, 0.0};                  ///< face normal
  std::uint8_t mPerVertexNormals = 0;           ///< whether mNormalIndices are valid
  std::int32_t mTag = -1;                       ///< index into the mesh's tag sets, -1 for none
};

}  // namespace util
