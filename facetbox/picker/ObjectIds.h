#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

/// Which object has an id. A few ids stand in a plain list, which is smaller than any map. Once there are many, the map
/// is split into some hundred: a hash table takes long to grow, and one of a part of the ids only that part of the
/// time.
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

  /// The place of the id's object, made if there is none; null is as good as none. Valid until the next call.
  Object*& operator[](std::int32_t id) {
    if (mMaps.empty()) {
      if (const auto found = std::ranges::find(mFew, id, &Entry::first); found != mFew.end()) return found->second;
      if (mFew.size() < kFew) return mFew.emplace_back(id, nullptr).second;
      spread(1);
    }
    if (mMaps.size() == 1 && mMaps[0].size() >= kMany) spread(std::size_t{1} << kPartBits);
    return mMaps[partOf(id)][id];
  }

 private:
  using Entry = std::pair<std::int32_t, Object*>;
  using Map = std::unordered_map<std::int32_t, Object*>;

  static constexpr std::size_t kFew = 8;
  static constexpr std::size_t kMany = 1024;
  static constexpr int kPartBits = 8;

  std::size_t partOf(std::int32_t id) const {
    if (mMaps.size() == 1) return 0;
    // Fibonacci hashing: neighbours, and multiples of whatever number, are spread evenly.
    return static_cast<std::uint32_t>(id) * 0x9E3779B9u >> (32 - kPartBits);
  }

  /// Moves all entries to that many maps; or throws and changes nothing.
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

  std::vector<Entry> mFew;  // in use while there are no maps
  std::vector<Map> mMaps;
};
