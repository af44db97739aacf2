#pragma once

#include <optional>
#include <string>

#include <facetbox/io/Format.h>
#include <tools/Camera.h>
#include <tools/MeshMaker.h>
#include <tools/Vector.h>

namespace tool {

struct PickOptions {
  std::string mModel;  ///< "-" is standard input
  std::optional<facetbox::Format> mFrom;
  Grouping mGrouping = Grouping::object;
  Vector mOrigin, mDirection;
  bool mJson = false;
};

/// Prints what a ray hits first, or "nothing". @throws InputError, RunError
void runPick(const PickOptions& options);

struct SelectOptions {
  std::string mModel;  ///< "-" is standard input
  std::optional<facetbox::Format> mFrom;
  Grouping mGrouping = Grouping::object;
  ViewOptions mView;
  bool mWholeInside = false;
  bool mJson = false;
};

/// Prints the objects in a view volume, one per line, or "nothing". @throws InputError, RunError
void runSelect(const SelectOptions& options);

}  // namespace tool
