#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/mesh/FaceRenumbering.h>
#include <facetbox/mesh/SmallIndexList.h>

namespace util {

/// The hole groups of a mesh: which faces perforate which. The one owner of this knowledge: the flat list, the groups
/// by outer face and the set of hole faces are views of it, and only its members change it.
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
  /// one group per outer face (in the order in which they are first met) with each hole once (likewise). A list
  /// without its final terminator, or of a single entry, is dropped whole. An outer face whose entries were all
  /// dropped stays as a group without holes.
  /// @return number of entries that went. O(entries) expected.
  std::size_t validate(std::size_t faceCount);

  /// Follows a compaction of the faces: the outer face gone, its group goes; a hole gone, its entry goes; the rest is
  /// renumbered. Entries beyond the old face count stay as they are, and so does a list without its final terminator:
  /// both are for validate() to drop. O(entries).
  void renumber(const FaceRenumbering& faces);

  /// A hole that a face gets.
  struct NewHole {
    std::uint32_t outer, hole;
  };

  /// Lets the holes of faces pass to others and adds holes: the group of face f becomes one of newOuterOf[f], unless
  /// f is beyond that array. Groups of one outer face become one, in the order in which they are met, new holes last.
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
