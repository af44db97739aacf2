#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

namespace util {

/// What a handle's value points to. Layout is part of the interface: who made it comes first.
template <class Owner>
struct Handle {
  Owner* mOwner;
  std::uint64_t mSerial;

  static Handle* at(std::size_t value) { return reinterpret_cast<Handle*>(value); }
};
static_assert(sizeof(Handle<int>) == 16 && offsetof(Handle<int>, mOwner) == 0 && offsetof(Handle<int>, mSerial) == 8);

/// Reads a handle: its serial number, or 0, which none has, where it is no handle of `owner`.
template <class Owner>
std::uint64_t serialOf(std::size_t value, const Owner* owner) {
  const auto* handle = Handle<Owner>::at(value);
  return handle && handle->mOwner == owner ? handle->mSerial : 0;
}

/// The handles of one owner that are alive, by serial number; serials start at 1 and are never used again. May be
/// called by several threads at once; no other lock is taken under its own.
template <class Owner>
class HandleRegistry {
 public:
  /// A new handle's value.
  std::size_t create(Owner* owner) {
    auto handle = std::make_unique<Handle<Owner>>();
    handle->mOwner = owner;
    const std::size_t value = reinterpret_cast<std::size_t>(handle.get());
    const boost::unique_lock<boost::mutex> lock(mMutex);
    handle->mSerial = mNextSerial++;
    mHandles.emplace(handle->mSerial, std::move(handle));
    return value;
  }

  bool isAlive(std::uint64_t serial) const {
    const boost::unique_lock<boost::mutex> lock(mMutex);
    return mHandles.contains(serial);
  }

  /// Frees a handle. One that is gone already is left at that: it was disposed of twice before either took effect.
  /// @return whether it was alive
  bool free(std::uint64_t serial) {
    const boost::unique_lock<boost::mutex> lock(mMutex);
    return mHandles.erase(serial) != 0;
  }

 private:
  mutable boost::mutex mMutex;
  std::uint64_t mNextSerial = 1;                                               // guarded by mMutex
  std::unordered_map<std::uint64_t, std::unique_ptr<Handle<Owner>>> mHandles;  // guarded by mMutex
};

}  // namespace util
