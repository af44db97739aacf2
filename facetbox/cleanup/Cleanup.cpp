#include <facetbox/cleanup/Cleanup.h>

#include <cstddef>
#include <locale>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

#include <facetbox/cleanup/MeshDataConversion.h>
#include <facetbox/math/Matrix4.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/Validate.h>
#include <facetbox/operations/ConformNormals.h>
#include <facetbox/operations/MergeVertices.h>
#include <facetbox/operations/RemoveEdgesCoplanar.h>
#include <facetbox/operations/RemoveEdgesZero.h>
#include <facetbox/operations/RemoveFacesDouble.h>
#include <facetbox/operations/RemoveFacesZero.h>
#include <facetbox/operations/RemoveVerticesColinear.h>

// Hosts fill the record themselves: its layout is fixed.
static_assert(sizeof(Cleanup::MeshData) == 144);
static_assert(offsetof(Cleanup::MeshData, mName) == 0);
static_assert(offsetof(Cleanup::MeshData, mVertexCoords) == 8);
static_assert(offsetof(Cleanup::MeshData, mVCCount) == 16);
static_assert(offsetof(Cleanup::MeshData, mIndices) == 24);
static_assert(offsetof(Cleanup::MeshData, mIndexCount) == 32);
static_assert(offsetof(Cleanup::MeshData, mTexCoords) == 40);
static_assert(offsetof(Cleanup::MeshData, mTCCount) == 48);
static_assert(offsetof(Cleanup::MeshData, mTCIndices) == 56);
static_assert(offsetof(Cleanup::MeshData, mTCIndexCount) == 64);
static_assert(offsetof(Cleanup::MeshData, mCounts) == 72);
static_assert(offsetof(Cleanup::MeshData, mCountCount) == 80);
static_assert(offsetof(Cleanup::MeshData, mTextures) == 88);
static_assert(offsetof(Cleanup::MeshData, mTexturesCount) == 96);
static_assert(offsetof(Cleanup::MeshData, mTexturesStartFaces) == 104);
static_assert(offsetof(Cleanup::MeshData, mTexturesStartFacesCount) == 112);
static_assert(offsetof(Cleanup::MeshData, mHoles) == 120);
static_assert(offsetof(Cleanup::MeshData, mHolesCount) == 128);
static_assert(offsetof(Cleanup::MeshData, mLog) == 136);

namespace {

/// Record in, operation on the working mesh, record out.
template <class Operation>
const Cleanup::MeshData* runOperation(const Cleanup::MeshData& data, Operation operation) {
  std::string log;
  const std::unique_ptr<util::Mesh> mesh = util::meshDataToMesh(data, log);
  if (!mesh) return nullptr;
  util::assertValid(*mesh, "the conversion");
  operation(*mesh);
  util::assertValid(*mesh, "the operation");
  return util::meshToMeshData(*mesh, log);
}

/// Bytes as code points of the same value: never negative, so that no byte breaks a stream.
void writeBytes(std::wostream& stream, const char* text) {
  if (!text) {
    stream << "0x0";
    return;
  }
  for (; *text; ++text) stream << static_cast<wchar_t>(static_cast<unsigned char>(*text));
}

}  // namespace

const Cleanup::MeshData* Cleanup::mergeVertices(float tolerance, const MeshData& data) {
  // A record holds no normals.
  return runOperation(data, [=](util::Mesh& mesh) { util::mergeVertices(mesh, tolerance, util::NormalUpdate::skip); });
}

const Cleanup::MeshData* Cleanup::removeVerticesColinear(float tolerance, bool keepTextureMapping,
                                                         const MeshData& data) {
  return runOperation(data,
                      [=](util::Mesh& mesh) { util::removeVerticesColinear(mesh, tolerance, keepTextureMapping); });
}

const Cleanup::MeshData* Cleanup::removeEdgesCoplanar(float tolerance, bool compareAttributes, const MeshData& data) {
  return runOperation(data, [=](util::Mesh& mesh) { util::removeEdgesCoplanar(mesh, tolerance, compareAttributes); });
}

const Cleanup::MeshData* Cleanup::removeFacesDouble(bool compareAttributes, const MeshData& data) {
  return runOperation(data, [=](util::Mesh& mesh) { util::removeFacesDouble(mesh, compareAttributes); });
}

const Cleanup::MeshData* Cleanup::removeFacesZero(float threshold, const MeshData& data) {
  return runOperation(data, [=](util::Mesh& mesh) { util::removeFacesZero(mesh, threshold); });
}

const Cleanup::MeshData* Cleanup::removeEdgesZero(float threshold, const MeshData& data) {
  return runOperation(data, [=](util::Mesh& mesh) {
    util::removeEdgesZero(mesh, threshold);
    util::removeUnusedVertices(mesh);
  });
}

const Cleanup::MeshData* Cleanup::conformNormals(const MeshData& data) {
  return runOperation(data, [&](util::Mesh& mesh) { util::conformNormals(mesh, util::kIdentity); });
}

void Cleanup::freeMeshData(const MeshData* data) {
  delete[] data->mName;
  delete[] data->mVertexCoords;
  delete[] data->mIndices;
  delete[] data->mTexCoords;
  delete[] data->mTCIndices;
  delete[] data->mCounts;
  for (int run = 0; run < data->mTexturesCount; ++run) delete[] data->mTextures[run];
  delete[] data->mTextures;
  delete[] data->mTexturesStartFaces;
  delete[] data->mLog;
  delete data;
}

void Cleanup::freeMeshDataAndHoles(const MeshData* data) {
  if (!data) return;
  delete[] data->mHoles;
  freeMeshData(data);
}

std::wostream& operator<<(std::wostream& stream, const Cleanup::MeshData& data) {
  // Written to a stream of our own first, so that the caller's flags, width and locale have no effect.
  std::wostringstream text;
  text.imbue(std::locale::classic());
  const auto writeField = [&](const char* name, const auto& value) { text << name << ": " << value << '\n'; };
  const auto writeArray = [&](const char* name, const void* array, const char* countName, int count) {
    writeField(name, array);
    writeField(countName, count);
  };

  text << "MeshData, \nmName: ";
  writeBytes(text, data.mName);
  text << '\n';
  writeArray("mVertexCoords", data.mVertexCoords, "mVCCount", data.mVCCount);
  writeArray("mIndices", data.mIndices, "mIndexCount", data.mIndexCount);
  writeArray("mTexCoords", data.mTexCoords, "mTCCount", data.mTCCount);
  writeArray("mTCIndices", data.mTCIndices, "mTCIndexCount", data.mTCIndexCount);
  writeArray("mCounts", data.mCounts, "mCountCount", data.mCountCount);
  text << "mTextures: " << static_cast<const void*>(data.mTextures) << " [ ";
  for (int run = 0; data.mTextures && run < data.mTexturesCount; ++run) {
    writeBytes(text, data.mTextures[run]);
    text << ", ";
  }
  text << " ] \n";
  writeField("mTexturesCount", data.mTexturesCount);
  writeArray("mTexturesStartFaces", data.mTexturesStartFaces, "mTexturesStartFacesCount",
             data.mTexturesStartFacesCount);
  writeArray("mHoles", data.mHoles, "\nmHolesCount", data.mHolesCount);
  text << '\n';

  const std::wstring dump = std::move(text).str();
  stream.write(dump.data(), static_cast<std::streamsize>(dump.size()));
  return stream.flush();
}
