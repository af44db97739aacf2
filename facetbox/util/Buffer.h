#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace util {

/// Asks the system to back [data, data + bytes) with large pages where it offers them on request: filling fresh memory
/// costs mostly page faults. Only a hint; call it before the memory is first touched. Cheap for small blocks.
void adviseLargePages(void* data, std::size_t bytes) noexcept;

/// Allocator for arrays of plain values that are written before they are read: resize() leaves new elements
/// uninitialised instead of filling them first.
template <class T>
class BufferAllocator {
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

 public:
  using value_type = T;

  BufferAllocator() = default;
  template <class U>
  BufferAllocator(const BufferAllocator<U>&) noexcept {}

  T* allocate(std::size_t count) {
    T* data = std::allocator<T>().allocate(count);
    adviseLargePages(data, count * sizeof(T));
    return data;
  }
  void deallocate(T* data, std::size_t count) noexcept { std::allocator<T>().deallocate(data, count); }

  template <class U>
  void construct(U* place) noexcept {
    ::new (static_cast<void*>(place)) U;
  }
  template <class U, class... Args>
  void construct(U* place, Args&&... args) {
    ::new (static_cast<void*>(place)) U(std::forward<Args>(args)...);
  }

  friend bool operator==(const BufferAllocator&, const BufferAllocator&) { return true; }
};

/// A growable array of plain values whose resize() does not initialise.
template <class T>
using Buffer = std::vector<T, BufferAllocator<T>>;

}  // namespace util
