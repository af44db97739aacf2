#include "fuzz/FileRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Bytes are floats, and of one object.
  FileRoundTrip::check(facetbox::Format::stl, data, size, FileRoundTrip::Exact::asText);
  return 0;
}
