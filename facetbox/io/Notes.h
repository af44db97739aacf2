#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include <facetbox/io/Model.h>

namespace facetbox {

/// Counts what is left out, by what it is.
class Notes {
 public:
  void add(const std::string& what, std::size_t count = 1) {
    if (count > 0) mCounts[what] += count;
  }
  /// By the alphabet.
  std::vector<Note> list() const {
    std::vector<Note> notes;
    for (const auto& [what, count] : mCounts) notes.push_back({what, count});
    return notes;
  }

 private:
  std::map<std::string, std::size_t> mCounts;
};

}  // namespace facetbox
