#include <facetbox/io/LineNames.h>

#include <algorithm>
#include <utility>

namespace facetbox {

std::string LineNames::fit(std::string name) const {
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == '\n' || c == '\0'; }, ' ');
  constexpr const char* kBlanks = " \t\r\v\f";
  name.erase(0, std::min(name.find_first_not_of(kBlanks), name.size()));
  name.erase(name.find_last_not_of(kBlanks) + 1);
  if (mBackslash == Backslash::continues && name.ends_with('\\')) name.back() = '_';
  return name;
}

std::string LineNames::fitted(const std::string& name) {
  std::string result = fit(name);
  mChanged += result != name;
  return result;
}

std::string LineNames::distinct(const std::string& name, const std::string& unnamed) {
  std::string start = fit(name);
  if (start.empty()) start = unnamed;
  std::string result = start;
  while (!mTaken.try_emplace(result, 2).second) result = start + "_" + std::to_string(mTaken[start]++);
  mChanged += result != name;
  return result;
}

}  // namespace facetbox
