#include <facetbox/Cancelled.h>

namespace facetbox {

Cancelled::~Cancelled() = default;

}  // namespace facetbox
