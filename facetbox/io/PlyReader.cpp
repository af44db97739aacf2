#include <facetbox/io/PlyReader.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include <facetbox/base/Buffer.h>
#include <facetbox/io/PlyHeader.h>

namespace facetbox {
namespace {

constexpr const char* kCutShort = "the file ends before all that its header declares: it is cut short";

// Calls f with a zero of the type.
template <typename F>
auto withType(PlyType type, F&& f) {
  switch (type) {
    case PlyType::kInt8:
      return f(std::int8_t{});
    case PlyType::kUint8:
      return f(std::uint8_t{});
    case PlyType::kInt16:
      return f(std::int16_t{});
    case PlyType::kUint16:
      return f(std::uint16_t{});
    case PlyType::kInt32:
      return f(std::int32_t{});
    case PlyType::kUint32:
      return f(std::uint32_t{});
    case PlyType::kFloat32:
      return f(float{});
    case PlyType::kFloat64:
      break;
  }
  return f(double{});
}

// The values of the elements as text, a line each.
class AsciiSource {
 public:
  static constexpr bool kIsBinary = false;

  AsciiSource(std::string_view text, const PlyHeader& header, const std::string& name)
      : mAt(text.data() + header.mBytes), mEnd(text.data() + text.size()), mLine(header.mLines + 1), mName(name) {}

  [[noreturn]] void fail(const std::string& what) const {
    throw ReadError(fmt::format("{}:{}: {}", mName, mLine, what));
  }

  /// Fails where the last value was, which took that many bytes.
  [[noreturn]] void failBehind(std::size_t, const std::string& what) const { fail(what); }

  /// A digit and what follows it.
  static std::size_t leastBytes(PlyType) { return 2; }
  std::size_t remaining() const { return static_cast<std::size_t>(mEnd - mAt); }

  void startRow() {
    skipBlankLines();
    if (mAt == mEnd) fail(kCutShort);
  }
  void endRow() {
    skipBlanks();
    if (mAt == mEnd) return;
    if (*mAt != '\n') fail(fmt::format("{} is more than the header declares for this line", quotedToken()));
    ++mAt;
    ++mLine;
  }
  void finish() {
    skipBlankLines();
    if (mAt < mEnd) fail(fmt::format("{} comes after all that the header declares", quotedToken()));
  }

  double number(PlyType) {
    const char* const start = startToken();
    double value = 0;
    const auto [next, error] = std::from_chars(start, mEnd, value);
    if (error == std::errc::invalid_argument || !isTokenEnd(next))
      fail(fmt::format("{} is not a number", quotedToken()));
    // Too small becomes zero, too large is not finite.
    if (error == std::errc::result_out_of_range) value = std::strtod(std::string(start, next).c_str(), nullptr);
    if (!std::isfinite(value)) fail(fmt::format("{} is not a finite number", quotedToken()));
    endToken(next);
    return value;
  }

  std::int64_t integer(PlyType) {
    const char* const start = startToken();
    std::int64_t value = 0;
    const auto [next, error] = std::from_chars(start, mEnd, value);
    if (error == std::errc::result_out_of_range) fail(fmt::format("{} is out of range", quotedToken()));
    if (error != std::errc() || !isTokenEnd(next)) fail(fmt::format("{} is not an integer", quotedToken()));
    endToken(next);
    return value;
  }

  void skip(PlyType) {
    const char* end = startToken();
    while (!isTokenEnd(end)) ++end;
    endToken(end);
  }
  void skip(PlyType type, std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) skip(type);
  }

 private:
  static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
  bool isTokenEnd(const char* p) const { return p == mEnd || isBlank(*p) || *p == '\n'; }

  void skipBlanks() {
    while (mAt < mEnd && isBlank(*mAt)) ++mAt;
  }
  void skipBlankLines() {
    for (skipBlanks(); mAt < mEnd && *mAt == '\n'; skipBlanks()) {
      ++mAt;
      ++mLine;
    }
  }

  std::string quotedToken() const {
    const char* end = mAt;
    while (!isTokenEnd(end)) ++end;
    return quotedPlyText({mAt, static_cast<std::size_t>(end - mAt)});
  }

  // Where the next value of the line begins, behind a plus sign.
  const char* startToken() {
    skipBlanks();
    if (mAt == mEnd) fail(kCutShort);
    if (*mAt == '\n') fail("the line has fewer values than the header and its own counts say");
    return *mAt == '+' && mAt + 1 < mEnd && mAt[1] != '-' ? mAt + 1 : mAt;
  }
  void endToken(const char* end) {
    if (end == mEnd) fail("the file ends right behind a digit, so it may be cut short; if it is whole, add a line end");
    mAt = end;
  }

  const char* mAt;
  const char* mEnd;
  std::size_t mLine;
  const std::string& mName;
};

// The values of the elements as bytes, of the other order than this machine's if kSwap.
template <bool kSwap>
class BinarySource {
 public:
  static constexpr bool kIsBinary = true;

  BinarySource(std::string_view text, const PlyHeader& header, const std::string& name)
      : mBegin(text.data()), mAt(mBegin + header.mBytes), mEnd(mBegin + text.size()), mName(name) {}

  [[noreturn]] void fail(const std::string& what) const { failAt(mAt, what); }
  [[noreturn]] void failAt(const char* at, const std::string& what) const {
    throw ReadError(fmt::format("{}: byte {}: {}", mName, at - mBegin, what));
  }

  [[noreturn]] void failBehind(std::size_t bytes, const std::string& what) const { failAt(mAt - bytes, what); }

  static std::size_t leastBytes(PlyType type) { return sizeOf(type); }
  std::size_t remaining() const { return static_cast<std::size_t>(mEnd - mAt); }

  void startRow() {}
  void endRow() {}
  void finish() {
    if (mAt < mEnd) fail(fmt::format("{} more bytes come after all that the header declares", remaining()));
  }

  double number(PlyType type) {
    const char* const start = take(sizeOf(type));
    const double value = withType(type, [&](auto zero) { return static_cast<double>(load<decltype(zero)>(start)); });
    if (!std::isfinite(value)) failAt(start, "this number is not finite");
    return value;
  }
  // Not called for floats.
  std::int64_t integer(PlyType type) {
    const char* const start = take(sizeOf(type));
    return withType(type, [&](auto zero) { return static_cast<std::int64_t>(load<decltype(zero)>(start)); });
  }
  void skip(PlyType type) { take(sizeOf(type)); }
  void skip(PlyType type, std::uint64_t count) { take(sizeOf(type) * count); }

  /// The value at p.
  template <typename T>
  static T load(const char* p) {
    std::array<char, sizeof(T)> bytes;
    std::memcpy(bytes.data(), p, sizeof(T));
    if constexpr (kSwap) std::reverse(bytes.begin(), bytes.end());
    return std::bit_cast<T>(bytes);
  }

  /// Goes on by that many bytes. They must be there.
  const char* take(std::size_t bytes) {
    if (bytes > remaining()) fail(kCutShort);
    return std::exchange(mAt, mAt + bytes);
  }

 private:
  const char* mBegin;
  const char* mAt;
  const char* mEnd;
  const std::string& mName;
};

template <typename Source>
class Reader {
 public:
  Reader(const PlyHeader& header, Source source, ReadContext& context)
      : mHeader(header), mSource(source), mContext(context) {}

  Model read() {
    for (const PlyElement& element : mHeader.mElements) readElement(element);
    mSource.finish();
    if (mMesh.texCoords.empty())
      mMesh.texIndices.clear();
    else if (mMesh.texIndices.empty())
      mMesh.texIndices = mMesh.indices;  // a pair per vertex
    Model model;
    model.objects.push_back({.mesh = std::move(mMesh)});
    return model;
  }

 private:
  void readElement(const PlyElement& element) {
    std::size_t least = 0;
    for (const PlyProperty& p : element.mProperties) least += mSource.leastBytes(p.mIsList ? p.mCountType : p.mType);
    // What is reserved after this is in proportion to the file.
    if (element.mCount > 0 && element.mCount > mSource.remaining() / least)
      mSource.fail(fmt::format(
          "the header declares {} of element {}, but only {} bytes are left for them; the file is cut short",
          element.mCount, quotedPlyText(element.mName), mSource.remaining()));
    countIgnored(element);
    if (element.mKind == PlyKind::kVertex)
      readVertices(element);
    else if (element.mKind == PlyKind::kFace)
      readFaces(element);
    else
      readOther(element);
  }

  void countIgnored(const PlyElement& element) {
    if (element.mCount == 0) return;
    if (element.mKind == PlyKind::kOther) {
      mContext.notes().add(fmt::format("element {}", quotedPlyText(element.mName)), element.mCount);
      return;
    }
    for (const PlyProperty& property : element.mProperties)
      if (property.mRole == PlyRole::kIgnored)
        mContext.notes().add(fmt::format("{} property {}", element.mName, quotedPlyText(property.mName)),
                             element.mCount);
  }

  // The length of the list that comes now. Text ends it at the end of the line anyway.
  std::uint64_t readCount(const PlyProperty& property) {
    const std::int64_t count = mSource.integer(property.mCountType);
    const std::size_t bytes = sizeOf(property.mCountType);
    if (count < 0) mSource.failBehind(bytes, fmt::format("a list cannot have {} values", count));
    if (Source::kIsBinary &&
        static_cast<std::uint64_t>(count) > mSource.remaining() / mSource.leastBytes(property.mType))
      mSource.failBehind(bytes, fmt::format("a list has {} values by its count, but only {} bytes are left for them; "
                                            "the file is cut short or damaged",
                                            count, mSource.remaining()));
    return static_cast<std::uint64_t>(count);
  }

  void skipProperty(const PlyProperty& property) {
    if (property.mIsList)
      mSource.skip(property.mType, readCount(property));
    else
      mSource.skip(property.mType);
  }

  void readOther(const PlyElement& element) {
    for (std::uint64_t i = 0; i < element.mCount; ++i) {
      mContext.poll();
      mSource.startRow();
      for (const PlyProperty& property : element.mProperties) skipProperty(property);
      mSource.endRow();
    }
  }

  // Only addresses, in large pages: what is not filled in the end takes no memory.
  template <typename T>
  static void reserve(std::vector<T>& values, std::size_t count) {
    values.reserve(count);
    util::adviseLargePages(values.data(), count * sizeof(T));
  }

  void readVertices(const PlyElement& element) {
    reserve(mMesh.points, element.mCount * 3);
    mMesh.points.resize(element.mCount * 3);
    if (element.has(PlyRole::kU)) mMesh.texCoords.resize(element.mCount * 2);
    if constexpr (Source::kIsBinary) {
      if (std::ranges::none_of(element.mProperties, &PlyProperty::mIsList)) return readColumns(element);
    }
    for (std::uint64_t i = 0; i < element.mCount; ++i) {
      mContext.poll();
      mSource.startRow();
      for (const PlyProperty& property : element.mProperties) {
        if (property.mRole == PlyRole::kIgnored)
          skipProperty(property);
        else
          *column(property.mRole, i).mTo = mSource.number(property.mType);
      }
      mSource.endRow();
    }
  }

  // Where the values of a role go, from vertex `first` on.
  struct Column {
    double* mTo;
    std::size_t mStep;
  };
  Column column(PlyRole role, std::size_t first) {
    const auto index = static_cast<std::size_t>(role);
    return index < 3 ? Column{mMesh.points.data() + first * 3 + index, 3}
                     : Column{mMesh.texCoords.data() + first * 2 + index - 3, 2};
  }

  // Vertices of one size each: column by column, in blocks that stay in the cache.
  void readColumns(const PlyElement& element) {
    constexpr std::size_t kBlock = 512;
    std::size_t stride = 0;
    for (const PlyProperty& property : element.mProperties) stride += sizeOf(property.mType);
    for (std::size_t first = 0; first < element.mCount; first += kBlock) {
      const std::size_t count = std::min<std::size_t>(kBlock, element.mCount - first);
      mContext.poll();
      const char* from = mSource.take(count * stride);
      for (const PlyProperty& property : element.mProperties) {
        if (property.mRole != PlyRole::kIgnored)
          withType(property.mType,
                   [&](auto zero) { readColumn<decltype(zero)>(from, stride, count, column(property.mRole, first)); });
        from += sizeOf(property.mType);
      }
    }
  }

  template <typename T>
  void readColumn(const char* from, std::size_t stride, std::size_t count, Column column) {
    double sum = 0;  // of zeros, and not a number as soon as a value is not finite
    for (std::size_t i = 0; i < count; ++i) {
      const auto value = static_cast<double>(mSource.template load<T>(from + i * stride));
      column.mTo[i * column.mStep] = value;
      sum += value * 0;
    }
    if (sum == 0) return;
    while (std::isfinite(*column.mTo)) from += stride, column.mTo += column.mStep;
    mSource.failAt(from, "this number is not finite");
  }

  void readFaces(const PlyElement& element) {
    reserve(mMesh.counts, element.mCount);
    const bool isTextured = element.has(PlyRole::kTexCoords);
    for (const PlyProperty& property : element.mProperties) {
      // No more than fit into the file, all at once: growing would copy.
      const std::size_t most = mSource.remaining() / mSource.leastBytes(property.mType);
      if (property.mRole == PlyRole::kIndices) {
        reserve(mMesh.indices, most);
        if (isTextured) reserve(mMesh.texIndices, most);
      }
      if (property.mRole == PlyRole::kTexCoords) reserve(mMesh.texCoords, most);
    }
    if constexpr (Source::kIsBinary) {
      const PlyProperty& list = element.mProperties.front();
      if (element.mProperties.size() == 1 && list.mCountType == PlyType::kUint8 && sizeOf(list.mType) == 4)
        return readPlainFaces(element.mCount, list.mType == PlyType::kInt32);
    }
    for (std::uint64_t i = 0; i < element.mCount; ++i) {
      mContext.poll();
      mSource.startRow();
      const std::size_t firstCorner = mMesh.indices.size();
      const std::size_t firstNumber = mMesh.texCoords.size();
      for (const PlyProperty& property : element.mProperties) readFaceProperty(property);
      mMesh.counts.push_back(static_cast<std::uint32_t>(mMesh.indices.size() - firstCorner));
      if (isTextured) closeTexturedFace(firstNumber);
      mSource.endRow();
    }
  }

  void readFaceProperty(const PlyProperty& property) {
    if (property.mRole == PlyRole::kIgnored) return skipProperty(property);
    const std::uint64_t count = readCount(property);
    if (property.mRole == PlyRole::kTexCoords) {
      for (std::uint64_t i = 0; i < count; ++i) mMesh.texCoords.push_back(mSource.number(property.mType));
      return;
    }
    if (count == 0) mSource.failBehind(sizeOf(property.mCountType), "a face has no vertices");
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::int64_t vertex = mSource.integer(property.mType);
      if (static_cast<std::uint64_t>(vertex) >= mHeader.mVertexCount) failIndex(vertex, sizeOf(property.mType));
      mMesh.indices.push_back(static_cast<std::uint32_t>(vertex));
    }
  }

  [[noreturn]] void failIndex(std::int64_t vertex, std::size_t bytesAgo) const {
    mSource.failBehind(bytesAgo, fmt::format("face {} refers to vertex {}, but there are only {}, counted from 0",
                                             mMesh.counts.size() + 1, vertex, mHeader.mVertexCount));
  }

  void closeTexturedFace(std::size_t firstNumber) {
    const std::size_t numbers = mMesh.texCoords.size() - firstNumber;
    const std::uint32_t corners = mMesh.counts.back();
    if (numbers != 0 && numbers != std::size_t{corners} * 2)
      mSource.fail(fmt::format("face {} has {} corners, but {} numbers in its list 'texcoord'; it must have two each",
                               mMesh.counts.size(), corners, numbers));
    for (std::uint32_t i = 0; i < corners; ++i)
      mMesh.texIndices.push_back(numbers == 0 ? kNone : static_cast<std::uint32_t>(firstNumber / 2 + i));
  }

  // The layout that nearly all files have: a byte and that many indices of four bytes.
  void readPlainFaces(std::uint64_t faces, bool isSigned) {
    for (std::uint64_t i = 0; i < faces; ++i) {
      mContext.poll();
      const auto corners = static_cast<std::uint8_t>(*mSource.take(1));
      if (corners == 0) mSource.failBehind(1, "a face has no vertices");
      const char* from = mSource.take(corners * std::size_t{4});
      for (std::size_t c = 0; c < corners; ++c) {
        const auto vertex = mSource.template load<std::uint32_t>(from + c * 4);
        if (vertex >= mHeader.mVertexCount)
          failIndex(isSigned ? static_cast<std::int32_t>(vertex) : std::int64_t{vertex}, (corners - c) * 4);
        mMesh.indices.push_back(vertex);
      }
      mMesh.counts.push_back(corners);
    }
  }

  const PlyHeader& mHeader;
  Source mSource;
  ReadContext& mContext;
  PolyMesh mMesh;
};

}  // namespace

Model parsePly(std::string_view bytes, ReadContext& context) {
  const PlyHeader header = parsePlyHeader(bytes, context.name());
  if (header.mEncoding == PlyEncoding::kAscii)
    return Reader(header, AsciiSource(bytes, header, context.name()), context).read();
  constexpr bool kIsLittle = std::endian::native == std::endian::little;
  if ((header.mEncoding == PlyEncoding::kLittleEndian) == kIsLittle)
    return Reader(header, BinarySource<false>(bytes, header, context.name()), context).read();
  return Reader(header, BinarySource<true>(bytes, header, context.name()), context).read();
}

}  // namespace facetbox
