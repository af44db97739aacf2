#include <facetbox/io/LineNames.h>

#include <algorithm>

namespace facetbox {
namespace {

std::string fit(std::string name) {
  std::replace(name.begin(), name.end(), '\n', ' ');
  constexpr const char* kBlanks = " \t\r\v\f";
  name.erase(0, std::min(name.find_first_not_of(kBlanks), name.size()));
  name.erase(name.find_last_not_of(kBlanks) + 1);
  if (name.ends_with('\\')) name.back() = '_';
  return name;
}

}  // namespace

std::string LineNames::fitted(std::string name) {
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
