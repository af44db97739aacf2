#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace util {

/// A growing array that never moves more than some hundred elements: no append takes long, however many there are.
template <class T>
class ChunkedVector {
 public:
  std::size_t size() const { return mSize; }
  T& operator[](std::size_t i) { return mChunks[i / kChunk][i % kChunk]; }
  const T& operator[](std::size_t i) const { return mChunks[i / kChunk][i % kChunk]; }

  /// Makes the next push_back() one that cannot fail; or throws and changes nothing.
  void makeRoom() {
    if (mSize / kChunk == mChunks.size()) mChunks.emplace_back();
    std::vector<T>& last = mChunks.back();
    if (last.size() == last.capacity())
      last.reserve(mChunks.size() > 1 ? kChunk : std::max<std::size_t>(1, 2 * last.size()));
  }
  void push_back(T value) {
    makeRoom();
    mChunks.back().push_back(std::move(value));
    ++mSize;
  }

 private:
  static constexpr std::size_t kChunk = 512;

  std::vector<std::vector<T>> mChunks;
  std::size_t mSize = 0;
};

}  // namespace util
