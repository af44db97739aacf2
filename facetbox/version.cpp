#include <facetbox/version.h>

namespace facetbox {

const char* version() noexcept { return FACETBOX_VERSION_STRING; }

}  // namespace facetbox
