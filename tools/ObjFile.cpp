#include <tools/ObjFile.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <unordered_map>

#include <fmt/format.h>

#include <tools/Errors.h>

namespace tool {
namespace {

constexpr std::string_view kHolesTag = "facetbox:holes";

class Parser {
 public:
  Parser(std::string_view text, const std::string& name)
      : mAt(text.data()), mEnd(text.data() + text.size()), mName(name) {}

  Model parse() {
    mModel.mObjects.push_back({});
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (std::string_view(mAt, remaining()).starts_with(kByteOrderMark)) mAt += kByteOrderMark.size();
    while (mAt < mEnd) parseLine();
    resolveForwardReferences();
    resolveHoles();
    if (mModel.faceCount() == 0)
      throw InputError(fmt::format("{}: has no faces, so there is nothing to work on", mName));
    dropObjectsWithoutFaces();
    return std::move(mModel);
  }

 private:
  struct ForwardReference {
    std::size_t mCorner;
    std::size_t mLine;
    bool mIsTexture;
  };
  struct HoleLine {
    std::vector<std::uint32_t> mFaces;  // counted from 1, the outer face first
    std::size_t mLine;
  };

  [[noreturn]] void fail(const std::string& what) const { failAt(mLine, what); }
  [[noreturn]] void failAt(std::size_t line, const std::string& what) const {
    throw InputError(fmt::format("{}:{}: {}", mName, line, what));
  }

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

  void skipLine() {
    while (mAt < mEnd && *mAt != '\n') {
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

  void parseLine() {
    skipBlanks();
    if (mAt < mEnd && *mAt != '\n') {
      if (*mAt == '#')
        parseComment();
      else
        parseStatement();
    }
    skipLine();
  }

  void parseStatement() {
    const std::string_view keyword = peekToken();
    if (keyword == "v") {
      mAt += 1;
      parseVertex();
    } else if (keyword == "f" || keyword == "fo") {  // "fo" is the old name of "f"
      mAt += keyword.size();
      parseFace();
    } else if (keyword == "vt") {
      mAt += 2;
      parseTexCoord();
    } else if (keyword == "vn" || keyword == "s") {
      // Normals and smoothing are dropped: the cleaned faces would not fit them.
    } else if (keyword == "usemtl") {
      mAt += keyword.size();
      mLabel.mMaterial = intern(restOfLine(), mModel.mMaterials, mMaterialIds);
    } else if (keyword == "g") {
      mAt += 1;
      const std::string group = restOfLine();
      mLabel.mGroup = group == "default" ? -1 : intern(group, mModel.mGroups, mGroupIds);
    } else if (keyword == "o") {
      mAt += 1;
      startObject(restOfLine());
    } else if (keyword == "mtllib") {
      mAt += keyword.size();
      std::string library = restOfLine();
      auto& libraries = mModel.mLibraries;
      if (!library.empty() && std::find(libraries.begin(), libraries.end(), library) == libraries.end())
        libraries.push_back(std::move(library));
    } else {
      ++mModel.mIgnored[fmt::format("statement {}", quotedToken())];
    }
  }

  // Comments are free text, except those that start with our tag.
  void parseComment() {
    ++mAt;
    while (mAt < mEnd && isBlank(*mAt)) ++mAt;
    if (peekToken() != kHolesTag) return;
    mAt += kHolesTag.size();
    HoleLine line{{}, mLine};
    while (!atStatementEnd()) {
      const long long face = parseInteger("face number");
      if (face < 1 || face >= kEndOfGroup) fail(fmt::format("face number {} is not in the file; count from 1", face));
      line.mFaces.push_back(static_cast<std::uint32_t>(face));
    }
    if (line.mFaces.size() < 2)
      fail(fmt::format("a '{}' line needs an outer face and at least one hole face; add them or remove the line",
                       kHolesTag));
    mHoleLines.push_back(std::move(line));
  }

  void startObject(std::string name) {
    mModel.mObjects.push_back({std::move(name), static_cast<std::uint32_t>(mModel.faceCount()),
                               static_cast<std::uint32_t>(mModel.vertexCount()),
                               static_cast<std::uint32_t>(mModel.mTexCoords.size() / 2)});
  }

  static int intern(const std::string& name, std::vector<std::string>& names,
                    std::unordered_map<std::string, int>& ids) {
    if (name.empty()) return -1;
    const auto [found, isNew] = ids.try_emplace(name, static_cast<int>(names.size()));
    if (isNew) names.push_back(name);
    return found->second;
  }

  // Beyond the range of double: too small becomes zero, too large is an error of the caller.
  double outOfRangeNumber() const {
    const std::string text(peekToken());
    return std::strtod(text.c_str(), nullptr);
  }

  double parseNumber(const char* what) {
    if (atStatementEnd()) fail(fmt::format("{} has too few numbers; add the missing ones", what));
    const char* start = mAt;
    if (*start == '+' && start + 1 < mEnd && start[1] != '-') ++start;
    double value = 0;
    const auto [next, error] = std::from_chars(start, mEnd, value);
    if (error == std::errc::invalid_argument || !isTokenEnd(next))
      fail(fmt::format("{} is not a number; correct it", quotedToken()));
    if (error == std::errc::result_out_of_range) value = outOfRangeNumber();
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

  void parseVertex() {
    for (int axis = 0; axis < 3; ++axis) mModel.mVertices.push_back(parseNumber("a vertex"));
  }

  void parseTexCoord() {
    const double u = parseNumber("a texture coordinate");
    // One number is a coordinate along a line.
    const double v = atStatementEnd() ? 0.0 : parseNumber("a texture coordinate");
    mModel.mTexCoords.insert(mModel.mTexCoords.end(), {u, v});
  }

  // The index, counted from 0. Positive ones may refer to later lines; they are checked when the whole file is read.
  std::uint32_t resolve(long long index, std::size_t count, bool isTexture) {
    const char* what = isTexture ? "texture coordinate" : "vertex";
    if (index == 0) fail(fmt::format("{} index 0 is not valid; indices count from 1", what));
    if (index < 0) {
      const auto back = static_cast<unsigned long long>(-(index + 1)) + 1;
      if (back > count)
        fail(fmt::format("{} index {} goes back beyond the first; there are {} up to this line", what, index, count));
      return static_cast<std::uint32_t>(count - back);
    }
    if (index >= kNoTexCoord) fail(fmt::format("{} index {} is out of range", what, index));
    if (static_cast<std::size_t>(index) > count)
      mForwardReferences.push_back({mModel.mIndices.size(), mLine, isTexture});
    return static_cast<std::uint32_t>(index - 1);
  }

  void parseFace() {
    const std::size_t firstCorner = mModel.mIndices.size();
    std::size_t texturedCorners = 0;
    while (!atStatementEnd()) {
      const std::uint32_t vertex = resolve(parseInteger("vertex index"), mModel.vertexCount(), false);
      std::uint32_t texCoord = kNoTexCoord;
      if (mAt < mEnd && *mAt == '/') {
        ++mAt;
        if (!isTokenEnd(mAt) && *mAt != '/') {
          texCoord = resolve(parseInteger("texture coordinate index"), mModel.mTexCoords.size() / 2, true);
          ++texturedCorners;
        }
        if (mAt < mEnd && *mAt == '/') {
          ++mAt;
          if (!isTokenEnd(mAt)) parseInteger("normal index");
        }
        if (!isTokenEnd(mAt)) fail(fmt::format("{} does not belong after a corner; remove it", quotedToken()));
      }
      mModel.mIndices.push_back(vertex);
      mTexIndices.push_back(texCoord);
    }
    const std::size_t corners = mModel.mIndices.size() - firstCorner;
    if (corners == 0) fail("a face has no vertices; add them or remove the line");
    closeFace(corners, texturedCorners);
  }

  void closeFace(std::size_t corners, std::size_t texturedCorners) {
    if (texturedCorners > 0 && texturedCorners < corners) {
      ++mModel.mIgnored["texture coordinates of faces that have them on only some corners"];
      std::fill(mTexIndices.begin(), mTexIndices.end(), kNoTexCoord);
      texturedCorners = 0;
    }
    // Files without texture coordinates do not pay for them.
    if (texturedCorners > 0) mModel.mTexIndices.resize(mModel.mIndices.size() - corners, kNoTexCoord);
    if (texturedCorners > 0 || !mModel.mTexIndices.empty())
      mModel.mTexIndices.insert(mModel.mTexIndices.end(), mTexIndices.begin(), mTexIndices.end());
    mTexIndices.clear();
    mModel.startRun(mLabel);
    mModel.mCounts.push_back(static_cast<std::uint32_t>(corners));
  }

  void resolveForwardReferences() const {
    for (const ForwardReference& reference : mForwardReferences) {
      const auto& indices = reference.mIsTexture ? mModel.mTexIndices : mModel.mIndices;
      // The texture coordinates of this face were dropped: nothing to check.
      if (reference.mCorner >= indices.size() || (reference.mIsTexture && indices[reference.mCorner] == kNoTexCoord))
        continue;
      const std::size_t count = reference.mIsTexture ? mModel.mTexCoords.size() / 2 : mModel.vertexCount();
      if (indices[reference.mCorner] >= count)
        failAt(reference.mLine, fmt::format("{} index {} is out of range: the file has {}; correct the face",
                                            reference.mIsTexture ? "texture coordinate" : "vertex",
                                            std::size_t{indices[reference.mCorner]} + 1, count));
    }
  }

  std::size_t objectOf(std::uint32_t face) const {
    const auto behind =
        std::upper_bound(mModel.mObjects.begin(), mModel.mObjects.end(), face,
                         [](std::uint32_t f, const ObjectStart& object) { return f < object.mFirstFace; });
    return static_cast<std::size_t>(behind - mModel.mObjects.begin()) - 1;
  }

  void resolveHoles() {
    for (const HoleLine& line : mHoleLines) {
      const std::uint32_t outer = line.mFaces.front();
      for (std::size_t i = 0; i < line.mFaces.size(); ++i) {
        const std::uint32_t face = line.mFaces[i];
        if (face > mModel.faceCount())
          failAt(line.mLine, fmt::format("face number {} is out of range: the file has {} faces; correct the hole line",
                                         face, mModel.faceCount()));
        if (i > 0 && face == outer)
          failAt(line.mLine, fmt::format("face {} cannot be a hole of itself; correct the hole line", face));
        if (objectOf(face - 1) != objectOf(outer - 1))
          failAt(line.mLine, fmt::format("faces {} and {} belong to different objects; a hole must be in the object of "
                                         "its outer face",
                                         outer, face));
        mModel.mHoles.push_back(face - 1);
      }
      mModel.mHoles.push_back(kEndOfGroup);
    }
  }

  // Their vertices go to the previous object, or to the first.
  void dropObjectsWithoutFaces() {
    std::vector<ObjectStart> kept;
    for (std::size_t i = 0; i < mModel.mObjects.size(); ++i) {
      if (mModel.mObjects[i].mFirstFace < mModel.endFace(i)) kept.push_back(std::move(mModel.mObjects[i]));
    }
    kept.front().mFirstVertex = kept.front().mFirstTexCoord = 0;
    mModel.mObjects = std::move(kept);
  }

  const char* mAt;
  const char* mEnd;
  const std::string& mName;
  std::size_t mLine = 1;
  Model mModel;
  Label mLabel;
  std::unordered_map<std::string, int> mMaterialIds, mGroupIds;
  std::vector<std::uint32_t> mTexIndices;  // of the current face
  std::vector<ForwardReference> mForwardReferences;
  std::vector<HoleLine> mHoleLines;
};

class Writer {
 public:
  explicit Writer(const Model& model) : mModel(model) {}

  std::string write() {
    for (const std::string& library : mModel.mLibraries) line("mtllib ", library);
    for (std::size_t i = 0; i < mModel.mObjects.size(); ++i) writeObject(i);
    writeHoles();
    return std::move(mText);
  }

 private:
  template <typename T>
  void number(T value) {
    char digits[48];
    const auto [end, error] = std::to_chars(digits, digits + sizeof digits, value);
    mText.append(digits, end);
  }

  void line(std::string_view keyword, std::string_view name) {
    mText.append(keyword).append(name);
    while (!mText.empty() && mText.back() == ' ') mText.pop_back();
    mText.push_back('\n');
  }

  void rows(std::string_view keyword, const std::vector<double>& values, std::size_t width, std::size_t begin,
            std::size_t end) {
    for (std::size_t row = begin; row < end; ++row) {
      mText.append(keyword);
      for (std::size_t i = 0; i < width; ++i) {
        mText.push_back(' ');
        number(values[row * width + i]);
      }
      mText.push_back('\n');
    }
  }

  void writeObject(std::size_t index) {
    const ObjectStart& object = mModel.mObjects[index];
    const bool isLast = index + 1 == mModel.mObjects.size();
    if (mModel.mObjects.size() > 1 || !object.mName.empty()) line("o ", object.mName);
    rows("v", mModel.mVertices, 3, object.mFirstVertex,
         isLast ? mModel.vertexCount() : mModel.mObjects[index + 1].mFirstVertex);
    rows("vt", mModel.mTexCoords, 2, object.mFirstTexCoord,
         isLast ? mModel.mTexCoords.size() / 2 : mModel.mObjects[index + 1].mFirstTexCoord);
    for (std::uint32_t face = object.mFirstFace; face < mModel.endFace(index); ++face) writeFace(face);
  }

  void writeLabel(const Label& label) {
    if (label.mGroup != mLabel.mGroup)
      line("g ", label.mGroup < 0 ? "default" : mModel.mGroups[static_cast<std::size_t>(label.mGroup)]);
    if (label.mMaterial != mLabel.mMaterial)
      line("usemtl ", label.mMaterial < 0 ? "" : mModel.mMaterials[static_cast<std::size_t>(label.mMaterial)]);
    mLabel = label;
  }

  void writeFace(std::uint32_t face) {
    while (mRun < mModel.mRuns.size() && mModel.mRuns[mRun].mFirstFace <= face) writeLabel(mModel.mRuns[mRun++].mLabel);
    mText.push_back('f');
    for (const std::size_t end = mCorner + mModel.mCounts[face]; mCorner < end; ++mCorner) {
      mText.push_back(' ');
      number(std::size_t{mModel.mIndices[mCorner]} + 1);
      if (mModel.mTexIndices.empty() || mModel.mTexIndices[mCorner] == kNoTexCoord) continue;
      mText.push_back('/');
      number(std::size_t{mModel.mTexIndices[mCorner]} + 1);
    }
    mText.push_back('\n');
  }

  void writeHoles() {
    bool atGroupStart = true;
    for (const std::uint32_t entry : mModel.mHoles) {
      if (atGroupStart) mText.append("# ").append(kHolesTag);
      atGroupStart = entry == kEndOfGroup;
      mText.push_back(atGroupStart ? '\n' : ' ');
      if (!atGroupStart) number(std::size_t{entry} + 1);
    }
  }

  const Model& mModel;
  std::string mText;
  std::size_t mCorner = 0;
  std::size_t mRun = 0;
  Label mLabel;
};

}  // namespace

Model parseObj(std::string_view text, const std::string& name) { return Parser(text, name).parse(); }

std::string formatObj(const Model& model) { return Writer(model).write(); }

}  // namespace tool
