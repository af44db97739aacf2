#pragma once

#include <boost/container/small_vector.hpp>
#include <cstdint>

namespace util {

/// A short list of indices with room for four before it allocates.
using SmallIndexList = boost::container::small_vector<std::uint32_t, 4>;

}  // namespace util
