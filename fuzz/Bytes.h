#pragma once

#include <cstddef>
#include <cstdint>

/// Reads small values from the input; zero when it is used up.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : mData(data), mSize(size) {}
  bool empty() const { return mSize == 0; }
  std::uint8_t next() {
    if (mSize == 0) return 0;
    --mSize;
    return *mData++;
  }
  std::uint32_t below(std::uint32_t bound) { return bound ? next() % bound : 0; }

 private:
  const std::uint8_t* mData;
  std::size_t mSize;
};
