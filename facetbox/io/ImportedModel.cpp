#include <facetbox/io/ImportedModel.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <assimp/DefaultIOSystem.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <fmt/format.h>
#include <assimp/DefaultLogger.hpp>
#include <assimp/Importer.hpp>
#include <assimp/LogStream.hpp>

#include <facetbox/io/Numbered.h>
#include <facetbox/io/files.h>

namespace facetbox {
namespace {

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

// Opens the model, which may be a link to elsewhere, and no other file that its reader may not open.
class NearbyFiles : public Assimp::DefaultIOSystem {
 public:
  NearbyFiles(std::string model, const ReadContext& context) : mModel(std::move(model)), mContext(context) {}
  bool Exists(const char* file) const override { return mayRead(file) && DefaultIOSystem::Exists(file); }
  Assimp::IOStream* Open(const char* file, const char* mode) override {
    return mode[0] == 'r' && mayRead(file) ? DefaultIOSystem::Open(file, mode) : nullptr;
  }

 private:
  bool mayRead(const char* file) const { return file == mModel || mContext.mayRead(file); }

  std::string mModel;
  const ReadContext& mContext;
};

// Walks the nodes of an imported scene and appends an object for each mesh of each.
class SceneReader {
 public:
  SceneReader(const aiScene& scene, ReadContext& context) : mScene(scene), mContext(context) {}

  Model read() {
    for (unsigned i = 0; i < mScene.mNumMaterials; ++i) addMaterial(*mScene.mMaterials[i]);
    struct Step {
      const aiNode* node;
      aiMatrix4x4 parent;
    };
    std::vector<Step> open;
    if (mScene.mRootNode) open.push_back({mScene.mRootNode, {}});
    while (!open.empty()) {
      const auto [node, parent] = open.back();
      open.pop_back();
      const aiMatrix4x4 transform = parent * node->mTransformation;
      for (unsigned i = 0; i < node->mNumMeshes; ++i)
        addMesh(node->mName.C_Str(), *mScene.mMeshes[node->mMeshes[i]], transform);
      for (unsigned i = node->mNumChildren; i-- > 0;) open.push_back({node->mChildren[i], transform});
    }
    mContext.notes().add("animations", mScene.mNumAnimations);
    mContext.notes().add("cameras", mScene.mNumCameras);
    mContext.notes().add("lights", mScene.mNumLights);
    mContext.notes().add("embedded textures", mScene.mNumTextures);
    return std::move(mModel);
  }

 private:
  void addMaterial(const aiMaterial& from) {
    Material material{.name = from.GetName().C_Str()};
    aiColor4D color;
    if (from.Get(AI_MATKEY_COLOR_DIFFUSE, color) == aiReturn_SUCCESS) {
      material.color = {color.r, color.g, color.b, color.a};
      float opacity = 1;
      if (from.Get(AI_MATKEY_OPACITY, opacity) == aiReturn_SUCCESS) (*material.color)[3] = opacity;
    }
    aiString path;
    if (from.GetTexture(aiTextureType_DIFFUSE, 0, &path) == aiReturn_SUCCESS) material.texture = path.C_Str();
    mModel.materials.push_back(std::move(material));
  }

  void addPoints(const aiMesh& mesh, const aiMatrix4x4& transform, Object& object) {
    const bool isColored = mesh.HasVertexColors(0);
    for (unsigned i = 0; i < mesh.mNumVertices; ++i) {
      const aiVector3D p = transform.IsIdentity() ? mesh.mVertices[i] : transform * mesh.mVertices[i];
      object.mesh.points.insert(object.mesh.points.end(), {p.x, p.y, p.z});
      if (mesh.HasTextureCoords(0))
        object.mesh.texCoords.insert(object.mesh.texCoords.end(),
                                     {mesh.mTextureCoords[0][i].x, mesh.mTextureCoords[0][i].y});
      if (!isColored) continue;
      const aiColor4D& c = mesh.mColors[0][i];
      object.colors.insert(object.colors.end(), {c.r, c.g, c.b, c.a});
    }
    if (mesh.HasNormals()) mContext.notes().add("normals", mesh.mNumVertices);
    if (mesh.GetNumUVChannels() > 1)
      mContext.notes().add("further texture coordinates", std::size_t{mesh.GetNumUVChannels() - 1} * mesh.mNumVertices);
    mContext.notes().add("coordinates that are floats in the import library", std::size_t{3} * mesh.mNumVertices);
  }

  void addMesh(const char* name, const aiMesh& from, const aiMatrix4x4& transform) {
    Object object{.name = name};
    PolyMesh& mesh = object.mesh;
    addPoints(from, transform, object);
    const std::uint32_t mark =
        mMarkNumbers({.material = from.mMaterialIndex < mScene.mNumMaterials ? from.mMaterialIndex : kNone});
    // A mirroring transform turns the faces inside out.
    const bool isMirrored = transform.Determinant() < 0;
    for (unsigned f = 0; f < from.mNumFaces; ++f) {
      mContext.poll();
      const aiFace& face = from.mFaces[f];
      if (face.mNumIndices < 3) {
        mContext.notes().add("points and lines");
        continue;
      }
      for (unsigned c = 0; c < face.mNumIndices; ++c)
        mesh.indices.push_back(face.mIndices[isMirrored ? face.mNumIndices - 1 - c : c]);
      mesh.counts.push_back(face.mNumIndices);
    }
    mesh.labels.assign(mesh.counts.size(), mark);
    if (!mesh.texCoords.empty()) mesh.texIndices = mesh.indices;
    if (!mesh.counts.empty()) mModel.objects.push_back(std::move(object));
  }

  const aiScene& mScene;
  ReadContext& mContext;
  Model mModel;
  Numbered<Mark> mMarkNumbers{mModel.marks};
};

}  // namespace

Model importModel(const std::filesystem::path& path, ReadContext& context) {
  Assimp::Importer importer;
  const std::string extension = path.extension().string();
  if (extension.empty() || !importer.IsExtensionSupported(extension))
    context.fail(
        "unknown kind of file; the name must end in .obj, .ply, .off, .stl, .gltf, .glb or .json, or in the "
        "ending of a format that the import library reads");
  // For better messages: the import library says neither why it cannot open a file nor that it is empty.
  readFile(path);
  const ImportErrors errors;
  importer.SetIOHandler(new NearbyFiles(path.string(), context));  // the importer owns it
  const aiScene* scene = importer.ReadFile(path.string(), 0);
  const std::string error = scene ? errors.first() : importer.GetErrorString();
  if (!scene || !error.empty()) context.fail("cannot be read as " + extension.substr(1) + ": " + error);
  return SceneReader(*scene, context).read();
}

}  // namespace facetbox
