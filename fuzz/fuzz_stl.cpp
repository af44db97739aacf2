#include "fuzz/FileRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FileRoundTrip::check(facetbox::Format::stl, data, size, false);  // bytes are floats, and of one object
  return 0;
}
