#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/mesh/FaceRenumbering.h>
#include <facetbox/mesh/SmallIndexList.h>

namespace util {

/// The hole groups of a mesh: which faces are holes of which. They are stored once, as a flat list; the groups by outer
/// face and the outer face of each hole are derived from it.
///
/// Flat form, group after group: outer face, its hole faces ..., kEnd. Example: 3, 7, 8, kEnd, 5, 9, kEnd makes faces
/// 7 and 8 holes of face 3 and face 9 a hole of face 5. Hole faces are ordinary faces of the face list.
class HoleTable {
 public:
  static constexpr std::uint32_t kEnd = 0xFFFFFFFFu;
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  struct Group {
    std::uint32_t outer;
    std::span<const std::uint32_t> holes;
  };

  bool empty() const { return mList.empty(); }
  /// The flat list, as it goes into an exchange record.
  const SmallIndexList& list() const { return mList; }

  /// Appends entries as given, unchecked.
  void append(const std::uint32_t* entries, std::size_t count) { mList.insert(mList.end(), entries, entries + count); }
  void clear() { mList.clear(); }

  /// Rewrites the list so that it can be trusted: every outer face and hole below `faceCount`, no face its own hole,
  /// one group per outer face (in the order of first appearance) with each hole once (likewise). A list
  /// without its final terminator, or of a single entry, is dropped whole. An outer face whose entries were all
  /// dropped stays as a group without holes.
  /// @return number of entries that went. O(entries) expected.
  std::size_t validate(std::size_t faceCount);

  /// Follows a compaction of the faces. A dropped outer face takes its group along, a dropped hole its entry; the rest
  /// is renumbered. Entries beyond the old face count stay as they are, and so does a list without its final
  /// terminator: validate() drops both. O(entries).
  void renumber(const FaceRenumbering& faces);

  /// A hole that a face gets.
  struct NewHole {
    std::uint32_t outer, hole;
  };

  /// Gives the holes of faces to other faces and adds holes: the holes of face f become holes of newOuterOf[f], unless
  /// f is beyond that array. Groups of one outer face become one, in list order, new holes last.
  /// O(entries + array).
  void regroup(std::span<const std::uint32_t> newOuterOf, std::span<const NewHole> newHoles);

  /// The groups, in ascending order of their outer faces (equal ones in list order). Only outer faces below
  /// `faceCount`; an unfinished group at the end is left out. Valid until the table changes. O(entries log entries).
  std::vector<Group> groupsByOuter(std::size_t faceCount) const;

  /// The groups of one outer face among those that groupsByOuter() returned. O(log groups).
  static std::span<const Group> groupsOf(std::uint32_t outer, std::span<const Group> groups);

  /// Per face the lowest of the outer faces that it is a hole of, or kNone; empty when there are no groups.
  std::vector<std::uint32_t> outerOfHoles(std::size_t faceCount) const;

 private:
  SmallIndexList mList;
};

}  // namespace util
