#pragma once

#include <cstddef>
#include <map>
#include <string>

namespace facetbox {

/// Changes names so that they fit into the rest of a line, and counts how many it had to change: without line ends and
/// zeros in them, and without blanks around them.
class LineNames {
 public:
  /// What a backslash at the end of a line does: continue it, so that no name may end in one.
  enum class Backslash { isPlain, continues };

  explicit LineNames(Backslash backslash) : mBackslash(backslash) {}

  std::string fitted(const std::string& name);

  /// The same, unlike all that this function has given before.
  /// @param unnamed  for an empty name
  std::string distinct(const std::string& name, const std::string& unnamed);

  std::size_t changed() const { return mChanged; }

 private:
  std::string fit(std::string name) const;

  Backslash mBackslash;
  std::map<std::string, std::size_t> mTaken;  // and the number that the next of the name begins with
  std::size_t mChanged = 0;
};

}  // namespace facetbox
