#include <facetbox/io/ObjReader.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <deque>
#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include <facetbox/base/Buffer.h>
#include <facetbox/io/Decimal.h>
#include <facetbox/io/LineNames.h>
#include <facetbox/io/MaterialLibrary.h>
#include <facetbox/io/Numbered.h>
#include <facetbox/io/NumberedNames.h>
#include <facetbox/io/ObjParts.h>

namespace facetbox {
namespace {

constexpr std::string_view kHolesTag = "facetbox:holes";

class Parser {
 public:
  Parser(std::string_view text, ReadContext& context)
      : mAt(text.data()), mEnd(text.data() + text.size()), mContext(context), mParts(1) {}

  Model parse() {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (std::string_view(mAt, remaining()).starts_with(kByteOrderMark)) mAt += kByteOrderMark.size();
    const char* const begin = mAt;
    constexpr std::size_t kSample = std::size_t{1} << 20;
    while (mAt < mEnd && static_cast<std::size_t>(mAt - begin) < kSample) parseLine();
    if (mAt < mEnd) reserveMore(static_cast<double>(mEnd - begin) / static_cast<double>(mAt - begin));
    while (mAt < mEnd) parseLine();
    checkIndices();
    resolveHoles();
    if (mFaceCount == 0) mContext.fail("has no faces, so there is nothing to work on");
    finishParts();
    noteDropped();
    finishColors();
    readLibraries();
    mContext.releaseBytes();
    std::size_t unusedTexCoords = 0;
    mModel.objects = separated(std::move(mParts), std::move(mPools), unusedTexCoords);
    mContext.notes().add("texture coordinates that no face uses", unusedTexCoords);
    return std::move(mModel);
  }

 private:
  // What corners refer to.
  enum Target { kVertex, kTexCoord, kNormal };
  static constexpr std::array<const char*, 3> kTargetNames = {"vertex", "texture coordinate", "normal"};
  struct HighestIndex {
    unsigned long long mIndex = 0;
    std::size_t mLine = 0;
  };
  // Without an end, lines of numbers may have lost digits.
  enum class Line : std::uint8_t { other, numbers, face };
  struct HoleLine {
    std::vector<std::uint32_t> mFaces;  // counted from 1, the outer face first
    std::size_t mLine;
  };

  [[noreturn]] void fail(const std::string& what) const { failAt(mLine, what); }
  [[noreturn]] void failAt(std::size_t line, const std::string& what) const { mContext.failAtLine(line, what); }

  std::size_t remaining() const { return static_cast<std::size_t>(mEnd - mAt); }

  // Length of a line continuation (a backslash before a line end) at p, else 0.
  std::size_t continuationAt(const char* p) const {
    if (p >= mEnd || *p != '\\') return 0;
    if (p + 1 < mEnd && p[1] == '\n') return 2;
    return p + 2 < mEnd && p[1] == '\r' && p[2] == '\n' ? 3 : 0;
  }

  static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
  bool isTokenEnd(const char* p) const { return p >= mEnd || isBlank(*p) || *p == '\n' || continuationAt(p) > 0; }

  void skipBlanks() {
    for (;;) {
      while (mAt < mEnd && isBlank(*mAt)) ++mAt;
      const std::size_t continuation = continuationAt(mAt);
      if (continuation == 0) return;
      mAt += continuation;
      ++mLine;
    }
  }

  // Whether the statement ends here; a comment ends it.
  bool atStatementEnd() {
    skipBlanks();
    return mAt >= mEnd || *mAt == '\n' || *mAt == '#';
  }

  std::string_view peekToken() const {
    const char* end = mAt;
    while (!isTokenEnd(end)) ++end;
    return {mAt, static_cast<std::size_t>(end - mAt)};
  }

  // The token in a form for messages: short and printable.
  std::string quotedToken() const {
    std::string text(peekToken().substr(0, 40));
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return fmt::format("'{}'", text);
  }

  // Backslashes at the end of comments are part of them, such as of the name of a folder.
  void skipLine() {
    while (mAt < mEnd && *mAt != '\n') {
      if (*mAt == '#') {
        mAt = std::find(mAt, mEnd, '\n');
        break;
      }
      const std::size_t continuation = continuationAt(mAt);
      if (continuation > 0) ++mLine;
      mAt += std::max<std::size_t>(continuation, 1);
    }
    if (mAt < mEnd) ++mAt;
    ++mLine;
  }

  // The rest of the line without surrounding blanks; a continuation reads as a blank.
  std::string restOfLine() {
    skipBlanks();
    std::string text;
    while (mAt < mEnd && *mAt != '\n') {
      const std::size_t continuation = continuationAt(mAt);
      if (continuation > 0) ++mLine;
      text.push_back(continuation > 0 ? ' ' : *mAt);
      mAt += std::max<std::size_t>(continuation, 1);
    }
    while (!text.empty() && isBlank(text.back())) text.pop_back();
    return text;
  }

  // What is likely to come if the file goes on as it began. Only addresses: what is not filled takes no memory.
  void reserveMore(double factor) {
    const auto reserve = [factor](auto& values) {
      const auto count = static_cast<std::size_t>(1.02 * factor * static_cast<double>(values.size()));
      if (count <= values.size()) return;
      values.reserve(count);
      util::adviseLargePages(values.data() + values.size(), (count - values.size()) * sizeof values[0]);
    };
    reserve(mPools.points);
    reserve(mPools.texCoords);
    reserve(mPools.colors);
    for (auto* const list : {&mPools.counts, &mPools.indices, &mPools.texIndices, &mPools.labels}) reserve(*list);
  }

  // What the rest of the line names, as it can be written again.
  std::string name() {
    std::string text = mLineNames.fitted(restOfLine());
    mContext.notes().add("names that were changed, to fit into a line",
                         mLineNames.changed() - std::exchange(mChangedNames, mLineNames.changed()));
    return text;
  }

  void parseLine() {
    mContext.poll();
    skipBlanks();
    if (mAt < mEnd && *mAt != '\n') {
      if (*mAt == '#')
        parseComment();
      else
        parseStatement();
    }
    if (mKind != Line::other && atStatementEnd() && mAt == mEnd) endWithinLine();
    mKind = Line::other;
    skipLine();
  }

  // Many files are written by hand without the last line end, so this is no error but where it shows: a face that is
  // shorter than every other.
  void endWithinLine() {
    const std::vector<std::uint32_t>& counts = mPools.counts;
    const auto isLonger = [&](std::uint32_t corners) { return corners > counts.back(); };
    if (mKind == Line::face && counts.size() > 1 && std::all_of(counts.begin(), counts.end() - 1, isLonger))
      fail(
          "the file ends within this face, which has fewer corners than all before: it is cut short; if it is whole, "
          "add a line end");
    mContext.noteMissingLineEnd();
  }

  void parseStatement() {
    const std::string_view keyword = peekToken();
    if (keyword == "v") {
      mKind = Line::numbers;
      mAt += 1;
      parseVertex();
    } else if (keyword == "f" || keyword == "fo") {  // "fo" is the old name of "f"
      mKind = Line::face;
      mAt += keyword.size();
      parseFace();
    } else if (keyword == "vt") {
      mKind = Line::numbers;
      mAt += 2;
      parseTexCoord();
    } else if (keyword == "vn") {
      // Dropped: the cleaned faces would not fit them.
      ++mNormals;
    } else if (keyword == "s") {
      ++mSmoothings;
    } else if (keyword == "usemtl") {
      mAt += keyword.size();
      const std::string material = name();
      mMark.material = material.empty() ? kNone : mMaterialNumbers(material);
      mMarkNumber = kNone;
    } else if (keyword == "g") {
      mAt += 1;
      const std::string group = name();
      mMark.group = group.empty() || group == "default" ? kNone : mGroupNumbers(group);
      mMarkNumber = kNone;
    } else if (keyword == "o") {
      mAt += 1;
      startPart();
    } else if (keyword == "mtllib") {
      mAt += keyword.size();
      const std::string library = restOfLine();
      if (!library.empty()) mLibraryNumbers(library);
    } else {
      mContext.notes().add(fmt::format("statement {}", quotedToken()));
    }
  }

  // Comments are free text, except those that start with our tag.
  void parseComment() {
    ++mAt;
    while (mAt < mEnd && isBlank(*mAt)) ++mAt;
    if (peekToken() != kHolesTag) {
      mAt = std::find(mAt, mEnd, '\n');
      return;
    }
    mKind = Line::numbers;
    mAt += kHolesTag.size();
    HoleLine line{{}, mLine};
    const char* const end = std::exchange(mEnd, std::find(mAt, mEnd, '\n'));  // without continuation
    while (!atStatementEnd()) {
      const long long face = parseInteger("face number");
      if (face < 1 || face >= kNone) fail(fmt::format("face number {} is not in the file; count from 1", face));
      line.mFaces.push_back(static_cast<std::uint32_t>(face));
    }
    if (line.mFaces.size() < 2)
      fail(fmt::format("a '{}' line needs an outer face and at least one hole face; add them or remove the line",
                       kHolesTag));
    mHoleLines.push_back(std::move(line));
    mEnd = end;
  }

  std::size_t vertexCount() const { return mPools.points.size() / 3; }

  // One without faces gives its place to the next; its vertices go to the object before.
  void startPart() {
    if (mPools.counts.size() > mParts.back().firstFace)
      mParts.emplace_back();
    else if (!mParts.back().name.empty())
      ++mEmptyParts;
    mParts.back() = {name(), mPools.counts.size(), mPools.indices.size(), vertexCount()};
    mPartIsMarked = false;
  }

  double parseNumber(const char* what) {
    if (atStatementEnd()) fail(fmt::format("{} has too few numbers; add the missing ones", what));
    const char* start = mAt;
    if (*start == '+' && start + 1 < mEnd && start[1] != '-') ++start;
    double value = 0;
    const auto [next, error] = parseDecimal(start, mEnd, value);
    if (error != std::errc() || !isTokenEnd(next)) fail(fmt::format("{} is not a number; correct it", quotedToken()));
    if (!std::isfinite(value))
      fail(
          fmt::format("{} in {} is not a finite number; correct it or remove what it belongs to", quotedToken(), what));
    mAt = next;
    return value;
  }

  long long parseInteger(const char* what) {
    const char* start = mAt;
    if (start + 1 < mEnd && *start == '+' && start[1] != '-') ++start;
    long long value = 0;
    const auto [next, error] = std::from_chars(start, mEnd, value);
    if (error == std::errc::result_out_of_range) fail(fmt::format("{} {} is out of range", what, quotedToken()));
    if (error != std::errc() || !(isTokenEnd(next) || *next == '/'))
      fail(fmt::format("{} is not a {}; correct it", quotedToken(), what));
    mAt = next;
    return value;
  }

  // Behind the coordinates may stand a weight, or a color.
  void parseVertex() {
    for (int axis = 0; axis < 3; ++axis) mPools.points.push_back(parseNumber("a vertex"));
    if (atStatementEnd()) return;
    std::array<double, 4> extra{};
    std::size_t count = 0;
    while (count < extra.size() && !atStatementEnd()) extra[count++] = parseNumber("a vertex");
    endStatement("a vertex");
    if (count < 3) {
      ++mWeights;
      return;
    }
    completeColors();
    for (std::size_t i = 0; i < count; ++i) {
      mPools.colors[mPools.colors.size() - 4 + i] = static_cast<float>(std::clamp(extra[i], -kMostColor, kMostColor));
      mColorsAreBytes = mColorsAreBytes && extra[i] >= 0 && extra[i] <= 255 && extra[i] == std::floor(extra[i]);
      mHighestColor = std::max(mHighestColor, extra[i]);
    }
    ++mColored;
  }

  void endStatement(const char* what) {
    if (!atStatementEnd()) fail(fmt::format("{} is more than {} has; remove it", quotedToken(), what));
  }

  // Vertices without a color among others are white; so is what a color does not say. What is no number stands for
  // that.
  void completeColors() { mPools.colors.resize(vertexCount() * 4, std::numeric_limits<float>::quiet_NaN()); }

  // Some programs write colors as bytes.
  void finishColors() {
    if (mColored == 0) return;
    completeColors();
    const bool areBytes = mColorsAreBytes && mHighestColor > 1;
    std::size_t beyond = 0;
    for (float& value : mPools.colors) {
      if (std::isnan(value)) {
        value = 1;
        continue;
      }
      if (areBytes) value /= 255;
      const float inside = std::clamp(value, 0.0F, 1.0F);
      if (inside != value) ++beyond;
      value = inside;
    }
    mContext.notes().add("colors of vertices from 0 to 255 (now from 0 to 1)", areBytes ? mColored : 0);
    mContext.notes().add("numbers in colors of vertices outside 0 to 1 (now 0 or 1)", beyond);
  }

  void parseTexCoord() {
    const double u = parseNumber("a texture coordinate");
    // One number is a coordinate along a line.
    const double v = atStatementEnd() ? 0.0 : parseNumber("a texture coordinate");
    mPools.texCoords.insert(mPools.texCoords.end(), {u, v});
    if (atStatementEnd()) return;
    if (parseNumber("a texture coordinate") != 0) ++mDepths;
    endStatement("a texture coordinate");
  }

  // The index, counted from 0. Positive ones may refer to later lines; they are checked when the whole file is read.
  std::uint32_t resolve(long long index, std::size_t count, Target target) {
    const char* what = kTargetNames[target];
    if (index == 0) fail(fmt::format("{} index 0 is not valid; indices count from 1", what));
    if (index < 0) {
      const auto back = static_cast<unsigned long long>(-(index + 1)) + 1;
      if (back > count)
        fail(fmt::format("{} index {} goes back beyond the first; there are {} up to this line", what, index, count));
      return static_cast<std::uint32_t>(count - back);
    }
    if (index >= kNone) fail(fmt::format("{} index {} is out of range", what, index));
    if (static_cast<std::size_t>(index) > count) {
      HighestIndex& highest = mHighest[target];
      if (static_cast<unsigned long long>(index) > highest.mIndex)
        highest = {static_cast<unsigned long long>(index), mLine};
    }
    return static_cast<std::uint32_t>(index - 1);
  }

  void parseFace() {
    std::vector<std::uint32_t>& indices = mPools.indices;
    const std::size_t firstCorner = indices.size();
    std::size_t texturedCorners = 0;
    while (!atStatementEnd()) {
      const std::uint32_t vertex = resolve(parseInteger("vertex index"), vertexCount(), kVertex);
      std::uint32_t texCoord = kNone;
      if (mAt < mEnd && *mAt == '/') {
        ++mAt;
        if (!isTokenEnd(mAt) && *mAt != '/') {
          texCoord = resolve(parseInteger("texture coordinate index"), mPools.texCoords.size() / 2, kTexCoord);
          ++texturedCorners;
        }
        if (mAt < mEnd && *mAt == '/') {
          ++mAt;
          if (!isTokenEnd(mAt)) resolve(parseInteger("normal index"), mNormals, kNormal);
        }
        if (!isTokenEnd(mAt)) fail(fmt::format("{} does not belong after a corner; remove it", quotedToken()));
      }
      indices.push_back(vertex);
      mTexIndices.push_back(texCoord);
    }
    const std::size_t corners = indices.size() - firstCorner;
    if (corners == 0) fail("a face has no vertices; add them or remove the line");
    closeFace(corners, texturedCorners);
  }

  void closeFace(std::size_t corners, std::size_t texturedCorners) {
    if (texturedCorners > 0 && texturedCorners < corners) {
      mContext.notes().add("texture coordinates of faces that have them on only some corners");
      std::fill(mTexIndices.begin(), mTexIndices.end(), kNone);
      texturedCorners = 0;
    }
    // Files without texture coordinates and marks do not pay for them.
    if (texturedCorners > 0) {
      mPools.texIndices.resize(mPools.indices.size() - corners, kNone);
      mPools.texIndices.insert(mPools.texIndices.end(), mTexIndices.begin(), mTexIndices.end());
    }
    mTexIndices.clear();
    if (mPartIsMarked || mMark != Mark{}) markFace();
    mPools.counts.push_back(static_cast<std::uint32_t>(corners));
    ++mFaceCount;
  }

  // Objects are marked on all of their faces or on none.
  void markFace() {
    if (mMarkNumber == kNone) mMarkNumber = mMarkNumbers(mMark);
    std::vector<std::uint32_t>& labels = mPools.labels;
    const std::size_t faces = mPools.counts.size();
    if (!mPartIsMarked) {
      const std::size_t first = mParts.back().firstFace;
      labels.resize(first, kNone);
      if (first < faces) labels.resize(faces, mMarkNumbers(Mark{}));
    }
    mPartIsMarked = true;
    labels.push_back(mMarkNumber);
  }

  // Those that refer to later lines; the highest tells for all.
  void checkIndices() const {
    const std::array<std::size_t, 3> counts = {vertexCount(), mPools.texCoords.size() / 2, mNormals};
    for (const Target target : {kVertex, kTexCoord, kNormal})
      if (mHighest[target].mIndex > counts[target])
        failAt(mHighest[target].mLine, fmt::format("{} index {} is out of range: the file has {}; correct the face",
                                                   kTargetNames[target], mHighest[target].mIndex, counts[target]));
  }

  std::size_t partOf(std::size_t face) const {
    const auto behind = std::upper_bound(mParts.begin(), mParts.end(), face,
                                         [](std::size_t f, const ObjPart& part) { return f < part.firstFace; });
    return static_cast<std::size_t>(behind - mParts.begin()) - 1;
  }

  // Several lines for one face become one group.
  void resolveHoles() {
    std::map<std::uint32_t, std::vector<std::uint32_t>> holesOf;
    std::map<std::uint32_t, std::uint32_t> outerOf;
    for (const HoleLine& line : mHoleLines) {
      const std::uint32_t outer = line.mFaces.front();
      checkFaces(line);
      for (std::size_t i = 1; i < line.mFaces.size(); ++i) {
        const auto [known, isNew] = outerOf.try_emplace(line.mFaces[i], outer);
        if (isNew)
          holesOf[outer].push_back(line.mFaces[i]);
        else if (known->second != outer)
          failAt(line.mLine, fmt::format("face {} is a hole of face {} and of face {}; correct the hole lines",
                                         line.mFaces[i], known->second, outer));
      }
    }
    for (const HoleLine& line : mHoleLines)
      if (const auto known = outerOf.find(line.mFaces.front()); known != outerOf.end())
        failAt(line.mLine, fmt::format("face {} is a hole of face {} and has holes itself; correct the hole lines",
                                       line.mFaces.front(), known->second));
    for (const auto& [outer, holes] : holesOf) {
      mPools.holes.push_back(outer - 1);
      for (const std::uint32_t hole : holes) mPools.holes.push_back(hole - 1);
      mPools.holes.push_back(kNone);
    }
  }

  void checkFaces(const HoleLine& line) const {
    const std::uint32_t outer = line.mFaces.front();
    for (std::size_t i = 0; i < line.mFaces.size(); ++i) {
      const std::uint32_t face = line.mFaces[i];
      if (face > mFaceCount)
        failAt(line.mLine, fmt::format("face number {} is out of range: the file has {} faces; correct the hole line",
                                       face, mFaceCount));
      if (i > 0 && face == outer)
        failAt(line.mLine, fmt::format("face {} cannot be a hole of itself; correct the hole line", face));
      if (partOf(face - 1) != partOf(outer - 1))
        failAt(line.mLine, fmt::format("faces {} and {} belong to different objects; a hole must be in the object of "
                                       "its outer face",
                                       outer, face));
    }
  }

  void finishParts() {
    if (mParts.back().firstFace == mFaceCount) {
      if (!mParts.back().name.empty()) ++mEmptyParts;
      mParts.pop_back();
    }
    mParts.front().firstVertex = 0;
    // Arrays that began late, or ended early.
    if (!mPools.texIndices.empty()) mPools.texIndices.resize(mPools.indices.size(), kNone);
    if (!mPools.labels.empty()) mPools.labels.resize(mFaceCount, kNone);
  }

  void noteDropped() {
    mContext.notes().add("objects without faces", mEmptyParts);
    mContext.notes().add("normals", mNormals);
    mContext.notes().add("smoothing groups", mSmoothings);
    mContext.notes().add("weights of vertices", mWeights);
    mContext.notes().add("third texture coordinates", mDepths);
    if (mColored > 0)
      mContext.notes().add("vertices without a color in a file with colors (now white)", vertexCount() - mColored);
  }

  // A line names one library, or several with blanks in between.
  void readLibraries() {
    mModel.materials.reserve(mMaterialNames.size());
    for (const std::string& name : mMaterialNames) mModel.materials.push_back({.name = name});
    for (const std::string& line : mLibraries) {
      if (readLibrary(line, line.find(' ') == std::string::npos)) continue;
      for (std::size_t begin = 0; begin < line.size();) {
        const std::size_t end = std::min(line.find(' ', begin), line.size());
        if (begin < end && end - begin < line.size()) readLibrary(line.substr(begin, end - begin), true);
        begin = end + 1;
      }
    }
  }

  // Whether there is such a file; each is read once.
  bool readLibrary(const std::string& name, bool isNoted) {
    mContext.pollNow();
    const auto [known, isNew] =
        mLibrariesRead.try_emplace(std::filesystem::path(name).lexically_normal().string(), false);
    if (!isNew) return known->second;
    std::string reason;
    if (const std::optional<std::string> text = mContext.readBeside(name, reason)) {
      known->second = true;
      addLibrary(*text, name);
    } else if (isNoted) {
      mContext.notes().add(fmt::format("material library '{}' ({})", name, reason));
    }
    return known->second;
  }

  void addLibrary(const std::string& text, const std::string& name) {
    std::size_t count = mModel.materials.size();
    for (std::size_t at = text.find("newmtl"); at != std::string::npos; at = text.find("newmtl", at + 1)) ++count;
    // Large libraries do not make the lists grow step by step, which would take twice the memory for a while.
    if (count > 2 * mModel.materials.size()) {
      mModel.materials.reserve(count);
      mMaterialNames.reserve(count);
    }
    try {
      parseMaterialLibrary(text, name, mContext, [this](Material&& material) { addMaterial(std::move(material)); });
    } catch (const ReadError& error) {
      mContext.notes().add(fmt::format("material library '{}' ({})", name, error.what()));
    }
  }

  void addMaterial(Material&& material) {
    material.name = mLineNames.fitted(material.name);
    const std::uint32_t number = mMaterialNumbers(material.name);
    if (number == mModel.materials.size()) mModel.materials.emplace_back();
    if (mIsDefined.size() <= number) mIsDefined.resize(std::size_t{number} + 1);
    // The first of equal names is meant.
    if (mIsDefined[number])
      mContext.notes().add(fmt::format("second definition of material '{}'", material.name));
    else
      mModel.materials[number] = std::move(material);
    mIsDefined[number] = true;
  }

  // Larger ones do not fit the pool.
  static constexpr double kMostColor = std::numeric_limits<float>::max();

  const char* mAt;
  const char* mEnd;
  ReadContext& mContext;
  std::size_t mLine = 1;
  Model mModel;
  std::deque<ObjPart> mParts;  // all but the last have faces
  ObjPools mPools;
  LineNames mLineNames{LineNames::Backslash::continues};
  std::size_t mChangedNames = 0;
  Line mKind = Line::other;  // of the line that is read
  std::size_t mFaceCount = 0, mNormals = 0, mSmoothings = 0, mColored = 0, mWeights = 0, mDepths = 0, mEmptyParts = 0;
  bool mColorsAreBytes = true;
  double mHighestColor = 0;
  bool mPartIsMarked = false;         // some face of the last part is
  Mark mMark;                         // of the faces that come next
  std::uint32_t mMarkNumber = kNone;  // its number, when it has one
  Numbered<Mark> mMarkNumbers{mModel.marks};
  NumberedNames mGroupNumbers{mModel.groups};
  std::vector<std::string> mMaterialNames;
  NumberedNames mMaterialNumbers{mMaterialNames};
  std::vector<std::string> mLibraries;  // lines that name them
  NumberedNames mLibraryNumbers{mLibraries};
  std::unordered_map<std::string, bool> mLibrariesRead;
  std::vector<bool> mIsDefined;            // by material
  std::vector<std::uint32_t> mTexIndices;  // of the current face
  std::array<HighestIndex, 3> mHighest;    // of those that refer to later lines, by target
  std::vector<HoleLine> mHoleLines;
};

}  // namespace

Model parseObj(std::string_view bytes, ReadContext& context) { return Parser(bytes, context).parse(); }

}  // namespace facetbox
