#include <facetbox/io/OffReader.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include <facetbox/io/OffMesh.h>
#include <facetbox/io/TextScanner.h>

namespace facetbox {
namespace {

// How many numbers stand with a vertex at least, and how many of them belong to its position.
std::size_t positionSize(const OffLayout& layout) { return layout.hasWeight ? 4 : 3; }
std::size_t vertexSize(const OffLayout& layout, std::size_t colorSize) {
  return positionSize(layout) + (layout.hasNormal ? 3 : 0) + (layout.hasColor ? colorSize : 0) +
         (layout.hasTexCoord ? 2 : 0);
}

struct Counts {
  std::uint64_t vertices, faces;
};

class TextReader {
 public:
  TextReader(TextScanner& scan, const OffLayout& layout, std::size_t fileSize, ReadContext& context)
      : mScan(scan), mLayout(layout), mMesh(layout, fileSize), mContext(context) {}

  Model read() {
    const Counts counts = readCounts();
    mMesh.reserve(counts.vertices, counts.faces);
    for (std::uint64_t i = 0; i < counts.vertices; ++i) readVertex(i, counts);
    for (std::uint64_t i = 0; i < counts.faces; ++i) readFace(i, counts);
    if (!mScan.atEnd()) mScan.fail(fmt::format("{} comes after all {} faces", quoted(mScan.peek()), counts.faces));
    return mMesh.finish(mContext);
  }

 private:
  Counts readCounts() {
    mScan.atEnd();
    Counts counts{};
    counts.vertices = mScan.count("the number of vertices");
    counts.faces = mScan.count("the number of faces");
    if (!mScan.atLineEnd()) mScan.count("the number of edges");
    // A digit and what follows it for each number.
    const std::size_t left = mScan.remaining() / 2;
    const std::size_t least = vertexSize(mLayout, 3);
    if (counts.vertices > left / least || counts.faces > left - counts.vertices * least)
      mScan.fail(
          fmt::format("{} vertices and {} faces are declared, but only {} bytes are left for them; the file is "
                      "cut short",
                      counts.vertices, counts.faces, mScan.remaining()));
    mScan.endLine();
    return counts;
  }

  void require(const OffMesh::Complaint& complaint) const {
    if (complaint) mScan.fail(*complaint);
  }

  void startRow(const char* what, std::uint64_t number, std::uint64_t declared) {
    mContext.poll();
    if (mScan.atEnd()) mScan.failCutShort(fmt::format("{} {} of {}", what, number + 1, declared));
  }

  void readVertex(std::uint64_t number, const Counts& counts) {
    startRow("vertex", number, counts.vertices);
    std::array<double, 4> position{};
    for (std::size_t i = 0; i < positionSize(mLayout); ++i) position[i] = mScan.number("a coordinate");
    require(mMesh.addVertex(position));
    if (mLayout.hasNormal)
      for (int i = 0; i < 3; ++i) mScan.number("a normal");
    if (mLayout.hasColor || mLayout.hasTexCoord) readColorAndTexCoord();
    mScan.endLine();
  }

  // How many components the color has is known by the end of the line only.
  void readColorAndTexCoord() {
    std::array<double, 6> values{};
    std::size_t size = 0;
    OffColor color;
    const std::size_t texCoordSize = mLayout.hasTexCoord ? 2 : 0;
    const std::size_t most = (mLayout.hasColor ? 4 : 0) + texCoordSize;
    std::array<bool, 6> hasPoint{};
    for (; size < most && !mScan.atLineEnd(); ++size) readComponent(values[size], hasPoint[size]);
    color.size = size - std::min(size, texCoordSize);
    if (size < texCoordSize || (mLayout.hasColor && color.size < 3)) {
      if (mScan.remaining() == 0) mScan.failCutShort("the rest of a vertex");
      mScan.fail(fmt::format("the line has {} numbers behind the position and the normal; {} are expected", size,
                             mLayout.hasColor ? fmt::format("{} or {}", most - 1, most) : std::to_string(most)));
    }
    for (std::size_t i = 0; i < color.size; ++i) {
      color.values[i] = values[i];
      color.hasPoint |= hasPoint[i];
    }
    if (mLayout.hasColor) require(mMesh.addVertexColor(color));
    if (mLayout.hasTexCoord) mMesh.addTexCoord(values[color.size], values[color.size + 1]);
  }

  void readComponent(double& value, bool& hasPoint) {
    hasPoint = mScan.peek().find_first_of(".eE") != std::string_view::npos;
    value = mScan.number("a number");
  }

  void readFace(std::uint64_t number, const Counts& counts) {
    startRow("face", number, counts.faces);
    const std::uint64_t corners = mScan.count("the number of corners");
    for (std::uint64_t i = 0; i < corners; ++i) require(mMesh.addCorner(mScan.count("a vertex")));
    OffColor color;
    bool hasPoint = false;
    for (; color.size < 4 && !mScan.atLineEnd(); ++color.size) {
      readComponent(color.values[color.size], hasPoint);
      color.hasPoint |= hasPoint;
    }
    if (color.size == 2)
      mScan.fail("2 numbers come after the corners of this face; 3 or 4 are a color, and 1 is its number");
    require(mMesh.endFace(color));
    if (!mScan.atLineEnd()) mScan.endLine();
    if (mScan.remaining() == 0 && number + 1 == counts.faces) mContext.noteMissingLineEnd();
    mScan.nextLine();
  }

  TextScanner& mScan;
  const OffLayout mLayout;
  OffMesh mMesh;
  ReadContext& mContext;
};

// Integers and floats of four bytes, the highest first.
class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, std::size_t at, const OffLayout& layout, ReadContext& context)
      : mBytes(bytes), mAt(at), mLayout(layout), mMesh(layout, bytes.size()), mContext(context) {}

  Model read() {
    const Counts counts = readCounts();
    mMesh.reserve(counts.vertices, counts.faces);
    for (std::uint64_t i = 0; i < counts.vertices; ++i) readVertex();
    for (std::uint64_t i = 0; i < counts.faces; ++i) readFace();
    if (remaining() > 0) fail(fmt::format("{} more bytes come after all {} faces", remaining(), counts.faces));
    return mMesh.finish(mContext);
  }

 private:
  static constexpr std::size_t kSize = 4;

  std::size_t remaining() const { return mBytes.size() - mAt; }
  [[noreturn]] void fail(const std::string& what) const { mContext.failAtByte(mAt, what); }
  // Fails at the number that was taken last.
  [[noreturn]] void failBehind(const std::string& what) const { mContext.failAtByte(mAt - kSize, what); }
  void require(const OffMesh::Complaint& complaint) const {
    if (complaint) failBehind(*complaint);
  }

  std::uint32_t take(const char* what) {
    if (remaining() < kSize) fail(fmt::format("the file ends where {} is expected: it is cut short", what));
    std::array<unsigned char, kSize> b{};
    std::memcpy(b.data(), mBytes.data() + mAt, kSize);
    mAt += kSize;
    return std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
  }
  double number(const char* what) {
    const auto value = std::bit_cast<float>(take(what));
    if (!std::isfinite(value)) failBehind(fmt::format("this number is not finite; {} is expected", what));
    return static_cast<double>(value);
  }
  // Not negative, and no more than fit into the rest of the file.
  std::uint64_t count(const char* what, std::size_t bytesEach) {
    const std::uint32_t value = take(what);
    if (value > remaining() / bytesEach)
      failBehind(fmt::format("{} is {}, but only {} bytes are left; the file is cut short or damaged", what,
                             static_cast<std::int32_t>(value), remaining()));
    return value;
  }

  Counts readCounts() {
    Counts counts{};
    counts.vertices = count("the number of vertices", kSize * vertexSize(mLayout, 4));
    counts.faces = count("the number of faces", 2 * kSize);
    take("the number of edges");
    return counts;
  }

  void readVertex() {
    mContext.poll();
    std::array<double, 4> position{};
    for (std::size_t i = 0; i < positionSize(mLayout); ++i) position[i] = number("a coordinate");
    require(mMesh.addVertex(position));
    if (mLayout.hasNormal)
      for (int i = 0; i < 3; ++i) number("a normal");
    if (mLayout.hasColor) require(mMesh.addVertexColor(color(4)));
    if (!mLayout.hasTexCoord) return;
    const double u = number("a texture coordinate");
    mMesh.addTexCoord(u, number("a texture coordinate"));
  }

  OffColor color(std::size_t size) {
    OffColor found;
    found.size = size;
    found.hasPoint = true;
    for (std::size_t i = 0; i < size; ++i) found.values[i] = number("a color");
    return found;
  }

  void readFace() {
    mContext.poll();
    const std::uint64_t corners = count("the number of corners", kSize);
    for (std::uint64_t i = 0; i < corners; ++i) require(mMesh.addCorner(take("a vertex")));
    const std::uint64_t size = count("the size of a color", kSize);
    if (size == 2 || size > 4) failBehind(fmt::format("a color of {} components; 0, 1, 3 or 4 are expected", size));
    if (size == 1) {
      take("the number of a color");
      require(mMesh.endFace({.size = 1}));
    } else {
      require(mMesh.endFace(color(size)));
    }
  }

  std::string_view mBytes;
  std::size_t mAt;
  const OffLayout mLayout;
  OffMesh mMesh;
  ReadContext& mContext;
};

// Takes what the header says before the counts, if there is a header. Real files have counts right behind it.
// @return whether bytes follow
bool readHeader(TextScanner& scan, OffLayout& layout) {
  if (scan.atEnd()) scan.failCutShort("a header with OFF");
  const std::string_view header = scan.peek();
  if (header.front() >= '0' && header.front() <= '9' && header.find("OFF") == std::string_view::npos) return false;
  bool hasDimension = false;
  std::string_view rest = header;
  const auto takes = [&rest](std::string_view prefix) {
    if (!rest.starts_with(prefix)) return false;
    rest.remove_prefix(prefix.size());
    return true;
  };
  while (!takes("OFF")) {
    bool& has = takes("ST")  ? layout.hasTexCoord
                : takes("C") ? layout.hasColor
                : takes("N") ? layout.hasNormal
                : takes("4") ? layout.hasWeight
                             : hasDimension;
    if (has || (&has == &hasDimension && !takes("n")))
      scan.fail(fmt::format("{} is no header; OFF is expected, with ST, C, N, 4 or n before it", quoted(header)));
    has = true;
  }
  scan.skip(header.size() - rest.size());
  if (scan.peek() == "BINARY") {
    if (hasDimension) scan.fail("OFF in bytes with a dimension is not read");
    scan.skip(std::string_view("BINARY").size());
    return true;
  }
  if (!hasDimension) return false;
  scan.atEnd();
  const std::uint64_t dimension = scan.count("the dimension");
  if (dimension != 3) scan.fail(fmt::format("vertices have {} dimensions; 3 are expected", dimension));
  return false;
}

}  // namespace

Model parseOff(std::string_view bytes, ReadContext& context) {
  TextScanner scan(bytes, context, '#');
  OffLayout layout;
  if (!readHeader(scan, layout)) return TextReader(scan, layout, bytes.size(), context).read();
  scan.endLine();
  return BinaryReader(bytes, bytes.size() - scan.remaining(), layout, context).read();
}

}  // namespace facetbox
