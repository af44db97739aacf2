#pragma once

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <facetbox/util/Mesh.h>
#include <facetbox/util/materials/Shader.h>
#include <facetbox/util/math/Vec3.h>
#include <facetbox/util/mesh/Polygon.h>
#include <tests/support/Meshes.h>

/// The slow twin of the working mesh: a record per face, a map of holes, and the maintenance steps written down the
/// way they are described, without a thought for speed.
namespace support {

struct PlainFace {
  Indices mCorners;
  Indices mNormalIndices;        ///< one per corner, or empty
  std::map<int, Indices> mSets;  ///< corner sets 0 to 11 that the face carries
  util::Vec3 mNormal{0, 0, 0};
  bool mPerVertexNormals = false;
  std::int32_t mTag = -1;

  bool isCleared() const { return mCorners.empty(); }
  void clear();
  void shrink(std::size_t count);
};

PlainFace plainOf(const util::Polygon& record);
util::Polygon polygonOf(const PlainFace& face);
std::string describe(const PlainFace& face);

struct PlainMesh {
  std::vector<util::Vec3> mVertices;
  std::vector<PlainFace> mFaces, mLines, mPoints;
  util::MaterialPair mDefaultMaterial;
  std::vector<util::MaterialPair> mRunMaterials;
  Indices mRunStarts;
  std::map<std::uint32_t, Indices> mHoles;  ///< hole faces by outer face
  Faces mVertexIndexLists;
};

PlainMesh plainOf(const util::Mesh& mesh);
util::Mesh buildMesh(const PlainMesh& plain);
std::string describe(const PlainMesh& mesh);

bool removeRepeatedIndices(PlainFace& face);
bool sanitizeFaces(PlainMesh& mesh);
void compactPrimitives(PlainMesh& mesh);
void removeUnusedVertices(PlainMesh& mesh);

/// A flat list of hole groups after some of the faces have gone: a gone outer face takes its group along, a gone hole
/// its entry; a list without its final terminator stays as it is.
Indices renumberedHoles(const Indices& list, const std::vector<bool>& kept);

/// A material that is told apart by its name.
util::MaterialPair materialOf(const std::string& name);
/// A face with everything that a record can carry, or only some of it. Vertex indices are below `vertexCount`.
PlainFace randomFace(std::mt19937& random, int vertexCount, int fewestCorners, int mostCorners);
/// Crumpled faces and perforated squares on a small integer grid times `scale`, with runs and hole groups.
PlainMesh randomFaceMesh(std::mt19937& random, double scale);

}  // namespace support
