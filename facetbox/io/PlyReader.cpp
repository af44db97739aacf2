#include <facetbox/io/PlyReader.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <span>
#include <utility>

#include <fmt/format.h>

#include <facetbox/base/Buffer.h>
#include <facetbox/io/PlyHeader.h>
#include <facetbox/io/PlySources.h>
#include <facetbox/io/TextScanner.h>

namespace facetbox {
namespace {

template <typename Source>
class Reader {
 public:
  Reader(const PlyHeader& header, Source source, ReadContext& context)
      : mHeader(header), mSource(source), mContext(context) {}

  Model read() {
    for (const PlyElement& element : mHeader.mElements) readElement(element);
    mSource.finish(mContext);
    mContext.notes().add("textures named in comments", mHeader.mTextures);
    if (mMesh.texCoords.empty())
      mMesh.texIndices.clear();
    else if (mMesh.texIndices.empty())
      mMesh.texIndices = mMesh.indices;  // a pair per vertex
    checkColors();
    Model model;
    model.objects.push_back({.mesh = std::move(mMesh), .colors = std::move(mColors)});
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
          element.mCount, quoted(element.mName), mSource.remaining()));
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
      mContext.notes().add(fmt::format("element {}", quoted(element.mName)), element.mCount);
      return;
    }
    for (const PlyProperty& property : element.mProperties)
      if (property.mRole == PlyRole::kIgnored)
        mContext.notes().add(fmt::format("{} property {}", element.mName, quoted(property.mName)), element.mCount);
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

  // Vertices before they are appended; few enough to stay in the cache.
  struct Block {
    static constexpr std::size_t kSize = 512;

    std::array<double, 3 * kSize> points;
    std::array<double, 2 * kSize> pairs;
    std::array<float, 4 * kSize> colors;
  };

  void readVertices(const PlyElement& element) {
    mHasPairs = element.has(PlyRole::kU);
    mHasColors = element.has(PlyRole::kRed);
    reserve(mMesh.points, element.mCount * 3);
    if (mHasPairs) reserve(mMesh.texCoords, element.mCount * 2);
    if (mHasColors) reserve(mColors, element.mCount * 4);
    mBlock.colors.fill(1);
    const bool isInColumns = Source::kIsBinary && std::ranges::none_of(element.mProperties, &PlyProperty::mIsList);
    const std::size_t size = isInColumns ? Block::kSize : 1;
    for (std::uint64_t first = 0; first < element.mCount; first += size) {
      const std::size_t count = std::min<std::size_t>(size, element.mCount - first);
      mContext.poll();
      if constexpr (Source::kIsBinary) {
        if (isInColumns) readColumns(element, count);
      }
      if (!isInColumns) readRow(element);
      mMesh.points.insert(mMesh.points.end(), mBlock.points.data(), mBlock.points.data() + 3 * count);
      if (mHasPairs)
        mMesh.texCoords.insert(mMesh.texCoords.end(), mBlock.pairs.data(), mBlock.pairs.data() + 2 * count);
      if (mHasColors) mColors.insert(mColors.end(), mBlock.colors.data(), mBlock.colors.data() + 4 * count);
    }
  }

  // Calls f with where the values of a role go in the block, how far apart they are, and what is done to them.
  template <typename F>
  void withColumn(const PlyProperty& property, F&& f) {
    const auto role = static_cast<std::size_t>(property.mRole);
    constexpr auto kFirstPair = static_cast<std::size_t>(PlyRole::kU);
    constexpr auto kFirstColor = static_cast<std::size_t>(PlyRole::kRed);
    constexpr auto kSame = [](double value) { return value; };
    if (role < kFirstPair)
      f(mBlock.points.data() + role, 3, kSame);
    else if (role < kFirstColor)
      f(mBlock.pairs.data() + role - kFirstPair, 2, kSame);
    else
      f(mBlock.colors.data() + role - kFirstColor, 4,
        [full = fullColorOf(property.mType)](double value) { return static_cast<float>(value / full); });
  }

  void readRow(const PlyElement& element) {
    mSource.startRow();
    for (const PlyProperty& property : element.mProperties) {
      if (property.mRole == PlyRole::kIgnored)
        skipProperty(property);
      else
        withColumn(property,
                   [&](auto* to, std::size_t, auto convert) { *to = convert(mSource.number(property.mType)); });
    }
    mSource.endRow();
  }

  // Vertices of one size each, column by column.
  void readColumns(const PlyElement& element, std::size_t count) {
    std::size_t stride = 0;
    for (const PlyProperty& property : element.mProperties) stride += sizeOf(property.mType);
    const char* from = mSource.take(count * stride);
    for (const PlyProperty& property : element.mProperties) {
      if (property.mRole != PlyRole::kIgnored)
        withType(property.mType, [&](auto zero) {
          withColumn(property, [&](auto* to, std::size_t step, auto convert) {
            readColumn<decltype(zero)>(from, stride, count, to, step, convert);
          });
        });
      from += sizeOf(property.mType);
    }
  }

  template <typename T, typename To, typename Convert>
  void readColumn(const char* from, std::size_t stride, std::size_t count, To* to, std::size_t step, Convert convert) {
    double sum = 0;  // of zeros, and not a number as soon as a value is not finite
    for (std::size_t i = 0; i < count; ++i) {
      const auto value = static_cast<double>(mSource.template load<T>(from + i * stride));
      to[i * step] = convert(value);
      sum += value * 0;
    }
    if (sum == 0) return;
    while (std::isfinite(static_cast<double>(mSource.template load<T>(from)))) from += stride;
    mSource.failAt(from, "this number is not finite");
  }

  // Colors are all from 0 to 1, or nobody knows what they are.
  void checkColors() {
    if (std::ranges::all_of(mColors, [](float value) { return value >= 0 && value <= 1; })) return;
    mContext.notes().add("vertex colors: not all from 0 to 1", mColors.size() / 4);
    mColors.clear();
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

  // The layout that nearly all files have: a byte and that many indices of four bytes. Face after face goes into
  // blocks first: to append many indices at once is quicker by far.
  void readPlainFaces(std::uint64_t faces, bool isSigned) {
    constexpr std::size_t kMostCorners = 255;
    std::array<std::uint32_t, 2048 + kMostCorners> indices;
    std::array<std::uint32_t, 512> counts;
    for (std::uint64_t face = 0; face < faces;) {
      mContext.poll();
      const std::size_t most = std::min<std::uint64_t>(counts.size(), faces - face);
      std::size_t count = 0, corners = 0;
      for (; count < most && corners < indices.size() - kMostCorners; ++count) {
        counts[count] = static_cast<std::uint8_t>(*mSource.take(1));
        if (counts[count] == 0) mSource.failBehind(1, "a face has no vertices");
        const char* const from = mSource.take(counts[count] * std::size_t{4});
        for (std::size_t c = 0; c < counts[count]; ++c)
          indices[corners++] = mSource.template load<std::uint32_t>(from + c * 4);
      }
      const auto end = indices.begin() + static_cast<std::ptrdiff_t>(corners);
      checkPlainFaces({indices.begin(), end}, {counts.data(), count}, isSigned);
      mMesh.indices.insert(mMesh.indices.end(), indices.begin(), end);
      mMesh.counts.insert(mMesh.counts.end(), counts.begin(), counts.begin() + static_cast<std::ptrdiff_t>(count));
      face += count;
    }
  }

  void checkPlainFaces(std::span<const std::uint32_t> indices, std::span<const std::uint32_t> counts, bool isSigned) {
    std::uint32_t largest = 0;
    for (const std::uint32_t vertex : indices) largest = std::max(largest, vertex);
    if (indices.empty() || largest < mHeader.mVertexCount) return;
    std::size_t corner = 0, bytesBehind = indices.size() * 4 + counts.size();
    for (const std::uint32_t count : counts) {
      --bytesBehind;
      for (const std::size_t end = corner + count; corner < end; ++corner, bytesBehind -= 4)
        if (indices[corner] >= mHeader.mVertexCount)
          failIndex(isSigned ? static_cast<std::int32_t>(indices[corner]) : std::int64_t{indices[corner]}, bytesBehind);
      mMesh.counts.push_back(count);  // the message counts faces
    }
  }

  const PlyHeader& mHeader;
  Source mSource;
  ReadContext& mContext;
  PolyMesh mMesh;
  std::vector<float> mColors;
  Block mBlock;
  bool mHasPairs = false, mHasColors = false;
};

}  // namespace

Model parsePly(std::string_view bytes, ReadContext& context) {
  const PlyHeader header = parsePlyHeader(bytes, context.name());
  if (header.mEncoding == PlyEncoding::kAscii)
    return Reader(header, PlyText(bytes, header, context.name()), context).read();
  constexpr bool kIsLittle = std::endian::native == std::endian::little;
  if ((header.mEncoding == PlyEncoding::kLittleEndian) == kIsLittle)
    return Reader(header, PlyBytes<false>(bytes, header, context.name()), context).read();
  return Reader(header, PlyBytes<true>(bytes, header, context.name()), context).read();
}

}  // namespace facetbox
