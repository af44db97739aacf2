#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace facetbox {

/// Renumbers `indices` (entries kNone stay) to the ascending list of the distinct ones and `extra`, which is returned.
/// Costs no more than sorting the indices, however large the pool that they point into.
std::vector<std::uint32_t> compactIndices(std::vector<std::uint32_t>& indices, std::vector<std::uint32_t> extra = {});

/// The rows of a pool, each of `width` numbers.
template <typename T>
std::vector<T> gathered(const std::vector<T>& pool, const std::vector<std::uint32_t>& rows, std::size_t width) {
  std::vector<T> values;
  values.reserve(rows.size() * width);
  for (const std::uint32_t row : rows) {
    const auto first = pool.begin() + static_cast<std::ptrdiff_t>(row * width);
    values.insert(values.end(), first, first + static_cast<std::ptrdiff_t>(width));
  }
  return values;
}

}  // namespace facetbox
