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
#include <tools/FacePool.h>
#include <tools/Frame.h>
#include <tools/MeshMaker.h>
#include <tools/Progress.h>
#include <tools/Vector.h>

namespace tool {

/// The first hit of a ray.
struct Hit {
  std::uint32_t mId = 0;  ///< the lowest id among equally near objects
  double mDistance = 0;   ///< of unit length
  Vector mNormal;         ///< of unit length, by the winding of the face
};

/// A model in the library's picker.
class Scene : public Frame {
 public:
  /// @param model  must not change or go away
  /// @throws RunError where a face cannot be triangulated
  Scene(const FacePool& model, const std::string& name, Grouping grouping, Progress& progress);

  /// By ascending ids.
  std::span<const SceneEntry> entries() const { return mEntries; }
  const SceneEntry& entry(std::uint32_t id) const;

  /// The first hit among the given objects, in the scene's coordinates.
  /// @param direction  of unit length
  /// @param ids        ascending
  std::optional<Hit> firstHit(const Vector& origin, const Vector& direction, std::span<const std::uint32_t> ids) const;

  /// Ids of the objects in the volume that a view-projection matrix of the scene maps into the cube, ascending.
  /// Empty where the matrix has no such volume.
  /// @param wholeInside  only objects that lie in the volume completely
  std::vector<std::uint32_t> idsIn(const std::array<float, 16>& matrix, bool wholeInside) const;

 private:
  std::vector<SceneEntry> mEntries;
  std::unique_ptr<Picker> mPicker{Picker::createPicker()};
  std::size_t mHandle = mPicker->createHandle();
};

}  // namespace tool
