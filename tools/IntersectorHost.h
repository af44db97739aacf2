#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include <facetbox/intersector/Intersector.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>
#include <tools/CellPainter.h>
#include <tools/Vector.h>

namespace tool {

/// Where an object is nearest in a view volume.
struct NearestPoint {
  Vector mPoint;
  std::array<Vector, 3> mTriangle;
};

/// The first hit of a ray on an object.
struct ObjectHit {
  double mDistance = 0;  ///< of unit length
  Vector mNormal;        ///< of unit length, by the winding of the face
};

/// Objects in the library's intersector, numbered from 0 as they are added. All in one scene's coordinates.
///
/// They have no boxes: a volume deep inside a box would find nothing.
class IntersectorHost {
 public:
  /// @throws std::runtime_error where a face cannot be triangulated
  void add(const util::Mesh& mesh);

  /// Whether an object covers only set cells. The mask shows the whole view of the matrix.
  bool isOnMask(std::size_t object, const std::array<float, 16>& matrix, const Mask& mask) const;

  /// @param wholeInside  the object must lie in the volume completely
  bool isInVolume(std::size_t object, const std::array<float, 16>& matrix, bool wholeInside) const;

  std::optional<NearestPoint> nearestPoint(std::size_t object, const std::array<float, 16>& matrix, const Vector& eye,
                                           const Vector& direction) const;

  /// @param direction  of unit length
  std::optional<ObjectHit> hit(std::size_t object, const Vector& origin, const Vector& direction) const;

 private:
  util::Triangulator mTriangulator;
  std::unique_ptr<Intersector> mIntersector{Intersector::createIntersector()};
  std::vector<std::size_t> mHandles;
};

}  // namespace tool
