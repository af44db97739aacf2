#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/base/Buffer.h>
#include <facetbox/base/OwnLink.h>
#include <facetbox/mesh/FaceRenumbering.h>
#include <facetbox/mesh/HoleTable.h>

namespace util {

/// What became of numbers, of vertices or of faces, through any number of changes.
///
/// Between two renumberings, an item may be joined to another: "from here on, look there". A renumbering then drops
/// items and closes up the others.
class NumberHistory {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;

  explicit NumberHistory(std::size_t count);

  /// What was item `item` becomes part of `target`; both numbers as they are now. The first of several calls counts.
  void join(std::uint32_t item, std::uint32_t target);
  /// A new item behind the others, which none of the first ones became.
  void append() { mSources.push_back(kNone); }

  /// newNumberOf(i) of the present item i, or kNone where it is dropped. New numbers count up from 0 without a gap; of
  /// several items with the same one, the first keeps its place. O(present items + first items).
  template <class NewNumberOf>
  void renumber(NewNumberOf newNumberOf) {
    Buffer<std::uint32_t> numbers(mTargets.empty() ? 0 : mSources.size());
    for (std::uint32_t i = 0; i < numbers.size(); ++i) numbers[i] = newNumberOf(i);
    mFirstItems.clear();
    std::uint32_t kept = 0;
    for (std::uint32_t item = 0; item < mSources.size(); ++item)
      if (newNumberOf(item) == kept) mSources[kept++] = mSources[item];
    mSources.resize(kept);
    if (mTargets.empty()) return mapTo(newNumberOf);
    followTargets(numbers);
    mapTo([&](std::uint32_t i) { return numbers[i]; });
  }

  /// Per first item: its number now, or kNone. Only with nothing joined since the last renumbering.
  std::span<const std::uint32_t> map() const { return mMap; }
  /// Per present item the first item that has kept its place, or kNone.
  std::span<const std::uint32_t> sources() const { return mSources; }
  /// The arrays themselves, when the history is over.
  std::vector<std::uint32_t> takeMap() && { return std::move(mMap); }
  std::vector<std::uint32_t> takeSources() && { return std::move(mSources); }

  /// The lowest first item that map() leads to a present item as of the last renumbering, or kNone. The first call
  /// after a renumbering is O(present items + first items).
  std::uint32_t firstItemOf(std::uint32_t item);

 private:
  template <class NumberOf>
  void mapTo(NumberOf numberOf) {
    for (std::uint32_t& number : mMap)
      if (number != kNone) number = numberOf(number);
  }
  void followTargets(Buffer<std::uint32_t>& numbers);

  std::vector<std::uint32_t> mMap, mSources;
  Buffer<std::uint32_t> mFirstItems;    ///< per present item, what firstItemOf() returns; empty until it is asked
  std::vector<std::uint32_t> mTargets;  ///< per present item, kNone where it was not joined; empty without any
};

/// What became of the vertices and faces of a mesh of faces, not of lines or points. Kept only where somebody wants to
/// know (MeshStorage::mHistory).
///
/// A vertex that is welded, or whose short edge collapses, leads to the one that stays in its place. A face that is
/// merged leads to the one that it became part of; one that is deleted, as a double of another say, leads nowhere.
struct MeshHistory {
  NumberHistory vertices, faces;
  std::vector<facetbox::DroppedHole> droppedHoles;  ///< faces are first items, as the mesh was given
  /// First items of the faces that others were merged into, since somebody has emptied the list; some more than once.
  std::vector<std::uint32_t> grownFaces;

  MeshHistory(std::size_t vertexCount, std::size_t faceCount) : vertices(vertexCount), faces(faceCount) {}

  /// Notes that a hole is dropped. Present face numbers, as of the last renumbering.
  void dropHole(std::uint32_t outer, std::uint32_t hole, facetbox::DroppedHole::Reason reason);
  /// What the faces' renumbering takes out of the hole table is dropped as well, where dropHole() did not say so: a
  /// hole that goes for its corners, one that stays for its outer face. To be called before the faces are renumbered.
  void dropHolesOf(const HoleTable& holes, const FaceRenumbering& renumbering);

 private:
  std::vector<std::pair<std::uint32_t, std::uint32_t>> mDropped;  ///< outer face and hole, since the last renumbering
};

/// A mesh's history, or null.
using HistoryLink = OwnLink<MeshHistory>;

}  // namespace util
