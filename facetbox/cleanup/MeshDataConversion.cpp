#include <facetbox/cleanup/MeshDataConversion.h>

#include <algorithm>
#include <limits>
#include <span>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/base/LeakMarks.h>
#include <facetbox/materials/Shader.h>
#include <facetbox/materials/TextEncoding.h>
#include <facetbox/materials/Texture.h>
#include <facetbox/mesh/HoleAssignment.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {
namespace {

constexpr const char* kTextureKey = "texture";

/// Releases an unfinished record when something throws.
struct RecordDeleter {
  void operator()(Cleanup::MeshData* data) const { Cleanup::freeMeshDataAndHoles(data); }
};
using RecordPtr = std::unique_ptr<Cleanup::MeshData, RecordDeleter>;

/// One material per distinct name: every run of a name shares it.
std::vector<MaterialPair> makeRunMaterials(const Cleanup::MeshData& data) {
  if (!data.mTextures) throw std::invalid_argument("mesh has texture runs, but no texture names");
  const Shader blank = Shader("cleanupShader").declare(kTextureKey, ShaderType::texture);
  std::unordered_map<std::string_view, MaterialPair> known;
  std::vector<MaterialPair> materials;
  materials.reserve(static_cast<std::size_t>(data.mTexturesCount));
  for (int run = 0; run < data.mTexturesCount; ++run) {
    const char* name = data.mTextures[run];
    if (!name) {
      materials.emplace_back();
      continue;
    }
    const auto [entry, isNew] = known.try_emplace(name);
    if (isNew) {
      const auto texture = std::make_shared<const SimpleTexture>(widenLatin1(name));
      entry->second.first = intern(blank.set(kTextureKey, texture));
    }
    materials.push_back(entry->second);
  }
  return materials;
}

/// Length of an array as the record's signed count.
int checkedCount(std::size_t length) {
  if (length > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    throw std::length_error("result has more than 2^31 - 1 entries in an array");
  return static_cast<int>(length);
}

template <class T>
T* newArray(std::size_t length) {
  T* array = new T[length];
  adviseLargePages(array, length * sizeof(T));
  return array;
}

char* newText(std::string_view text) {
  char* copy = new char[text.size() + 1];
  *std::ranges::copy(text, copy).out = '\0';
  return copy;
}

/// A material's texture name as UTF-8; null when it has none.
char* newTextureName(const MaterialPair& material) {
  const auto texture = findTexture(material, kTextureKey);
  if (!texture || texture->uri().empty()) return nullptr;
  return newText(toUtf8(texture->uri()));
}

void writeFaces(const PrimitiveList& faces, bool withTexCoords, Cleanup::MeshData& data) {
  const std::size_t faceCount = faces.size();
  data.mCountCount = checkedCount(faceCount);
  std::size_t cornerCount = 0;
  data.mCounts = newArray<std::uint32_t>(faceCount);
  for (std::size_t face = 0; face < faceCount; ++face) {
    data.mCounts[face] = faces.cornerCount(face);
    cornerCount += faces.cornerCount(face);
  }
  data.mIndexCount = checkedCount(cornerCount);
  data.mIndices = newArray<std::uint32_t>(cornerCount);
  faces.copyCorners(data.mIndices);
  if (!withTexCoords) return;
  data.mTCIndexCount = data.mIndexCount;
  data.mTCIndices = newArray<std::uint32_t>(cornerCount);
  faces.copyCornerSet(0, data.mTCIndices);
}

void writeVertices(const MeshStorage& m, Cleanup::MeshData& data) {
  data.mVCCount = checkedCount(3 * m.mVertices.size());
  float* out = data.mVertexCoords = newArray<float>(3 * m.mVertices.size());
  for (const Vec3& vertex : m.mVertices) {
    *out++ = static_cast<float>(vertex.x);
    *out++ = static_cast<float>(vertex.y);
    *out++ = static_cast<float>(vertex.z);
  }
}

void writeTexCoords(const MeshStorage& m, Cleanup::MeshData& data) {
  const auto& texCoords = m.mTexCoords[0];
  data.mTCCount = checkedCount(2 * texCoords.size());
  float* out = data.mTexCoords = newArray<float>(2 * texCoords.size());
  for (const Vec2& pair : texCoords) {
    *out++ = static_cast<float>(pair.x);
    *out++ = static_cast<float>(pair.y);
  }
}

void writeTextures(const MeshStorage& m, Cleanup::MeshData& data) {
  const bool withRuns = !m.mRunMaterials.empty() && !m.mTexCoords[0].empty();
  const std::span<const MaterialPair> materials =
      withRuns ? std::span(m.mRunMaterials) : std::span(&m.mDefaultMaterial, 1);
  // Null entries first and the count at once: whatever throws in between, the record can be released.
  const int count = checkedCount(materials.size());
  data.mTextures = new char*[materials.size()]();
  data.mTexturesCount = count;
  for (std::size_t run = 0; run < materials.size(); ++run) data.mTextures[run] = newTextureName(materials[run]);
  if (!withRuns) return;
  data.mTexturesStartFaces = newArray<std::uint32_t>(m.mRunStarts.size());
  data.mTexturesStartFacesCount = checkedCount(m.mRunStarts.size());
  std::ranges::copy(m.mRunStarts, data.mTexturesStartFaces);
}

}  // namespace

std::unique_ptr<Mesh> meshDataToMesh(const Cleanup::MeshData& data, std::string& log) {
  if (data.mVCCount < 3 || !data.mVertexCoords) return nullptr;
  const auto* counts = reinterpret_cast<const std::int32_t*>(data.mCounts);
  std::unique_ptr<Mesh> mesh;
  // Without a whole pair there are no texture coordinates, and nothing that goes with them is read.
  if (!data.mTexCoords || data.mTCCount < 2) {
    mesh = std::make_unique<Mesh>(data.mName, data.mVCCount, data.mVertexCoords, data.mIndices, data.mCountCount,
                                  counts, data.mHoles, data.mHolesCount, &log);
  } else {
    std::vector<MaterialPair> materials;
    if (data.mTexturesCount > 0) materials = makeRunMaterials(data);
    Buffer<std::uint32_t> starts(materials.size(), 0);
    if (data.mTexturesStartFaces) std::copy_n(data.mTexturesStartFaces, starts.size(), starts.begin());
    mesh = std::make_unique<Mesh>(data.mName, data.mVCCount, data.mVertexCoords, data.mIndices, data.mTCCount,
                                  data.mTexCoords, data.mTCIndices, data.mCountCount, counts, data.mHoles,
                                  data.mHolesCount, std::move(materials), starts, &log);
  }
  assignHoles(*mesh);
  return mesh;
}

const Cleanup::MeshData* meshToMeshData(const Mesh& mesh, const std::string& log) {
  const MeshStorage& m = mesh.storage();
  if (m.mVertices.empty() || m.mFaces.empty()) return nullptr;

  RecordPtr data(new Cleanup::MeshData());
  if (!m.mName.empty()) data->mName = newText(m.mName);
  writeFaces(m.mFaces, !m.mTexCoords[0].empty(), *data);
  writeVertices(m, *data);
  if (!m.mTexCoords[0].empty()) writeTexCoords(m, *data);
  if (!m.mHoles.empty()) {
    data->mHolesCount = checkedCount(m.mHoles.list().size());
    data->mHoles = newArray<std::uint32_t>(m.mHoles.list().size());
    markIntendedLeak(data->mHoles);
    std::ranges::copy(m.mHoles.list(), data->mHoles);
  }
  writeTextures(m, *data);
  if (!log.empty()) data->mLog = newText(log);
  return data.release();
}

}  // namespace util
