#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace facetbox {

/// Changes names so that they fit into the rest of a line, and counts how many it had to change.
class LineNames {
 public:
  /// Without line ends, blanks around it, and a backslash at its end, which would continue the line.
  std::string fitted(std::string name);

  /// The same, unlike all that this function has given before.
  /// @param unnamed  for an empty name
  std::string distinct(const std::string& name, const std::string& unnamed);

  std::size_t changed() const { return mChanged; }

 private:
  std::map<std::string, std::size_t> mTaken;  // and the number that the next of the name begins with
  std::size_t mChanged = 0;
};

}  // namespace facetbox
