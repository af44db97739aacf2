#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <facetbox/io/Model.h>

namespace facetbox {

/// Counts what is left out, by what it is. Kinds beyond a few hundred are counted as one: a file can make up any
/// number.
class Notes {
 public:
  void add(const std::string& what, std::size_t count = 1) {
    if (count == 0) return;
    const auto known = mCounts.find(what);
    if (known != mCounts.end())
      known->second += count;
    else
      mCounts[mCounts.size() < kMostKinds ? what : "other things"] += count;
  }
  /// By the alphabet.
  std::vector<Note> list() const {
    std::vector<Note> notes;
    for (const auto& [what, count] : mCounts) notes.push_back({what, count});
    return notes;
  }

 private:
  static constexpr std::size_t kMostKinds = 200;
  std::map<std::string, std::size_t> mCounts;
};

}  // namespace facetbox
