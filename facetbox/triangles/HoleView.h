#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include <facetbox/mesh/HoleTable.h>

namespace util {

/// The hole groups of a mesh, to be read in ascending order of faces.
class HoleView {
 public:
  /// @throws std::runtime_error where a face's group has no end or names no face of the mesh
  HoleView(const HoleTable& holes, std::size_t faceCount);
  HoleView(const HoleView&) = delete;
  HoleView& operator=(const HoleView&) = delete;

  bool isHole(std::size_t face) const { return !mIsHole.empty() && mIsHole[face]; }

  /// The group of `face`, the first where a list that nothing has checked has several; none or one. Asked for each face
  /// once, in ascending order.
  std::span<const HoleTable::Group> groupsOf(std::size_t face);

 private:
  std::vector<HoleTable::Group> mGroups;
  std::span<const HoleTable::Group> mNext;
  std::vector<bool> mIsHole;  ///< per face; empty when there are no groups
};

}  // namespace util
