#include <tools/ModelReader.h>

#include <algorithm>
#include <array>
#include <bit>
#include <filesystem>
#include <string_view>
#include <unordered_map>

#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <fmt/format.h>
#include <assimp/DefaultLogger.hpp>
#include <assimp/Importer.hpp>
#include <assimp/LogStream.hpp>

#include <tools/Errors.h>
#include <tools/InputFile.h>
#include <tools/ObjFile.h>
#include <tools/PlyFile.h>

namespace tool {
namespace {

std::string extensionOf(const std::string& path) {
  std::string extension = std::filesystem::path(path).extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return extension;
}

struct PositionHash {
  std::size_t operator()(const std::array<float, 3>& p) const {
    std::uint64_t hash = 0;
    for (const float value : p) hash = (hash ^ std::bit_cast<std::uint32_t>(value)) * 0x9E3779B97F4A7C15U;
    return static_cast<std::size_t>(hash ^ (hash >> 32));
  }
};

// Collects the errors that the import library only logs. It goes on with a guess, such as another vertex for an index
// out of range.
class ImportErrors {
 public:
  ImportErrors() {
    Assimp::Logger* logger = Assimp::DefaultLogger::create("", Assimp::Logger::NORMAL, 0);
    logger->attachStream(new Stream(mText), Assimp::Logger::Err);  // the logger owns its streams
  }
  ImportErrors(const ImportErrors&) = delete;
  ImportErrors& operator=(const ImportErrors&) = delete;
  ~ImportErrors() { Assimp::DefaultLogger::kill(); }

  /// The first message, empty when there is none.
  std::string first() const { return mText.substr(0, mText.find('\n')); }

 private:
  class Stream : public Assimp::LogStream {
   public:
    explicit Stream(std::string& text) : mText(text) {}
    void write(const char* message) override { mText += message; }

   private:
    std::string& mText;
  };
  std::string mText;
};

// Walks the nodes of an imported scene and appends their meshes to a model.
class SceneReader {
 public:
  SceneReader(const aiScene& scene, std::string path, bool joinPositions, bool hasMaterials)
      : mScene(scene), mPath(std::move(path)), mJoinPositions(joinPositions), mHasMaterials(hasMaterials) {}

  Model read() {
    if (mScene.mRootNode) addNode(*mScene.mRootNode, aiMatrix4x4());
    if (mModel.mObjects.empty()) mModel.mObjects.push_back({});
    return std::move(mModel);
  }

 private:
  void addNode(const aiNode& node, const aiMatrix4x4& parent) {
    const aiMatrix4x4 transform = parent * node.mTransformation;
    if (node.mNumMeshes > 0)
      mModel.mObjects.push_back({node.mName.C_Str(), static_cast<std::uint32_t>(mModel.faceCount()),
                                 static_cast<std::uint32_t>(mModel.vertexCount()),
                                 static_cast<std::uint32_t>(mModel.mTexCoords.size() / 2)});
    for (unsigned i = 0; i < node.mNumMeshes; ++i) addMesh(*mScene.mMeshes[node.mMeshes[i]], transform);
    if (node.mNumMeshes > 0 && mModel.mObjects.back().mFirstFace == mModel.faceCount()) mModel.mObjects.pop_back();
    for (unsigned i = 0; i < node.mNumChildren; ++i) addNode(*node.mChildren[i], transform);
  }

  int materialOf(const aiMesh& mesh) {
    if (!mHasMaterials || mesh.mMaterialIndex >= mScene.mNumMaterials) return -1;
    const std::string name = mScene.mMaterials[mesh.mMaterialIndex]->GetName().C_Str();
    if (name.empty()) return -1;
    auto& names = mModel.mMaterials;
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) names.push_back(name);
    return static_cast<int>(std::find(names.begin(), names.end(), name) - names.begin());
  }

  // Returns the model's vertex index for each vertex of the mesh.
  std::vector<std::uint32_t> addVertices(const aiMesh& mesh, const aiMatrix4x4& transform) {
    std::vector<std::uint32_t> indices(mesh.mNumVertices);
    std::unordered_map<std::array<float, 3>, std::uint32_t, PositionHash> known;
    for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
      const aiVector3D p = transform.IsIdentity() ? mesh.mVertices[i] : transform * mesh.mVertices[i];
      indices[i] = static_cast<std::uint32_t>(mModel.vertexCount());
      // Adding 0 turns -0 into 0.
      if (mJoinPositions)
        indices[i] = known.try_emplace({p.x + 0.0F, p.y + 0.0F, p.z + 0.0F}, indices[i]).first->second;
      if (indices[i] == mModel.vertexCount()) mModel.mVertices.insert(mModel.mVertices.end(), {p.x, p.y, p.z});
    }
    return indices;
  }

  void addMesh(const aiMesh& mesh, const aiMatrix4x4& transform) {
    const bool textured = mesh.HasTextureCoords(0);
    const auto firstTexCoord = static_cast<std::uint32_t>(mModel.mTexCoords.size() / 2);
    const std::vector<std::uint32_t> indices = addVertices(mesh, transform);
    for (unsigned i = 0; textured && i < mesh.mNumVertices; ++i)
      mModel.mTexCoords.insert(mModel.mTexCoords.end(), {mesh.mTextureCoords[0][i].x, mesh.mTextureCoords[0][i].y});
    // A mirroring transform turns the faces inside out.
    const bool mirrored = transform.Determinant() < 0;
    const Label label{materialOf(mesh), -1};
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
      const aiFace& face = mesh.mFaces[f];
      if (face.mNumIndices < 3) {
        ++mModel.mIgnored["points and lines"];
        continue;
      }
      mModel.startRun(label);
      if (textured) mModel.mTexIndices.resize(mModel.mIndices.size(), kNoTexCoord);
      for (unsigned c = 0; c < face.mNumIndices; ++c) {
        const unsigned index = face.mIndices[mirrored ? face.mNumIndices - 1 - c : c];
        if (index >= mesh.mNumVertices)
          throw InputError(fmt::format("{}: face {} refers to vertex {}, but there are only {}; correct the face",
                                       mPath, mModel.faceCount() + 1, index, mesh.mNumVertices));
        mModel.mIndices.push_back(indices[index]);
        if (textured) mModel.mTexIndices.push_back(firstTexCoord + index);
      }
      if (!textured && !mModel.mTexIndices.empty()) mModel.mTexIndices.resize(mModel.mIndices.size(), kNoTexCoord);
      mModel.mCounts.push_back(face.mNumIndices);
    }
  }

  const aiScene& mScene;
  const std::string mPath;
  const bool mJoinPositions;
  const bool mHasMaterials;
  Model mModel;
};

}  // namespace

Model readModel(const std::string& path) {
  const std::string extension = extensionOf(path);
  constexpr std::array<std::string_view, 4> kImported = {".off", ".stl", ".gltf", ".glb"};
  Model model;
  if (extension == ".obj")
    model = parseObj(readFile(path), path);
  else if (extension == ".ply")
    model = parsePly(readFile(path), path);
  else if (std::find(kImported.begin(), kImported.end(), extension) != kImported.end())
    model = importModel(path);
  else
    throw InputError(
        fmt::format("{}: unknown kind of file; the name must end in .obj, .ply, .off, .stl, .gltf or .glb", path));
  checkModel(model, path);
  return model;
}

Model importModel(const std::string& path) {
  const std::string extension = extensionOf(path);
  const bool isGltf = extension == ".gltf" || extension == ".glb";
  // For better messages: the import library says neither why it cannot open a file nor that it is empty.
  readFile(path);
  const ImportErrors errors;
  Assimp::Importer importer;
  const aiScene* scene = importer.ReadFile(path, 0);
  const std::string error = scene ? errors.first() : importer.GetErrorString();
  if (!scene || !error.empty())
    throw InputError(fmt::format("{}: cannot be read as {}: {}", path, extension.substr(1), error));
  return SceneReader(*scene, path, isGltf || extension == ".stl", isGltf).read();
}

}  // namespace tool
