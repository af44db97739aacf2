#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

namespace util {

/// The objects of a set by id. Few ids stand in a plain list, which is smaller than any map. Many are spread over 256
/// maps: growing a hash table takes long, and so only one small part of the ids has to wait for it.
template <class Object>
class ObjectIds {
 public:
  /// The object of the id, or null.
  Object* find(std::int32_t id) const {
    if (mMaps.empty()) {
      const auto found = std::ranges::find(mFew, id, &Entry::first);
      return found == mFew.end() ? nullptr : found->second;
    }
    const Map& map = mMaps[partOf(id)];
    const auto found = map.find(id);
    return found == map.end() ? nullptr : found->second;
  }

  /// A reference to the id's object, which is null if it is new. Valid until the next call.
  Object*& operator[](std::int32_t id) {
    if (mMaps.empty()) {
      if (const auto found = std::ranges::find(mFew, id, &Entry::first); found != mFew.end()) return found->second;
      if (mFew.size() < kFewIds) return mFew.emplace_back(id, nullptr).second;
      spread(1);
    }
    if (mMaps.size() == 1 && mMaps[0].size() >= kMany) spread(std::size_t{1} << kPartBits);
    return mMaps[partOf(id)][id];
  }

 private:
  using Entry = std::pair<std::int32_t, Object*>;
  using Map = std::unordered_map<std::int32_t, Object*>;

  static constexpr std::size_t kFewIds = 8;
  static constexpr std::size_t kMany = 1024;
  static constexpr int kPartBits = 8;

  std::size_t partOf(std::int32_t id) const {
    if (mMaps.size() == 1) return 0;
    // Fibonacci hashing: spreads neighbors, and multiples of any number, evenly.
    return static_cast<std::uint32_t>(id) * 0x9E3779B9u >> (32 - kPartBits);
  }

  /// Moves all entries to that many maps, or throws and changes nothing.
  void spread(std::size_t count) {
    std::vector<Map> maps(count);
    maps.swap(mMaps);
    try {
      for (const Map& map : maps)
        for (const auto& [id, object] : map) mMaps[partOf(id)].emplace(id, object);
      for (const auto& [id, object] : mFew) mMaps[partOf(id)].emplace(id, object);
    } catch (...) {
      maps.swap(mMaps);
      throw;
    }
    std::vector<Entry>().swap(mFew);
  }

  std::vector<Entry> mFew;  // in use as long as there are no maps
  std::vector<Map> mMaps;
};

}  // namespace util
