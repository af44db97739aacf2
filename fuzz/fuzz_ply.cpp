#include "fuzz/FileRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FileRoundTrip::check(facetbox::Format::ply, data, size);
  return 0;
}
