#pragma once

#include <cstddef>
#include <cstdint>

#include <facetbox/base/Processor.h>

namespace util {

/// A vertex on its way into clip space: its coordinates have to be divided by w yet.
///
/// The quotient of two doubles rounds to more than 1 just where the first is the larger one: which faces of the cube a
/// vertex lies beyond is told without dividing.
struct ClipVertex {
  double x, y, z, w;     ///< w is above 0, and finite
  std::uint32_t beyond;  ///< a bit for each face that it lies beyond; all of an axis for a NaN
};

/// Transforms `count` points, three doubles each, by a matrix as FrustumCulling.h says. One whose w does not allow it
/// goes to the cube's center.
using ToClipVertices = void(const double c[16], const double* points, std::size_t count, ClipVertex* out);

/// For processors with AVX2, and for any.
ToClipVertices toClipVerticesAvx2;
ToClipVertices toClipVerticesBase;

ToClipVertices& clipVerticesFor(Instructions instructions);

}  // namespace util
