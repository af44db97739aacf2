#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

/// Which object has an id. Once there are many, the map is split into some hundred: a hash table takes long to grow,
/// and one of a part of the ids only that part of the time.
template <class Object>
class ObjectIds {
 public:
  /// The object of the id, or null.
  Object* find(std::int32_t id) const {
    const Map& map = mMaps[partOf(id)];
    const auto found = map.find(id);
    return found == map.end() ? nullptr : found->second;
  }

  /// The place of the id's object, made if there is none; null is as good as none.
  Object*& operator[](std::int32_t id) {
    if (mMaps.size() == 1 && mMaps[0].size() >= kMany) split();
    return mMaps[partOf(id)][id];
  }

 private:
  using Map = std::unordered_map<std::int32_t, Object*>;

  static constexpr std::size_t kMany = 1024;
  static constexpr int kPartBits = 8;

  std::size_t partOf(std::int32_t id) const {
    if (mMaps.size() == 1) return 0;
    // Fibonacci hashing: neighbours, and multiples of whatever number, are spread evenly.
    return static_cast<std::uint32_t>(id) * 0x9E3779B9u >> (32 - kPartBits);
  }

  void split() {
    std::vector<Map> maps(std::size_t{1} << kPartBits);
    maps.swap(mMaps);
    try {
      for (const auto& [id, object] : maps[0]) mMaps[partOf(id)].emplace(id, object);
    } catch (...) {
      maps.swap(mMaps);
      throw;
    }
  }

  std::vector<Map> mMaps{1};
};
