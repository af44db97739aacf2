#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <string_view>

#include <facetbox/io/GltfFile.h>

namespace facetbox {

/// The numbers of an accessor, looked up one by one: nothing of what it says is stored.
class GltfAccessor {
 public:
  /// Checks that all of it lies in its buffer.
  /// @param types  that are allowed: "VEC3"
  GltfAccessor(GltfFile& file, const JsonValue& value, std::initializer_list<std::string_view> types);

  /// The same check for another use of it.
  void requireType(std::initializer_list<std::string_view> types) const;

  std::size_t size() const { return mSize; }
  unsigned components() const { return mComponents; }

  /// The numbers of an element, as doubles: floats and integers as they are; normalized ones from 0 or -1 to 1. An
  /// error where one is not finite.
  void read(std::size_t element, double* numbers) const;

  /// The element of an accessor of indices; an error where these are no unsigned integers.
  std::uint32_t readIndex(std::size_t element) const;

  const JsonValue& value() const { return mValue; }

 private:
  struct Range {
    const char* first = nullptr;  // null: all zero
    std::size_t stride = 0;
    std::size_t byte = GltfBytes::kOutside;
  };

  Range rangeOf(GltfFile& file, const JsonValue& holder, std::size_t count, std::size_t elementSize,
                bool mayHaveStride) const;
  void openSparse(GltfFile& file, const JsonValue& sparse);
  std::uint32_t sparseIndex(std::size_t i) const;
  [[noreturn]] void failAtElement(const Range& range, std::size_t place, std::size_t element) const;

  JsonValue mValue;
  const ReadContext* mContext;
  std::size_t mSize = 0;
  unsigned mComponents = 1, mType = 0;
  bool mIsNormalized = false;
  Range mRange;
  // Elements that are replaced: their numbers, ascending, and what they are instead.
  std::size_t mSparseSize = 0;
  unsigned mSparseType = 0;
  Range mSparseIndices, mSparseNumbers;
};

/// The accessors of a file, each read and checked once, however often it is used.
class GltfAccessors {
 public:
  explicit GltfAccessors(GltfFile& file) : mFile(file) {}

  /// What `index` names; stays as long as this.
  const GltfAccessor& open(const JsonValue& index, std::initializer_list<std::string_view> types);

 private:
  GltfFile& mFile;
  std::map<std::size_t, GltfAccessor> mKnown;
};

}  // namespace facetbox
