#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

namespace util {

/// The record that a handle's value points to. Its layout is part of the interface: hosts read the owner.
template <class Owner>
struct Handle {
  Owner* mOwner;          ///< the picker or intersector that made the handle
  std::uint64_t mSerial;  ///< above 0, unique within the owner

  static Handle* at(std::size_t value) { return reinterpret_cast<Handle*>(value); }
};
static_assert(sizeof(Handle<int>) == 16 && offsetof(Handle<int>, mOwner) == 0 && offsetof(Handle<int>, mSerial) == 8);

/// The serial number of a handle; 0 if the handle is 0 or belongs to another owner.
template <class Owner>
std::uint64_t serialOf(std::size_t value, const Owner* owner) {
  const auto* handle = Handle<Owner>::at(value);
  return handle && handle->mOwner == owner ? handle->mSerial : 0;
}

/// The live handles of one owner, by serial number. Serial numbers start at 1 and are never used twice.
///
/// Thread-safe. No other lock is taken under its mutex.
template <class Owner>
class HandleRegistry {
 public:
  /// Makes a handle, and returns its value.
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

  /// Frees a handle; does nothing for one that was disposed of twice.
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
