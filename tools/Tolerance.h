#pragma once

#include <string>

namespace tool {

/// A length or an area of the command line.
struct Tolerance {
  double mValue = 0;
  bool mIsRelative = false;  ///< per cent of the diagonal of the object's bounding box, or of its square

  double length(double diagonal) const;
  double area(double diagonal) const;
  std::string text() const;  ///< such as "0.01" or "0.1%"

  friend bool operator==(const Tolerance&, const Tolerance&) = default;
};

/// A finite number of 0 or more in the number syntax of OBJ, with or without % behind it.
/// @throws InputError that names `option`
Tolerance parseTolerance(const std::string& text, const std::string& option);

/// A finite number from 0 to `largest` in the number syntax of OBJ. @throws InputError that names `option`
double parseNumber(const std::string& text, const std::string& option, double largest);

}  // namespace tool
