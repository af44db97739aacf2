#include <facetbox/io/StlReader.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <string>

#include <fmt/format.h>

#include <facetbox/io/JoinedPositions.h>
#include <facetbox/io/TextScanner.h>

namespace facetbox {
namespace {

using Triple = std::array<double, 3>;

constexpr std::size_t kHeaderSize = 80, kCountSize = 4, kFacetSize = 50;

// Whether a facet's normal says what its corners do not: another side, another direction. Normals of zeros say nothing.
bool saysMore(const Triple& normal, const std::array<Triple, 3>& corners) {
  Triple a{}, b{};
  for (std::size_t i = 0; i < 3; ++i) {
    a[i] = corners[1][i] - corners[0][i];
    b[i] = corners[2][i] - corners[0][i];
  }
  const Triple n = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
  const double along = n[0] * normal[0] + n[1] * normal[1] + n[2] * normal[2];
  const double lengths = std::hypot(n[0], n[1], n[2]) * std::hypot(normal[0], normal[1], normal[2]);
  constexpr double kCosine = 0.99;  // 8 degrees: normals are often rounded, or of a curved surface
  return along < kCosine * lengths;
}

// Collects the triangles of an object.
class Solid {
 public:
  explicit Solid(Object& object) : mMesh(object.mesh), mPositions(mMesh.points) {}

  void add(const std::array<Triple, 3>& corners) {
    for (const Triple& p : corners) mMesh.indices.push_back(mPositions(p[0], p[1], p[2]));
    mMesh.counts.push_back(3);
  }

 private:
  PolyMesh& mMesh;
  JoinedPositions mPositions;
};

class TextReader {
 public:
  TextReader(std::string_view text, ReadContext& context) : mScan(text, context), mContext(context) {}

  Model read() {
    while (!mScan.atEnd()) readSolid();
    mContext.notes().add("normals that do not fit the corners", mNormals);
    mContext.notes().add("solids without facets", mEmptySolids);
    return std::move(mModel);
  }

 private:
  void readSolid() {
    expect("solid");
    Object object;
    object.name = mScan.restOfLine();
    if (object.name.find('\0') != std::string::npos) mScan.fail("a byte of zero stands in the name; text has none");
    const std::string name = object.name;
    Solid solid(object);
    while (startsFacet()) readFacet(solid);
    if (object.mesh.counts.empty())
      ++mEmptySolids;
    else
      mModel.objects.push_back(std::move(object));
    skipName(name);
  }

  // The name once more, or another one. A line that goes on with facets instead would lose them.
  void skipName(const std::string& name) {
    if (TextScanner(mScan).restOfLine() == name) return mScan.nextLine();
    for (std::string_view before, word = mScan.token(); !word.empty(); word = mScan.token()) {
      if (isWord(before, "facet") && isWord(word, "normal")) mScan.fail("a facet stands on the line of 'endsolid'");
      before = word;
    }
    mScan.nextLine();
  }

  bool startsFacet() {
    if (mScan.atEnd()) mScan.failCutShort("'facet' or 'endsolid'");
    const bool isEnd = isWord(mScan.peek(), "endsolid");
    expect(isEnd ? "endsolid" : "facet");
    return !isEnd;
  }

  void readFacet(Solid& solid) {
    mContext.poll();
    expect("normal");
    Triple normal{};
    for (double& value : normal) value = normalComponent();
    expect("outer");
    expect("loop");
    std::array<Triple, 3> corners{};
    for (Triple& corner : corners) {
      expect("vertex");
      for (double& value : corner) {
        mScan.atEnd();
        value = mScan.number("a coordinate");
      }
    }
    expect("endloop");
    expect("endfacet");
    if (saysMore(normal, corners)) ++mNormals;
    solid.add(corners);
  }

  // Some programs write what is no number for triangles without area. Such a normal says nothing.
  double normalComponent() {
    if (mScan.atEnd()) mScan.failCutShort("a normal");
    std::string_view word = mScan.peek();
    if (word.starts_with('-') || word.starts_with('+')) word.remove_prefix(1);
    if (!word.empty() && (isWord(word.substr(0, 3), "nan") || isWord(word.substr(0, 3), "inf"))) {
      mScan.token();
      return 0;
    }
    return mScan.number("a normal");
  }

  // Keywords are found in capitals, too.
  static bool isWord(std::string_view token, std::string_view word) {
    return std::ranges::equal(token, word,
                              [](char a, char b) { return a == b || (a >= 'A' && a <= 'Z' && a + ('a' - 'A') == b); });
  }
  void expect(std::string_view word) {
    if (mScan.atEnd()) mScan.failCutShort(fmt::format("'{}'", word));
    const std::string_view token = mScan.peek();
    if (!isWord(token, word)) mScan.fail(fmt::format("{} stands where '{}' is expected", quoted(token), word));
    mScan.skip(token.size());
  }

  TextScanner mScan;
  ReadContext& mContext;
  Model mModel;
  std::size_t mNormals = 0, mEmptySolids = 0;
};

template <typename T>
T load(const char* from) {
  std::array<char, sizeof(T)> bytes;
  std::memcpy(bytes.data(), from, sizeof(T));
  if constexpr (std::endian::native == std::endian::big) std::ranges::reverse(bytes);
  return std::bit_cast<T>(bytes);
}

std::size_t declaredSize(std::string_view bytes) {
  return kHeaderSize + kCountSize + kFacetSize * std::size_t{load<std::uint32_t>(bytes.data() + kHeaderSize)};
}

// A normal, three corners, an attribute of two bytes.
class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, ReadContext& context) : mBytes(bytes), mContext(context) {}

  Model read() {
    Model model;
    Solid solid(model.objects.emplace_back());
    PolyMesh& mesh = model.objects.front().mesh;
    const std::size_t count = load<std::uint32_t>(mBytes.data() + kHeaderSize);
    mesh.counts.reserve(count);
    mesh.indices.reserve(3 * count);
    for (std::size_t at = kHeaderSize + kCountSize; at < mBytes.size(); at += kFacetSize) {
      mContext.poll();
      readFacet(at, solid);
    }
    mContext.notes().add("normals that do not fit the corners", mNormals);
    mContext.notes().add("attributes of facets", mAttributes);
    const std::string_view header = mBytes.substr(0, kHeaderSize);
    mContext.notes().add("colors in the header", header.find("COLOR=") != std::string_view::npos ? 1 : 0);
    return model;
  }

 private:
  void readFacet(std::size_t at, Solid& solid) {
    Triple normal{};
    for (double& value : normal) value = take(at);
    // What is no number says nothing.
    if (!std::isfinite(normal[0] + normal[1] + normal[2])) normal = {};
    std::array<Triple, 3> corners{};
    for (Triple& corner : corners)
      for (double& value : corner) {
        value = take(at);
        if (!std::isfinite(value)) mContext.failAtByte(at - sizeof(float), "this coordinate is not a finite number");
      }
    if (saysMore(normal, corners)) ++mNormals;
    if (load<std::uint16_t>(mBytes.data() + at) != 0) ++mAttributes;
    solid.add(corners);
  }

  double take(std::size_t& at) const {
    const auto value = static_cast<double>(load<float>(mBytes.data() + at));
    at += sizeof(float);
    return value;
  }

  std::string_view mBytes;
  ReadContext& mContext;
  std::size_t mNormals = 0, mAttributes = 0;
};

}  // namespace

Model parseStl(std::string_view bytes, ReadContext& context) {
  constexpr std::size_t kLeast = kHeaderSize + kCountSize;
  if (bytes.size() >= kLeast && declaredSize(bytes) == bytes.size()) return BinaryReader(bytes, context).read();
  // Text has no zeros; the header of bytes nearly always has.
  if (bytes.substr(0, kLeast).find('\0') == std::string_view::npos) return TextReader(bytes, context).read();
  if (bytes.size() < kLeast)
    context.failAtByte(bytes.size(), fmt::format("the file ends within the first {} bytes: it is cut short", kLeast));
  context.failAtByte(kHeaderSize,
                     fmt::format("{} facets are declared, which would make {} bytes, but the file has {}",
                                 load<std::uint32_t>(bytes.data() + kHeaderSize), declaredSize(bytes), bytes.size()));
}

}  // namespace facetbox
