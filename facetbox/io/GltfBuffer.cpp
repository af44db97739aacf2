#include <facetbox/io/GltfBuffer.h>

#include <algorithm>

#include <fmt/format.h>

namespace facetbox {
namespace {

constexpr unsigned kVertices = 34962, kIndices = 34963;
constexpr std::array<const char*, 5> kTypes = {"", "SCALAR", "VEC2", "VEC3", "VEC4"};

std::size_t paddedSize(std::size_t size) { return (size + 3) / 4 * 4; }

template <typename T>
constexpr unsigned componentType() {
  return sizeof(T) == 2 ? 5123 : std::is_same_v<T, float> ? 5126 : 5125;
}

std::string boundsOf(const std::vector<float>& xyz) {
  std::array<float, 3> low = {xyz[0], xyz[1], xyz[2]}, high = low;
  for (std::size_t i = 0; i < xyz.size(); ++i) {
    low[i % 3] = std::min(low[i % 3], xyz[i]);
    high[i % 3] = std::max(high[i % 3], xyz[i]);
  }
  const auto text = [](const std::array<float, 3>& point) {
    return fmt::format("[{},{},{}]", static_cast<double>(point[0]), static_cast<double>(point[1]),
                       static_cast<double>(point[2]));
  };
  return fmt::format(R"(,"min":{},"max":{})", text(low), text(high));
}

}  // namespace

GltfBuffer::View& GltfBuffer::viewOf(Kind kind, unsigned stride, unsigned target) {
  if (mViewOfKind[kind] == 0) {
    mViews.push_back({"", stride, target});
    mViewOfKind[kind] = mViews.size();
  }
  return mViews[mViewOfKind[kind] - 1];
}

template <typename T>
std::size_t GltfBuffer::addAccessor(View& view, const T* numbers, std::size_t count, unsigned components,
                                    const std::string& bounds) {
  mAccessors.push_back(fmt::format(R"({{"bufferView":{},"byteOffset":{},"componentType":{},"count":{},"type":"{}"{}}})",
                                   &view - mViews.data(), view.bytes.size(), componentType<T>(), count / components,
                                   kTypes[components], bounds));
  view.bytes.append(reinterpret_cast<const char*>(numbers), count * sizeof(T));
  return mAccessors.size() - 1;
}

std::size_t GltfBuffer::addPositions(const std::vector<float>& xyz) {
  return addAccessor(viewOf(kPositions, 12, kVertices), xyz.data(), xyz.size(), 3, boundsOf(xyz));
}

std::size_t GltfBuffer::addTexCoords(const std::vector<float>& uv) {
  return addAccessor(viewOf(kTexCoords, 8, kVertices), uv.data(), uv.size(), 2, "");
}

std::size_t GltfBuffer::addColors(const std::vector<float>& rgba) {
  return addAccessor(viewOf(kColors, 16, kVertices), rgba.data(), rgba.size(), 4, "");
}

std::size_t GltfBuffer::addIndices(const std::vector<std::uint32_t>& indices, std::size_t vertices) {
  constexpr std::size_t kNoIndex = 0xFFFF;  // starts a new strip
  if (vertices > kNoIndex) return addAccessor(viewOf(kLongIndices, 0, kIndices), indices.data(), indices.size(), 1, "");
  const std::vector<std::uint16_t> halves(indices.begin(), indices.end());
  return addAccessor(viewOf(kShortIndices, 0, kIndices), halves.data(), halves.size(), 1, "");
}

std::size_t GltfBuffer::addBytes(std::string_view bytes) {
  mViews.push_back({std::string(bytes), 0, 0});
  return mViews.size() - 1;
}

std::vector<std::string> GltfBuffer::views() const {
  std::vector<std::string> texts;
  std::size_t begin = 0;
  for (const View& view : mViews) {
    texts.push_back(fmt::format(R"({{"buffer":0,"byteOffset":{},"byteLength":{}{}{}}})", begin, view.bytes.size(),
                                view.stride ? fmt::format(R"(,"byteStride":{})", view.stride) : "",
                                view.target ? fmt::format(R"(,"target":{})", view.target) : ""));
    begin += paddedSize(view.bytes.size());
  }
  return texts;
}

std::string GltfBuffer::take() {
  std::size_t size = 0;
  for (const View& view : mViews) size += paddedSize(view.bytes.size());
  std::string bytes;
  bytes.reserve(size);
  for (View& view : mViews) {
    bytes += view.bytes;
    bytes.resize(paddedSize(bytes.size()));
    view.bytes = {};
  }
  return bytes;
}

}  // namespace facetbox
