#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// The material run of every face, for an operation that gives faces other materials and appends faces.
class MaterialRuns {
 public:
  /// O(faces + runs); nothing where there are no runs.
  explicit MaterialRuns(MeshStorage& m);

  /// The first material of a face, before any change.
  const ShaderHandle& materialOf(std::uint32_t face) const {
    return mRunOf.empty() ? m.mDefaultMaterial.first : m.mRunMaterials[mRunOf[face]].first;
  }

  /// A face was appended: its run is the one that covers its number.
  void faceAppended() {
    if (!mRunOf.empty()) addRun();
  }

  /// Notes that a face is to get the materials of another.
  void changeLike(std::uint32_t face, std::uint32_t other);

  /// Makes the changes: writes the runs anew, one per stretch of faces of equal materials. Nothing without a change.
  /// What comes after that starts from there.
  void applyChanges();

 private:
  struct Change {
    std::uint32_t face, run;
  };

  void addRun();

  MeshStorage& m;
  Buffer<std::uint32_t> mRunOf;  // empty without runs
  std::size_t mNextRun = 0;      // the first that starts behind the last face of mRunOf
  std::vector<Change> mChanges;
};

}  // namespace util
