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

/// Has the system provide the pages of memory that is going to be filled now, all at once instead of one by one as they
/// are touched. Only a hint.
void populatePages(void* data, std::size_t bytes) noexcept;

/// Memory from the global operator new, for arrays of what is aligned like this. A block in which a large page has room
/// begins with one, for elsewhere it would have one less, and asks for large pages.
void* allocateBlock(std::size_t bytes, std::size_t alignment);
/// Releases a block of allocateBlock(bytes, alignment).
void deallocateBlock(void* data, std::size_t bytes, std::size_t alignment) noexcept;

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

  T* allocate(std::size_t count) { return static_cast<T*>(allocateBlock(count * sizeof(T), alignof(T))); }
  void deallocate(T* data, std::size_t count) noexcept { deallocateBlock(data, count * sizeof(T), alignof(T)); }

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

/// Reserves room in an empty vector that goes out to a caller and is filled at once; in large pages where there are
/// some.
template <class T>
void reserveLarge(std::vector<T>& values, std::size_t size) {
  values.reserve(size);
  adviseLargePages(values.data(), size * sizeof(T));
  populatePages(values.data(), size * sizeof(T));
}

}  // namespace util
