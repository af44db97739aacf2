#pragma once

#include <stdexcept>

#include <facetbox/util/Export.h>

namespace facetbox {

/// The caller has asked that a call be given up. what() is "cancelled".
class FACETBOX_EXPORT Cancelled : public std::runtime_error {
 public:
  Cancelled() : std::runtime_error("cancelled") {}
  ~Cancelled() override;  // out of line: one type information for host and library
  Cancelled(const Cancelled&) noexcept = default;
  Cancelled& operator=(const Cancelled&) noexcept = default;
};

}  // namespace facetbox
