#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <facetbox/io/Model.h>

namespace tool {

/// A model as one object, which can be split again: each face's label tells the object too.
class Joined {
 public:
  /// Vertices that objects share in the file become one again. Other vertices at the same place stay apart.
  explicit Joined(facetbox::Model model);

  /// Of one object.
  const facetbox::Model& model() const { return mModel; }

  /// Splits what became of the one object into the objects that its faces come from. Objects without faces are gone.
  /// @param changed  with labels of model(), as its only object
  facetbox::Model split(facetbox::Model changed) const;

  /// The object that a label of model() tells, counted as in the model that was handed in.
  std::uint32_t objectOf(std::uint32_t label) const { return mObjectOf[label]; }
  /// The names of these objects.
  const std::vector<std::string>& names() const { return mNames; }

 private:
  class Appender;
  struct Parts;

  facetbox::Model mModel;
  std::vector<facetbox::Mark> mMarks;             // of the model that was handed in, and an empty one
  std::vector<std::uint32_t> mMarkOf, mObjectOf;  // per label of the one object
  std::vector<std::string> mNames, mPlaces;       // per object
};

}  // namespace tool
