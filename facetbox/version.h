#pragma once

/// The version of these headers, at the time when the host was compiled. facetbox::version() returns the version of the
/// loaded library.

#define FACETBOX_VERSION_MAJOR 0
#define FACETBOX_VERSION_MINOR 1
#define FACETBOX_VERSION_PATCH 0

#define FACETBOX_STRINGIZE_(x) #x
#define FACETBOX_STRINGIZE(x) FACETBOX_STRINGIZE_(x)

/// "major.minor.patch"
#define FACETBOX_VERSION_STRING              \
  FACETBOX_STRINGIZE(FACETBOX_VERSION_MAJOR) \
  "." FACETBOX_STRINGIZE(FACETBOX_VERSION_MINOR) "." FACETBOX_STRINGIZE(FACETBOX_VERSION_PATCH)

/// One number for comparisons: major * 10000 + minor * 100 + patch.
#define FACETBOX_VERSION (FACETBOX_VERSION_MAJOR * 10000 + FACETBOX_VERSION_MINOR * 100 + FACETBOX_VERSION_PATCH)

#include <facetbox/util/Export.h>

namespace facetbox {

/// Returns the version of the loaded library as "major.minor.patch"; static storage, never null.
FACETBOX_EXPORT const char* version() noexcept;

}  // namespace facetbox
