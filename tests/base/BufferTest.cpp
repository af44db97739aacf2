#include <facetbox/base/Buffer.h>

#include <cstdint>
#include <numeric>

#include <gtest/gtest.h>

namespace {

template <class T>
std::uintptr_t remainder(const util::Buffer<T>& buffer, std::uintptr_t alignment) {
  return reinterpret_cast<std::uintptr_t>(buffer.data()) % alignment;
}

TEST(Buffer, largeOnesBeginWithALargePageWhateverTheirSizeAndKeepWhatTheyHold) {
  struct alignas(64) Wide {
    std::uint32_t value;
  };
  constexpr std::size_t kLargePage = std::size_t{2} << 20;
  // Around one large page, and around the size from which a second one is filled up.
  for (const std::size_t bytes : {kLargePage - 4, kLargePage, kLargePage + 4, 7 * kLargePage / 4, 2 * kLargePage - 4}) {
    util::Buffer<std::uint32_t> buffer(bytes / 4);
    EXPECT_TRUE(bytes < kLargePage || remainder(buffer, kLargePage) == 0) << bytes;
    std::iota(buffer.begin(), buffer.end(), 0u);
    buffer.push_back(7);
    for (std::size_t i = 0; i < bytes / 4; ++i) ASSERT_EQ(buffer[i], i);
    EXPECT_EQ(remainder(util::Buffer<Wide>(bytes / sizeof(Wide)), 64), 0u);
  }
  EXPECT_EQ(remainder(util::Buffer<Wide>(1), 64), 0u);
}

}  // namespace
