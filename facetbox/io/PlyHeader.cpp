#include <facetbox/io/PlyHeader.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <optional>

#include <fmt/format.h>

#include <facetbox/io/FileError.h>
#include <facetbox/io/TextScanner.h>

namespace facetbox {
namespace {

struct TypeName {
  std::string_view mName;
  PlyType mType;
};
constexpr std::array<TypeName, 16> kTypeNames = {{{"char", PlyType::kInt8},
                                                  {"int8", PlyType::kInt8},
                                                  {"uchar", PlyType::kUint8},
                                                  {"uint8", PlyType::kUint8},
                                                  {"short", PlyType::kInt16},
                                                  {"int16", PlyType::kInt16},
                                                  {"ushort", PlyType::kUint16},
                                                  {"uint16", PlyType::kUint16},
                                                  {"int", PlyType::kInt32},
                                                  {"int32", PlyType::kInt32},
                                                  {"uint", PlyType::kUint32},
                                                  {"uint32", PlyType::kUint32},
                                                  {"float", PlyType::kFloat32},
                                                  {"float32", PlyType::kFloat32},
                                                  {"double", PlyType::kFloat64},
                                                  {"float64", PlyType::kFloat64}}};

struct TexCoordNames {
  std::string_view mU, mV;
};
constexpr std::array<TexCoordNames, 4> kTexCoordNames = {
    {{"s", "t"}, {"u", "v"}, {"texture_u", "texture_v"}, {"texture_s", "texture_t"}}};

// Declared elements and properties take more memory than their lines. Real files have dozens.
constexpr std::size_t kMostDeclarations = 4096;

bool isInteger(PlyType type) { return type != PlyType::kFloat32 && type != PlyType::kFloat64; }

class HeaderParser {
 public:
  HeaderParser(std::string_view text, const std::string& name) : mText(text), mName(name) {}

  PlyHeader parse() {
    if (nextLine() != "ply" || !mLineIsWhole) fail("a PLY file starts with a line 'ply'; this one does not");
    std::optional<PlyEncoding> encoding;
    for (;;) {
      mRest = nextLine();
      if (!mLineIsWhole) fail("the file ends before a line 'end_header': it is cut short");
      const std::string_view keyword = word();
      if (keyword == "comment" && word() == "TextureFile") ++mHeader.mTextures;
      if (keyword == "comment" || keyword == "obj_info") continue;
      if (keyword == "end_header") break;
      if (keyword == "format" && !encoding)
        encoding = parseFormat();
      else if (keyword == "element")
        parseElement();
      else if (keyword == "property")
        parseProperty();
      else
        fail(fmt::format("{} is not expected in the header", quoted(keyword)));
      expectLineEnd();
    }
    expectLineEnd();
    if (!encoding) fail("the header has no line 'format'");
    mHeader.mEncoding = *encoding;
    mHeader.mBytes = mAt;
    mHeader.mLines = mLine;
    assignRoles();
    return std::move(mHeader);
  }

 private:
  [[noreturn]] void fail(const std::string& what) const { failAt(mLine, what); }
  [[noreturn]] void failAt(std::size_t line, const std::string& what) const {
    throw ReadError(fmt::format("{}:{}: {}", mName, line, what));
  }

  std::string_view nextLine() {
    const std::size_t end = mText.find('\n', mAt);
    mLineIsWhole = end != std::string_view::npos;
    std::string_view line = mText.substr(mAt, end - mAt);
    mAt = mLineIsWhole ? end + 1 : mText.size();
    ++mLine;
    if (line.ends_with('\r')) line.remove_suffix(1);
    return line;
  }

  // The next word of the line, empty at its end.
  std::string_view word() {
    constexpr std::string_view kBlanks = " \t";
    mRest.remove_prefix(std::min(mRest.find_first_not_of(kBlanks), mRest.size()));
    const std::string_view found = mRest.substr(0, mRest.find_first_of(kBlanks));
    mRest.remove_prefix(found.size());
    return found;
  }

  void expectLineEnd() {
    const std::string_view extra = word();
    if (!extra.empty()) fail(fmt::format("{} does not belong at the end of this line", quoted(extra)));
  }

  PlyEncoding parseFormat() {
    const std::string_view encoding = word();
    const std::string_view version = word();
    if (version != "1.0") fail(fmt::format("version {} of PLY is unknown; 1.0 is read", quoted(version)));
    if (encoding == "ascii") return PlyEncoding::kAscii;
    if (encoding == "binary_little_endian") return PlyEncoding::kLittleEndian;
    if (encoding == "binary_big_endian") return PlyEncoding::kBigEndian;
    fail(fmt::format("format {} is unknown; ascii, binary_little_endian and binary_big_endian are read",
                     quoted(encoding)));
  }

  void countDeclaration() {
    if (++mDeclarations > kMostDeclarations)
      fail(fmt::format("the header declares more than {} elements and properties", kMostDeclarations));
  }

  void parseElement() {
    countDeclaration();
    const std::string_view name = word();
    const std::string_view digits = word();
    std::uint64_t count = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), count);
    if (name.empty() || error != std::errc() || end != digits.data() + digits.size())
      fail(fmt::format("{} is not the count of an element; write 'element NAME COUNT'", quoted(digits)));
    const PlyKind kind = name == "vertex" ? PlyKind::kVertex : name == "face" ? PlyKind::kFace : PlyKind::kOther;
    if (kind != PlyKind::kOther && find(kind)) fail(fmt::format("element {} is declared twice", quoted(name)));
    mHeader.mElements.push_back({name, kind, count, mLine, {}});
  }

  PlyType parseType() {
    const std::string_view name = word();
    for (const TypeName& type : kTypeNames)
      if (type.mName == name) return type.mType;
    fail(fmt::format("{} is not a type of numbers; char, uchar, short, ushort, int, uint, float and double are",
                     quoted(name)));
  }

  void parseProperty() {
    countDeclaration();
    if (mHeader.mElements.empty()) fail("a property stands before the first element");
    PlyProperty property{};
    property.mRole = PlyRole::kIgnored;
    const std::string_view afterKeyword = mRest;
    property.mIsList = word() == "list";
    if (!property.mIsList) mRest = afterKeyword;
    if (property.mIsList) property.mCountType = parseType();
    if (!isInteger(property.mCountType)) fail("a list cannot be counted in float or double");
    property.mType = parseType();
    property.mName = word();
    if (property.mName.empty()) fail("a property has no name");
    mHeader.mElements.back().mProperties.push_back(property);
  }

  PlyElement* find(PlyKind kind) {
    const auto found =
        std::ranges::find_if(mHeader.mElements, [&](const PlyElement& element) { return element.mKind == kind; });
    return found == mHeader.mElements.end() ? nullptr : &*found;
  }

  // The property of that name gets the role. Whether there is one.
  bool assign(PlyElement& element, std::string_view name, bool isList, PlyRole role) {
    for (PlyProperty& property : element.mProperties) {
      if (property.mName != name) continue;
      if (element.has(role))
        failAt(element.mLine, fmt::format("element {} has two properties for the same: {} is the second",
                                          quoted(element.mName), quoted(name)));
      if (property.mIsList != isList)
        failAt(element.mLine, fmt::format("property {} of element {} must {}be a list", quoted(name),
                                          quoted(element.mName), isList ? "" : "not "));
      property.mRole = role;
    }
    return element.has(role);
  }

  void assignRoles() {
    for (const PlyElement& element : mHeader.mElements)
      if (element.mProperties.empty() && element.mCount > 0)
        failAt(element.mLine, fmt::format("element {} has no properties", quoted(element.mName)));
    PlyElement* const face = find(PlyKind::kFace);
    if (!face || face->mCount == 0)
      throw ReadError(fmt::format("{}: has no faces, so there is nothing to work on", mName));
    PlyElement* const vertex = find(PlyKind::kVertex);
    if (!vertex) fail("the header declares no element 'vertex'");
    const bool hasTexCoords = assignFace(*face);
    assignVertex(*vertex, !hasTexCoords);
    mHeader.mVertexCount = vertex->mCount;
  }

  bool assignFace(PlyElement& face) {
    assign(face, "vertex_indices", true, PlyRole::kIndices);
    if (!assign(face, "vertex_index", true, PlyRole::kIndices))
      failAt(face.mLine, "element 'face' has no list 'vertex_indices'");
    for (const PlyProperty& property : face.mProperties)
      if (property.mRole == PlyRole::kIndices && !isInteger(property.mType))
        failAt(face.mLine, "vertex indices cannot be float or double");
    return std::ranges::any_of(face.mProperties,
                               [](const PlyProperty& p) { return p.mIsList && p.mName == "texcoord"; }) &&
           assign(face, "texcoord", true, PlyRole::kTexCoords);
  }

  void assignVertex(PlyElement& vertex, bool withTexCoords) {
    constexpr std::array<std::string_view, 3> kAxes = {"x", "y", "z"};
    for (std::size_t axis = 0; axis < kAxes.size(); ++axis)
      if (!assign(vertex, kAxes[axis], false, static_cast<PlyRole>(axis)))
        failAt(vertex.mLine, fmt::format("element 'vertex' has no property '{}'", kAxes[axis]));
    if (vertex.mCount > static_cast<std::uint64_t>(std::numeric_limits<int>::max()) / kAxes.size())
      failAt(vertex.mLine, fmt::format("{} vertices are too many; split the model", vertex.mCount));
    const auto isNumber = [&](std::string_view name) {
      return std::ranges::any_of(vertex.mProperties,
                                 [&](const PlyProperty& p) { return !p.mIsList && p.mName == name; });
    };
    for (const TexCoordNames& names : kTexCoordNames) {
      if (!withTexCoords || !isNumber(names.mU) || !isNumber(names.mV)) continue;
      assign(vertex, names.mU, false, PlyRole::kU);
      assign(vertex, names.mV, false, PlyRole::kV);
      break;
    }
    assignColors(vertex);
  }

  // All of red, green and blue, or none.
  void assignColors(PlyElement& vertex) {
    constexpr std::array<std::string_view, 4> kColors = {"red", "green", "blue", "alpha"};
    const auto isColor = [&](std::string_view name) {
      return std::ranges::any_of(vertex.mProperties, [&](const PlyProperty& p) {
        return p.mName == name && !p.mIsList && fullColorOf(p.mType) > 0;
      });
    };
    if (!std::all_of(kColors.begin(), kColors.begin() + 3, isColor)) return;
    for (std::size_t i = 0; i < kColors.size(); ++i)
      if (isColor(kColors[i]))
        assign(vertex, kColors[i], false, static_cast<PlyRole>(static_cast<std::size_t>(PlyRole::kRed) + i));
  }

  const std::string_view mText;
  const std::string& mName;
  PlyHeader mHeader{};
  std::string_view mRest;  // of the current line
  std::size_t mAt = 0;
  std::size_t mLine = 0;
  bool mLineIsWhole = false;
  std::size_t mDeclarations = 0;
};

}  // namespace

std::size_t sizeOf(PlyType type) {
  constexpr std::array<std::size_t, 8> kSizes = {1, 1, 2, 2, 4, 4, 4, 8};
  return kSizes[static_cast<std::size_t>(type)];
}

double fullColorOf(PlyType type) {
  switch (type) {
    case PlyType::kUint8:
      return std::numeric_limits<std::uint8_t>::max();
    case PlyType::kUint16:
      return std::numeric_limits<std::uint16_t>::max();
    case PlyType::kFloat32:
    case PlyType::kFloat64:
      return 1;
    default:
      return 0;
  }
}

bool PlyElement::has(PlyRole role) const {
  return std::ranges::any_of(mProperties, [&](const PlyProperty& property) { return property.mRole == role; });
}

PlyHeader parsePlyHeader(std::string_view text, const std::string& name) { return HeaderParser(text, name).parse(); }

}  // namespace facetbox
