#include <facetbox/io/GltfAccessor.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include <fmt/format.h>

#include <facetbox/io/GltfNames.h>

namespace facetbox {
namespace {

enum : unsigned { kByte = 5120, kUnsignedByte, kShort, kUnsignedShort, kUnsignedInt = 5125, kFloat };

constexpr std::array<std::string_view, 4> kTypes = {"SCALAR", "VEC2", "VEC3", "VEC4"};

std::size_t sizeOf(unsigned type) {
  switch (type) {
    case kByte:
    case kUnsignedByte:
      return 1;
    case kShort:
    case kUnsignedShort:
      return 2;
    case kUnsignedInt:
    case kFloat:
      return 4;
    default:
      return 0;
  }
}

static_assert(std::endian::native == std::endian::little, "numbers of buffers are read as they are");

template <typename T>
T load(const char* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

template <typename T>
double loadInteger(const char* bytes, bool isNormalized) {
  const double value = load<T>(bytes);
  return isNormalized ? std::max(value / std::numeric_limits<T>::max(), -1.0) : value;
}

double loadNumber(const char* bytes, unsigned type, bool isNormalized) {
  switch (type) {
    case kByte:
      return loadInteger<std::int8_t>(bytes, isNormalized);
    case kUnsignedByte:
      return loadInteger<std::uint8_t>(bytes, isNormalized);
    case kShort:
      return loadInteger<std::int16_t>(bytes, isNormalized);
    case kUnsignedShort:
      return loadInteger<std::uint16_t>(bytes, isNormalized);
    case kUnsignedInt:
      return loadInteger<std::uint32_t>(bytes, isNormalized);
    default:
      return static_cast<double>(load<float>(bytes));
  }
}

std::uint32_t loadIndex(const char* bytes, unsigned type) {
  if (type == kUnsignedByte) return load<std::uint8_t>(bytes);
  return type == kUnsignedShort ? load<std::uint16_t>(bytes) : load<std::uint32_t>(bytes);
}

bool isIndexType(unsigned type) { return type == kUnsignedByte || type == kUnsignedShort || type == kUnsignedInt; }

unsigned typeOf(const JsonValue& holder) {
  const JsonValue value = holder.at("componentType");
  const std::uint64_t type = value.integer(std::numeric_limits<std::uint32_t>::max());
  if (sizeOf(static_cast<unsigned>(type)) == 0)
    value.fail(fmt::format("{} is no type of numbers: expected 5120 to 5123, 5125 or 5126", type));
  return static_cast<unsigned>(type);
}

}  // namespace

GltfAccessor::GltfAccessor(GltfFile& file, const JsonValue& value, std::initializer_list<std::string_view> types)
    : mValue(value), mContext(&file.context()) {
  file.noteOthers(value,
                  {"bufferView", "byteOffset", "componentType", "count", "max", "min", "normalized", "sparse", "type"},
                  "accessors");
  const JsonValue type = mValue.at("type");
  const auto known = std::find(kTypes.begin(), kTypes.end(), type.string());
  mComponents = static_cast<unsigned>(known - kTypes.begin()) + 1;
  requireType(types);
  mType = typeOf(mValue);
  const JsonValue count = mValue.at("count");
  // Indices are of 32 bits, and one of them stands for none.
  mSize = static_cast<std::size_t>(count.integer(std::numeric_limits<std::uint32_t>::max()));
  if (mSize == 0) count.fail("an accessor of no elements");
  if (const auto normalized = mValue.find("normalized")) mIsNormalized = normalized->boolean();
  const std::size_t elementSize = mComponents * sizeOf(mType);
  if (mValue.find("bufferView")) mRange = rangeOf(file, mValue, mSize, elementSize, true);
  if (const auto sparse = mValue.find("sparse")) openSparse(file, *sparse);
}

void GltfAccessor::requireType(std::initializer_list<std::string_view> types) const {
  const auto isThis = [this](std::string_view type) {
    return mComponents <= kTypes.size() && type == kTypes[mComponents - 1];
  };
  if (std::any_of(types.begin(), types.end(), isThis)) return;
  const JsonValue type = mValue.at("type");
  type.fail(fmt::format("{} cannot be used here, expected {}", gltfQuoted(type.string()), *types.begin()));
}

const GltfAccessor& GltfAccessors::open(const JsonValue& index, std::initializer_list<std::string_view> types) {
  const JsonValue value = mFile.element("accessors", index);
  const auto i = static_cast<std::size_t>(index.integer(std::numeric_limits<std::uint32_t>::max()));
  const auto known = mKnown.find(i);
  if (known != mKnown.end()) {
    known->second.requireType(types);
    return known->second;
  }
  constexpr std::size_t kMemory = sizeof(GltfAccessor) + 64;  // a node of the map
  mFile.take(kMemory, value);
  return mKnown.try_emplace(i, mFile, value, types).first->second;
}

GltfAccessor::Range GltfAccessor::rangeOf(GltfFile& file, const JsonValue& holder, std::size_t count,
                                          std::size_t elementSize, bool mayHaveStride) const {
  const JsonValue viewIndex = holder.at("bufferView");
  const GltfView& whole = file.bufferView(viewIndex);
  const GltfBytes& view = whole.data;
  const auto offsetValue = holder.find("byteOffset");
  const auto offset = offsetValue ? static_cast<std::size_t>(offsetValue->integer(view.bytes.size())) : 0;
  std::size_t stride = elementSize;
  if (const auto& given = whole.stride; given && mayHaveStride) {
    stride = static_cast<std::size_t>(given->integer(252));
    if (stride < elementSize)
      given->fail(fmt::format("elements of {} bytes, but {} bytes from one to the next", elementSize, stride));
  }
  // Counts have 32 bits and strides 8, so nothing runs over.
  const std::size_t needed = (count - 1) * stride + elementSize;
  if (needed > view.bytes.size() - offset)
    holder.fail(fmt::format("{} elements take {} bytes, but there are {} in the buffer view from byte {} on", count,
                            needed, view.bytes.size() - offset, offset));
  return {view.bytes.data() + offset, stride,
          view.firstByte == GltfBytes::kOutside ? GltfBytes::kOutside : view.firstByte + offset};
}

void GltfAccessor::openSparse(GltfFile& file, const JsonValue& sparse) {
  const JsonValue count = sparse.at("count"), indices = sparse.at("indices");
  mSparseSize = static_cast<std::size_t>(count.integer(mSize));
  if (mSparseSize == 0) count.fail("a sparse accessor that replaces no elements");
  mSparseType = typeOf(indices);
  if (!isIndexType(mSparseType)) indices.fail("indices must be unsigned integers");
  mSparseIndices = rangeOf(file, indices, mSparseSize, sizeOf(mSparseType), false);
  mSparseNumbers = rangeOf(file, sparse.at("values"), mSparseSize, mComponents * sizeOf(mType), false);
  for (std::size_t i = 0; i < mSparseSize; ++i) {
    file.context().poll();
    if (sparseIndex(i) >= mSize || (i > 0 && sparseIndex(i) <= sparseIndex(i - 1)))
      indices.fail(fmt::format("index {} of a sparse accessor is {}: not above the one before, or out of range", i,
                               sparseIndex(i)));
  }
}

std::uint32_t GltfAccessor::sparseIndex(std::size_t i) const {
  return loadIndex(mSparseIndices.first + i * mSparseIndices.stride, mSparseType);
}

void GltfAccessor::read(std::size_t element, double* numbers) const {
  const Range* range = &mRange;
  std::size_t place = element;
  if (mSparseSize > 0) {
    std::size_t first = 0, last = mSparseSize;
    while (first < last) {
      const std::size_t middle = (first + last) / 2;
      if (sparseIndex(middle) < element)
        first = middle + 1;
      else
        last = middle;
    }
    if (first < mSparseSize && sparseIndex(first) == element) {
      range = &mSparseNumbers;
      place = first;
    }
  }
  if (range->first == nullptr) {
    std::fill_n(numbers, mComponents, 0.0);
    return;
  }
  const char* const at = range->first + place * range->stride;
  const std::size_t size = sizeOf(mType);
  double sum = 0;
  for (unsigned c = 0; c < mComponents; ++c) {
    numbers[c] = loadNumber(at + c * size, mType, mIsNormalized);
    sum += 0.0 * numbers[c];  // NaN where the number is not finite
  }
  if (!(sum == 0)) failAtElement(*range, place, element);
}

std::uint32_t GltfAccessor::readIndex(std::size_t element) const {
  if (!isIndexType(mType)) mValue.fail("indices must be unsigned integers");
  if (mRange.first && mSparseSize == 0) return loadIndex(mRange.first + element * mRange.stride, mType);
  double number = 0;
  read(element, &number);
  return static_cast<std::uint32_t>(number);
}

void GltfAccessor::failAtElement(const Range& range, std::size_t place, std::size_t element) const {
  const std::string what = fmt::format("element {} of an accessor has a number that is not finite", element);
  if (range.byte == GltfBytes::kOutside) mValue.fail(what);
  mContext->failAtByte(range.byte + place * range.stride, what);
}

}  // namespace facetbox
