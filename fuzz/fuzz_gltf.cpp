#include "fuzz/FileRoundTrip.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Both are read whatever their name; each is written as what it is. Numbers become floats.
  const auto format = size > 0 && data[0] == 'g' ? facetbox::Format::glb : facetbox::Format::gltf;
  FileRoundTrip::check(format, data, size, FileRoundTrip::Exact::never);
  return 0;
}
