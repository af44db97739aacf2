#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace facetbox {

/// The bytes of a glTF file that is being written, and the JSON of what they are.
class GltfBuffer {
 public:
  /// Each appends an accessor of the numbers and returns its index.
  std::size_t addPositions(const std::vector<float>& xyz);
  std::size_t addTexCoords(const std::vector<float>& uv);
  std::size_t addColors(const std::vector<float>& rgba);
  /// 16 bits each where `vertices` allows.
  std::size_t addIndices(const std::vector<std::uint32_t>& indices, std::size_t vertices);

  /// Bytes of another kind; returns the index of their buffer view.
  std::size_t addBytes(std::string_view bytes);

  const std::vector<std::string>& accessors() const { return mAccessors; }
  std::vector<std::string> views() const;

  /// All bytes; to be called once, at the end. A multiple of four.
  std::string take();

 private:
  // What a buffer view holds: all numbers of one kind.
  struct View {
    std::string bytes;
    unsigned stride = 0, target = 0;  // 0: none
  };
  enum Kind { kPositions, kTexCoords, kColors, kLongIndices, kShortIndices, kKinds };

  View& viewOf(Kind kind, unsigned stride, unsigned target);
  template <typename T>
  std::size_t addAccessor(View& view, const T* numbers, std::size_t count, unsigned components,
                          const std::string& bounds);

  std::vector<std::string> mAccessors;
  std::vector<View> mViews;
  std::array<std::size_t, kKinds> mViewOfKind = {};  // plus one; 0: none yet
};

}  // namespace facetbox
