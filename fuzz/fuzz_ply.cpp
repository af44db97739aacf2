#include "fuzz/FileRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Lists per corner that agree become pairs per vertex.
  FileRoundTrip::check(facetbox::Format::ply, data, size, FileRoundTrip::Exact::apartFromNumbersOfPairs);
  return 0;
}
