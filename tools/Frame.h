#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <facetbox/util/Mesh.h>
#include <tools/MeshMaker.h>
#include <tools/Model.h>
#include <tools/Progress.h>
#include <tools/Vector.h>

namespace tool {

/// What counts as one: an object, a face with its holes, or all faces of a material.
struct SceneEntry {
  std::uint32_t mId = 0;  ///< counted from 1, see FaceSets::mNumbers
  std::string mName;
  Vector mMin, mMax;  ///< box around it, in the scene
};

/// Rounded to floats.
std::array<float, 3> narrowed(const Vector& v);

/// A ray as the library takes it.
struct FloatRay {
  std::array<float, 3> mOrigin, mDirection;
  double mAhead = 0;  ///< from where the ray was to start to where this one does

  /// From where the ray was to start, of a distance that the library gave.
  double distanceOf(float distance) const;
};

/// The coordinates in which a model is handed to the library.
///
/// The box around all faces lies around the origin and its corners are 1 away from it. The library passes over
/// triangles whose doubled area times the length of the ray's direction is below 1e-5: at this size, and with
/// directions as long as are used here, whatever could be seen is hit, no matter what unit the model is in. Positions
/// far from the model's origin keep their digits, too.
class Frame {
 public:
  /// @param model  must stay as it is
  explicit Frame(const Model& model);

  Vector toScene(const Vector& point) const { return (point - mCenter) * mScale; }
  Vector toModel(const Vector& point) const { return point * (1 / mScale) + mCenter; }
  /// The length of a unit of the model.
  double scale() const { return mScale; }
  /// Of the box around all faces, in the scene.
  const Vector& halfSize() const { return mHalfSize; }
  /// Places meshes of the model in the scene; column-major.
  std::array<double, 16> placement() const;

  const Model& model() const { return mModel; }
  /// Of the model, in the scene.
  Vector vertex(std::uint32_t index) const {
    const float* const p = mModel.mVertices.data() + std::size_t{3} * index;
    return toScene({p[0], p[1], p[2]});
  }

  /// @param direction  of unit length, as all here in the scene's coordinates
  static FloatRay rayOf(const Vector& origin, const Vector& direction);

  /// Receives x, y, z of the mesh's vertices, too.
  using TakeMesh = std::function<void(const SceneEntry&, const util::Mesh&, std::span<const float>)>;

  /// Hands over a mesh for each entry, and tells all of these.
  /// @param name  of the model, for messages
  /// @return by ascending ids
  /// @throws RunError where a face cannot be triangulated by `take`
  std::vector<SceneEntry> takeApart(const std::string& name, Grouping grouping, Progress& progress,
                                    const TakeMesh& take) const;

 private:
  const Model& mModel;
  Vector mCenter, mHalfSize;
  double mScale = 1;
};

}  // namespace tool
