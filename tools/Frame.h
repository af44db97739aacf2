#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <facetbox/util/Mesh.h>
#include <tools/FacePool.h>
#include <tools/MeshMaker.h>
#include <tools/Progress.h>
#include <tools/Vector.h>

namespace tool {

/// What counts as one object of the scene: an object, a face with its holes, or all faces of a material.
struct SceneEntry {
  std::uint32_t mId = 0;  ///< counted from 1, see FaceSets::mNumbers
  std::string mName;
  Vector mMin, mMax;  ///< box around it, in the scene
};

/// Places meshes where their coordinates say; column-major.
inline constexpr std::array<double, 16> kInPlace{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// Rounded to floats.
std::array<float, 3> narrowed(const Vector& v);

/// A ray as the library takes it.
struct FloatRay {
  std::array<float, 3> mOrigin, mDirection;
  double mAhead = 0;  ///< distance from the original start of the ray to this one

  /// The distance from the original start, for a distance that the library returned.
  double distanceOf(float distance) const;
};

/// The coordinates in which the library gets a model.
///
/// The box around all faces is centered at the origin, with its corners at a distance of 1. The library skips triangles
/// whose doubled area times the length of the ray's direction is below 1e-5. At this size, and with the long directions
/// used here, rays hit everything that could be visible, whatever the model's unit is. Models far from their origin
/// keep their digits, too.
class Frame {
 public:
  /// @param model  must stay as it is
  explicit Frame(const FacePool& model);

  Vector toScene(const Vector& point) const { return (point - mCenter) * mScale; }
  Vector toModel(const Vector& point) const { return point * (1 / mScale) + mCenter; }
  /// The length of one model unit in the scene.
  double scale() const { return mScale; }
  /// Of the box around all faces, in the scene.
  const Vector& halfSize() const { return mHalfSize; }

  const FacePool& model() const { return mModel; }
  /// Of the model, in the scene.
  Vector vertex(std::uint32_t index) const {
    const double* const p = mModel.mVertices.data() + std::size_t{3} * index;
    return toScene({p[0], p[1], p[2]});
  }

  /// @param direction  of unit length, as all here in the scene's coordinates
  static FloatRay rayOf(const Vector& origin, const Vector& direction);

  /// Called with an entry, its mesh in the scene, and x, y, z of the mesh's vertices.
  using TakeMesh = std::function<void(const SceneEntry&, const util::Mesh&, std::span<const float>)>;

  /// Calls `take` for each entry and returns all entries.
  /// @param name  of the model, for messages
  /// @return the entries, by ascending ids
  /// @throws RunError where a face cannot be triangulated by `take`
  std::vector<SceneEntry> takeApart(const std::string& name, Grouping grouping, Progress& progress,
                                    const TakeMesh& take) const;

 private:
  const FacePool& mModel;
  Vector mCenter, mHalfSize;
  double mScale = 1;
};

}  // namespace tool
