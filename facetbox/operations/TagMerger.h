#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <vector>

namespace util {

/// Merges tags: indices into a list of sets, to which it appends the unions that the list lacks.
class TagMerger {
 public:
  explicit TagMerger(std::vector<std::set<std::uint32_t>>& sets);

  /// The tag of the first set that equals the union of two tags' sets. -1 is no tag; another tag without a set counts
  /// as one of the empty set. O(elements log sets).
  std::int32_t merge(std::int32_t a, std::int32_t b);

 private:
  struct ByContent {
    using is_transparent = void;
    const std::vector<std::set<std::uint32_t>>* mSets;

    bool operator()(std::size_t a, std::size_t b) const { return (*mSets)[a] < (*mSets)[b]; }
    bool operator()(std::size_t a, const std::set<std::uint32_t>& b) const { return (*mSets)[a] < b; }
    bool operator()(const std::set<std::uint32_t>& a, std::size_t b) const { return a < (*mSets)[b]; }
  };

  std::set<std::uint32_t> setOf(std::int32_t tag) const;

  std::vector<std::set<std::uint32_t>>& mSets;
  std::set<std::size_t, ByContent> mByContent;  // of equal sets only the first
};

}  // namespace util
