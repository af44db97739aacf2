#include <facetbox/io/GltfFile.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <limits>

#include <fmt/format.h>

#include <facetbox/io/Base64.h>
#include <facetbox/io/GltfNames.h>

namespace facetbox {
namespace {

constexpr const char* kOnlyGltf = " (only glTF files keep it)";
constexpr std::size_t kMostBytes = std::numeric_limits<std::uint32_t>::max();

std::uint32_t little32(std::string_view bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i)
    value |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << static_cast<unsigned>(8 * i);
  return value;
}

constexpr std::array<const char*, 10> kArrays = {"accessors", "bufferViews", "buffers",  "images", "materials",
                                                 "meshes",    "nodes",       "samplers", "scenes", "textures"};

// Memory that any file may use: models of machines show a screw a thousand times.
constexpr std::size_t kUsualMemory = std::size_t{256} << 20;
constexpr std::size_t kMemoryPerByte = 9;  // and the file itself
constexpr std::size_t kMemoryOfName = 128;

}  // namespace

GltfFile::GltfFile(std::string_view bytes, ReadContext& context)
    : mContext(context), mAllowed(kMemoryPerByte * bytes.size()) {
  const std::string_view json = bytes.starts_with("glTF") ? openGlb(bytes) : bytes;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const std::size_t mark = json.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  mTree = std::make_unique<JsonTree>(json.substr(mark), mJsonByte + mark, context);
  mTaken = mTree->memory();
  if (!root().isObject()) root().fail("expected an object");
  checkAsset();
  listArrays();
  checkExtensions();
}

std::string_view GltfFile::openGlb(std::string_view bytes) {
  constexpr std::size_t kHeader = 12, kChunkHeader = 8;
  constexpr std::uint32_t kJson = 0x4E4F534A, kBinary = 0x004E4942;
  if (bytes.size() < kHeader + kChunkHeader) mContext.failAtByte(bytes.size(), "the file ends in its header");
  if (const std::uint32_t version = little32(bytes, 4); version != 2)
    mContext.failAtByte(4, fmt::format("version {} of GLB; only 2 can be read", version));
  if (const std::uint32_t length = little32(bytes, 8); length != bytes.size())
    mContext.failAtByte(8, fmt::format("the file says it has {} bytes, but it has {}", length, bytes.size()));
  std::optional<std::string_view> json;
  for (std::size_t at = kHeader; at < bytes.size();) {
    if (bytes.size() - at < kChunkHeader) mContext.failAtByte(at, "the file ends in the header of a chunk");
    const std::size_t length = little32(bytes, at);
    const std::uint32_t kind = little32(bytes, at + 4);
    if (length > bytes.size() - at - kChunkHeader)
      mContext.failAtByte(at, fmt::format("a chunk of {} bytes, but {} bytes are left in the file", length,
                                          bytes.size() - at - kChunkHeader));
    const std::string_view chunk = bytes.substr(at + kChunkHeader, length);
    if ((kind == kJson && json) || (kind == kBinary && mBinary))
      mContext.failAtByte(at + 4, "a second chunk of its kind");
    if (kind != kJson && !json) mContext.failAtByte(at + 4, "the first chunk is not JSON");
    at += kChunkHeader;
    if (kind == kJson) {
      json = chunk;
      mJsonByte = at;
    } else if (kind == kBinary) {
      mBinary = GltfBytes{chunk, at};
    } else {
      mContext.notes().add("chunks of an unknown kind");
    }
    at += length;
  }
  return *json;
}

void GltfFile::checkAsset() const {
  const JsonValue asset = root().at("asset");
  const JsonValue version = asset.at("version");
  const std::string text = version.string();
  if (!text.starts_with("2.")) version.fail(fmt::format("glTF {}; only 2.0 can be read", gltfQuoted(text)));
  if (const auto least = asset.find("minVersion"); least && least->string() != "2.0")
    least->fail(fmt::format("asks for a reader of glTF {}; this one reads 2.0", gltfQuoted(least->string())));
}

void GltfFile::listArrays() {
  for (const char* name : kArrays) {
    const auto array = root().find(name);
    if (!array) continue;
    if (!array->isArray()) array->fail(fmt::format("'{}' is no array", name));
    std::vector<std::uint32_t>& places = mArrays[name];
    std::size_t size = 0;
    for (auto at = array->begin(); !at.atEnd(); at.next()) ++size;
    take(size * sizeof(std::uint32_t), *array);
    places.reserve(size);
    for (auto at = array->begin(); !at.atEnd(); at.next()) {
      if (!at.value().isObject()) at.value().fail("expected an object");
      places.push_back(at.value().place());
    }
  }
}

void GltfFile::checkExtensions() {
  if (const auto required = root().find("extensionsRequired"))
    for (auto at = required->begin(); !at.atEnd(); at.next())
      if (const std::string name = at.value().string(); !isUnderstoodExtension(name))
        at.value().fail(fmt::format("the file cannot be read without the extension {}", gltfQuoted(name)));
  const auto used = root().find("extensionsUsed");
  for (auto at = used ? std::optional(used->begin()) : std::nullopt; at && !at->atEnd(); at->next()) {
    const std::string name = at->value().string();
    take(kMemoryOfName + name.size(), at->value());
    if (!mNotedExtensions.insert(name).second || name == kQuantization) continue;
    note(fmt::format("extension {}{}", gltfQuoted(name), isMaterialExtension(name) ? kOnlyGltf : ""));
  }
}

std::size_t GltfFile::count(std::string_view array) const {
  const auto found = mArrays.find(array);
  return found == mArrays.end() ? 0 : found->second.size();
}

JsonValue GltfFile::element(std::string_view array, const JsonValue& index) const {
  const std::uint64_t i = index.integer(kMostBytes);
  if (i >= count(array))
    index.fail(fmt::format("names element {} of '{}', which has {} elements, counted from 0", i, array, count(array)));
  return element(array, static_cast<std::size_t>(i));
}

JsonValue GltfFile::element(std::string_view array, std::size_t index) const {
  return mTree->value(mArrays.find(array)->second[index]);
}

const GltfFile::Buffer& GltfFile::buffer(const JsonValue& index) {
  const JsonValue value = element("buffers", index);
  const auto i = static_cast<std::size_t>(index.integer(kMostBytes));
  const auto [known, isNew] = mBuffers.try_emplace(i);
  if (isNew) fill(known->second, value, i);
  return known->second;
}

void GltfFile::fill(Buffer& buffer, const JsonValue& value, std::size_t index) {
  const JsonValue length = value.at("byteLength");
  noteOthers(value, {"byteLength", "uri"}, "buffers");
  const auto uri = value.find("uri");
  const bool isChunk = !uri && index == 0 && mBinary;
  if (isChunk) {
    buffer.bytes = *mBinary;
  } else if (!uri) {
    value.fail(fmt::format("buffer {} names no file, and the file has no bytes for it", index));
  } else if (auto data = dataOf(*uri)) {
    buffer.own = std::move(*data);
    buffer.bytes = {buffer.own, GltfBytes::kOutside};
  } else {
    readBeside(buffer, *uri);
  }
  const std::uint64_t needed = length.integer(std::numeric_limits<std::uint64_t>::max());
  if (needed > buffer.bytes.bytes.size())
    length.fail(
        fmt::format("buffer {} says that it has {} bytes, but there are {}", index, needed, buffer.bytes.bytes.size()));
  constexpr std::uint64_t kMostPadding = 3;
  const std::uint64_t rest = buffer.bytes.bytes.size() - needed;
  if (isChunk && rest > kMostPadding)
    mContext.notes().add("bytes behind the end of the buffer", static_cast<std::size_t>(rest));
  buffer.bytes.bytes = buffer.bytes.bytes.substr(0, static_cast<std::size_t>(needed));
}

std::optional<std::string> GltfFile::dataOf(const JsonValue& uri) {
  const auto plain = uri.plainString();
  const std::string decoded = plain ? std::string() : uri.string();
  const std::string_view text = plain ? *plain : decoded;
  if (!text.starts_with("data:")) return std::nullopt;
  const std::size_t comma = text.find(',');
  constexpr std::string_view kEncoding = ";base64";
  if (comma == std::string_view::npos || !text.substr(0, comma).ends_with(kEncoding))
    uri.fail("data in a URI must be base64");
  take(text.size() / 4 * 3, uri);
  std::size_t problem = 0;
  auto data = fromBase64(text.substr(comma + 1), problem);
  if (!data) uri.fail(fmt::format("character {} of the data is no base64, or the data is cut short", problem));
  return data;
}

void GltfFile::readBeside(Buffer& buffer, const JsonValue& uri) {
  const std::string name = fromUri(uri.string());
  std::string reason;
  auto bytes = mContext.readBeside(name, reason);
  if (!bytes) uri.fail(fmt::format("the buffer {} cannot be read: {}", gltfQuoted(name), reason));
  if (mFilesBeside.insert(std::filesystem::path(name).lexically_normal().string()).second)
    mAllowed += kMemoryPerByte * bytes->size();
  else
    take(bytes->size(), uri);
  buffer.own = std::move(*bytes);
  buffer.bytes = {buffer.own, GltfBytes::kOutside};
}

const GltfView& GltfFile::bufferView(const JsonValue& index) {
  const JsonValue view = element("bufferViews", index);
  const auto i = static_cast<std::size_t>(index.integer(kMostBytes));
  const auto known = mViews.find(i);
  if (known != mViews.end()) return known->second;
  constexpr std::size_t kMemory = sizeof(GltfView) + 64;  // a node of the map
  take(kMemory, view);
  return mViews.emplace(i, openView(view)).first->second;
}

GltfView GltfFile::openView(const JsonValue& view) {
  noteOthers(view, {"buffer", "byteOffset", "byteLength", "byteStride", "target"}, "buffer views");
  const GltfBytes& whole = buffer(view.at("buffer")).bytes;
  const JsonValue length = view.at("byteLength");
  const auto offset = view.find("byteOffset");
  const std::uint64_t begin = offset ? offset->integer(whole.bytes.size()) : 0;
  const std::uint64_t size = length.integer(std::numeric_limits<std::uint64_t>::max());
  if (size == 0 || size > whole.bytes.size() - begin)
    length.fail(fmt::format("{} bytes from byte {} on are none of their buffer, which has {} bytes", size, begin,
                            whole.bytes.size()));
  const GltfBytes data = {
      whole.bytes.substr(static_cast<std::size_t>(begin), static_cast<std::size_t>(size)),
      whole.firstByte == GltfBytes::kOutside ? GltfBytes::kOutside : whole.firstByte + static_cast<std::size_t>(begin)};
  return {data, view.find("byteStride")};
}

void GltfFile::note(const std::string& what, std::size_t count) {
  constexpr std::size_t kMostNames = 200;
  if (mNotedNames.size() < kMostNames) mNotedNames.insert(what);
  mContext.notes().add(mNotedNames.contains(what) ? what : "further things with names of their own", count);
}

void GltfFile::noteOthers(const JsonValue& object, std::initializer_list<std::string_view> known, const char* what) {
  for (auto member = object.begin(); !member.atEnd(); member.next()) {
    mContext.poll();
    const std::string name = member.name().string();
    if (name == "name" || std::find(known.begin(), known.end(), name) != known.end()) continue;
    if (name != "extensions") {
      note(fmt::format("{} of {}", gltfQuoted(name), what));
      continue;
    }
    for (auto extension = member.value().begin(); !extension.atEnd(); extension.next()) {
      mContext.poll();
      const std::string key = extension.name().string();
      if (mNotedExtensions.contains(key)) continue;
      take(kMemoryOfName + key.size(), extension.name());
      mNotedExtensions.insert(key);
      note(fmt::format("extension {}", gltfQuoted(key)));
    }
  }
}

void GltfFile::take(std::size_t bytes, const JsonValue& where) {
  mTaken += bytes;
  if (mTaken > std::max(mAllowed, kUsualMemory))
    where.fail("what the file describes takes more than ten times the memory of its bytes, and more than 256 MB");
}

}  // namespace facetbox
