#pragma once

#include <cstdint>
#include <map>
#include <vector>

namespace facetbox {

/// Numbers distinct values in the order in which they come up.
template <typename T>
class Numbered {
 public:
  explicit Numbered(std::vector<T>& values) : mValues(values) {}

  /// The value's number; O(log) of how many there are.
  std::uint32_t operator()(const T& value) {
    const auto [known, isNew] = mNumbers.try_emplace(value, static_cast<std::uint32_t>(mValues.size()));
    if (isNew) mValues.push_back(value);
    return known->second;
  }

 private:
  std::vector<T>& mValues;
  std::map<T, std::uint32_t> mNumbers;
};

}  // namespace facetbox
