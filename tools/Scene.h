#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <facetbox/picker/Picker.h>
#include <tools/MeshMaker.h>
#include <tools/Model.h>
#include <tools/Progress.h>
#include <tools/Vector.h>

namespace tool {

/// What a ray meets first.
struct Hit {
  std::uint32_t mId = 0;  ///< the lowest, where several are equally near
  double mDistance = 0;   ///< of unit length
  Vector mNormal;         ///< of unit length, by the winding of the face
};

/// One object of the library's picker: an object, a face with its holes, or all faces of a material.
struct SceneEntry {
  std::uint32_t mId = 0;  ///< counted from 1, see FaceSets::mNumbers
  std::string mName;
  Vector mMin, mMax;  ///< box around it, in the scene
};

/// A model in the library's picker.
///
/// The scene has coordinates of its own, in which the box around all faces lies around the origin and its corners are 1
/// away from it. The picker passes over triangles whose doubled area times the length of the ray's direction is below
/// 1e-5: at this size, and with directions as long as are used here, whatever could be seen is hit, no matter what
/// unit the model is in. Positions far from the model's origin keep their digits, too.
class Scene {
 public:
  /// @param model  must stay as it is
  /// @throws RunError where a face cannot be triangulated
  Scene(const Model& model, const std::string& name, Grouping grouping, Progress& progress);

  Vector toScene(const Vector& point) const { return (point - mCenter) * mScale; }
  Vector toModel(const Vector& point) const { return point * (1 / mScale) + mCenter; }
  /// The length of a unit of the model.
  double scale() const { return mScale; }
  /// Of the box around all faces, in the scene.
  const Vector& halfSize() const { return mHalfSize; }

  const Model& model() const { return mModel; }
  /// Of the model, in the scene.
  Vector vertex(std::uint32_t index) const {
    const float* const p = mModel.mVertices.data() + std::size_t{3} * index;
    return toScene({p[0], p[1], p[2]});
  }

  /// By ascending ids.
  std::span<const SceneEntry> entries() const { return mEntries; }
  const SceneEntry& entry(std::uint32_t id) const;

  /// What the ray first meets among the given objects; all in the scene's coordinates.
  /// @param direction  of unit length
  /// @param ids        ascending
  std::optional<Hit> firstHit(const Vector& origin, const Vector& direction, std::span<const std::uint32_t> ids) const;

  /// Ids of the objects in the volume that a view-projection matrix of the scene maps into the cube, ascending.
  /// Sees nothing where the matrix has no such volume.
  /// @param wholeInside  only those that do not reach out of it
  std::vector<std::uint32_t> idsIn(const std::array<float, 16>& matrix, bool wholeInside) const;

 private:
  void measure();
  void addEntries(const std::string& name, Grouping grouping, Progress& progress);

  const Model& mModel;
  Vector mCenter, mHalfSize;
  double mScale = 1;
  std::vector<SceneEntry> mEntries;
  std::unique_ptr<Picker> mPicker{Picker::createPicker()};
  std::size_t mHandle = mPicker->createHandle();
};

}  // namespace tool
