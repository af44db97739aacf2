#include <facetbox/mesh/HoleTable.h>

#include <algorithm>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace util {
namespace {

/// Calls `use(outer, holes)` for every finished group of a flat list; a bare terminator is no group.
template <class Use>
void forEachGroup(const SmallIndexList& list, Use use) {
  const std::uint32_t* const listEnd = list.data() + list.size();
  for (const std::uint32_t* group = list.data(); group != listEnd;) {
    const std::uint32_t* const end = std::find(group, listEnd, HoleTable::kEnd);
    if (end == listEnd) return;
    if (group != end) use(*group, std::span(group + 1, end));
    group = end + 1;
  }
}

/// Outer faces in the order in which they are first seen. Ascending ones, as most lists have them, are found by
/// bisection and take no allocation each.
class OuterFaces {
 public:
  /// Position of an outer face, which is added if it is new.
  std::uint32_t positionOf(std::uint32_t outer) {
    const auto next = static_cast<std::uint32_t>(mOuters.size());
    const auto ascending = std::span(mOuters).first(mAscending);
    if (ascending.empty() || outer > ascending.back()) {
      if (mAscending == next) {
        mOuters.push_back(outer);
        return mAscending++;
      }
    } else if (const auto found = std::ranges::lower_bound(ascending, outer); *found == outer) {
      return static_cast<std::uint32_t>(found - ascending.begin());
    }
    const auto [known, isNew] = mOthers.try_emplace(outer, next);
    if (isNew) mOuters.push_back(outer);
    return known->second;
  }

  std::size_t size() const { return mOuters.size(); }
  std::uint32_t operator[](std::size_t position) const { return mOuters[position]; }

 private:
  std::vector<std::uint32_t> mOuters;
  std::uint32_t mAscending = 0;  // so many of the first are ascending
  std::unordered_map<std::uint32_t, std::uint32_t> mOthers;
};

/// A hole, and the position of its outer face among those of the list.
struct GroupedHole {
  std::uint32_t outerPosition, hole;
};

struct PlacedHole : GroupedHole {
  PlacedHole(std::uint32_t outer, std::uint32_t face, std::size_t where) : GroupedHole{outer, face}, place(where) {}

  std::size_t place;  ///< in the list
};

/// Keeps the first of the entries that name one hole of one outer face. Reorders them.
void dropRepeats(std::vector<PlacedHole>& holes) {
  const auto isRepeat = [](const PlacedHole& a, const PlacedHole& b) {
    return a.outerPosition == b.outerPosition && a.hole == b.hole;
  };
  std::ranges::sort(holes, {}, [](const PlacedHole& h) { return std::tuple(h.outerPosition, h.hole, h.place); });
  holes.erase(std::unique(holes.begin(), holes.end(), isRepeat), holes.end());
}

/// The flat list of a group per outer face; `holes` are sorted by the positions of their outer faces.
template <class Hole>
SmallIndexList flatten(const OuterFaces& outers, const std::vector<Hole>& holes) {
  SmallIndexList list;
  list.reserve(outers.size() * 2 + holes.size());
  auto hole = holes.begin();
  for (std::uint32_t position = 0; position < outers.size(); ++position) {
    list.push_back(outers[position]);
    for (; hole != holes.end() && hole->outerPosition == position; ++hole) list.push_back(hole->hole);
    list.push_back(HoleTable::kEnd);
  }
  return list;
}

}  // namespace

std::size_t HoleTable::validate(std::size_t faceCount) {
  const std::size_t before = mList.size();
  if (before < 2 || mList.back() != kEnd) {
    mList.clear();
    return before;
  }

  OuterFaces outers;
  std::vector<PlacedHole> holes;
  forEachGroup(mList, [&](std::uint32_t outer, std::span<const std::uint32_t> groupHoles) {
    if (outer >= faceCount) return;
    const std::uint32_t position = outers.positionOf(outer);
    for (const std::uint32_t hole : groupHoles)
      if (hole < faceCount && hole != outer) holes.emplace_back(position, hole, holes.size());
  });
  dropRepeats(holes);
  std::ranges::sort(holes, {}, [](const PlacedHole& h) { return std::pair(h.outerPosition, h.place); });
  mList = flatten(outers, holes);
  return before - mList.size();
}

void HoleTable::renumber(const FaceRenumbering& faces) {
  if (mList.size() < 2 || mList.back() != kEnd) return;
  const auto isGone = [&](std::uint32_t face) { return face < faces.size() && faces.isGone(face); };
  const auto renumbered = [&](std::uint32_t face) { return face < faces.size() ? faces.rank(face) : face; };

  auto write = mList.begin();
  bool dropGroup = false, atOuter = true;
  for (const std::uint32_t entry : mList) {
    if (atOuter) {
      dropGroup = entry != kEnd && isGone(entry);
      atOuter = false;
    }
    if (entry == kEnd) {
      atOuter = true;
      if (!dropGroup) *write++ = kEnd;
      dropGroup = false;
    } else if (!dropGroup && !isGone(entry)) {
      *write++ = renumbered(entry);
    }
  }
  mList.erase(write, mList.end());
}

void HoleTable::regroup(std::span<const std::uint32_t> newOuterOf, std::span<const NewHole> newHoles) {
  OuterFaces outers;
  std::vector<GroupedHole> holes;
  forEachGroup(mList, [&](std::uint32_t outer, std::span<const std::uint32_t> groupHoles) {
    const std::uint32_t position = outers.positionOf(outer < newOuterOf.size() ? newOuterOf[outer] : outer);
    for (const std::uint32_t hole : groupHoles) holes.push_back({position, hole});
  });
  for (const NewHole& added : newHoles) holes.push_back({outers.positionOf(added.outer), added.hole});
  std::ranges::stable_sort(holes, {}, &GroupedHole::outerPosition);
  mList = flatten(outers, holes);
}

std::vector<HoleTable::Group> HoleTable::groupsByOuter(std::size_t faceCount) const {
  std::vector<Group> groups;
  forEachGroup(mList, [&](std::uint32_t outer, std::span<const std::uint32_t> holes) {
    if (outer < faceCount) groups.push_back({outer, holes});
  });
  if (!std::ranges::is_sorted(groups, {}, &Group::outer)) std::ranges::stable_sort(groups, {}, &Group::outer);
  return groups;
}

std::span<const HoleTable::Group> HoleTable::groupsOf(std::uint32_t outer, std::span<const Group> groups) {
  const auto begin = std::ranges::lower_bound(groups, outer, {}, &Group::outer);
  return {begin, std::find_if(begin, groups.end(), [outer](const Group& group) { return group.outer != outer; })};
}

std::vector<std::uint32_t> HoleTable::outerOfHoles(std::size_t faceCount) const {
  std::vector<std::uint32_t> outerOf;
  if (empty()) return outerOf;
  outerOf.resize(faceCount, kNone);
  forEachGroup(mList, [&](std::uint32_t outer, std::span<const std::uint32_t> holes) {
    if (outer >= faceCount) return;
    for (const std::uint32_t hole : holes)
      if (hole < faceCount) outerOf[hole] = std::min(outerOf[hole], outer);
  });
  return outerOf;
}

}  // namespace util
