#pragma once

#include <cstdint>

#include <boost/container/small_vector.hpp>

namespace util {

/// A short list of indices with room for four before it allocates.
using SmallIndexList = boost::container::small_vector<std::uint32_t, 4>;

}  // namespace util
