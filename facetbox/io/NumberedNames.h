#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <facetbox/io/HashIndex.h>

namespace facetbox {

/// Numbers distinct names in the order in which they come up. Takes little more memory than the names.
class NumberedNames {
 public:
  explicit NumberedNames(std::vector<std::string>& names) : mNames(names) {}

  std::uint32_t operator()(const std::string& name) {
    const std::uint64_t hash = std::hash<std::string>()(name);
    const auto next = static_cast<std::uint32_t>(mNames.size());
    const std::uint32_t number =
        mNumbers.findOrAdd(hashOf(&hash, 1), next, [&](std::uint32_t known) { return mNames[known] == name; });
    if (number == next) mNames.push_back(name);
    return number;
  }

 private:
  std::vector<std::string>& mNames;
  HashIndex mNumbers;
};

}  // namespace facetbox
