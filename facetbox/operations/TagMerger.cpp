#include <facetbox/operations/TagMerger.h>

#include <utility>

namespace util {

TagMerger::TagMerger(std::vector<std::set<std::uint32_t>>& sets) : mSets(sets), mByContent(ByContent{&sets}) {
  for (std::size_t i = 0; i < sets.size(); ++i) mByContent.insert(i);
}

std::int32_t TagMerger::merge(std::int32_t a, std::int32_t b) {
  if (a == b || b == -1) return a;
  if (a == -1) return b;
  std::set<std::uint32_t> both = setOf(a);
  both.merge(setOf(b));
  const auto known = mByContent.find(both);
  if (known != mByContent.end()) return static_cast<std::int32_t>(*known);
  mSets.push_back(std::move(both));
  mByContent.insert(mSets.size() - 1);
  return static_cast<std::int32_t>(mSets.size() - 1);
}

std::set<std::uint32_t> TagMerger::setOf(std::int32_t tag) const {
  const auto index = static_cast<std::size_t>(tag);
  return tag >= 0 && index < mSets.size() ? mSets[index] : std::set<std::uint32_t>();
}

}  // namespace util
