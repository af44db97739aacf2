#pragma once

#include <facetbox/materials/Shader.h>
#include <facetbox/mesh/Polygon.h>
#include <tests/support/Meshes.h>
#include <tests/support/PolygonFormulas.h>

/// The slow twin of the working mesh: a record per face, a map of holes, and the maintenance steps written down the
/// way they are described, without a thought for speed.
namespace support {

struct PlainFace {
  Indices mCorners{};
  Indices mNormalIndices{};        ///< one per corner, or empty
  std::map<int, Indices> mSets{};  ///< corner sets 0 to 11 that the face carries
  Vec3 mNormal{0, 0, 0};
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
  std::vector<Vec3> mVertices;
  std::vector<PlainFace> mFaces, mLines;
  util::MaterialPair mDefaultMaterial;
  std::vector<util::MaterialPair> mRunMaterials;
  Indices mRunStarts;
  std::map<std::uint32_t, Indices> mHoles;  ///< hole faces by outer face
  Faces mVertexIndexLists;
  std::map<int, std::vector<Vec2>> mTexCoords;  ///< by set; none is empty
  std::vector<std::set<std::uint32_t>> mTagSets;

  /// The list that is in use.
  std::vector<PlainFace>& primitives() { return !mLines.empty() ? mLines : mFaces; }
  /// Turns the faces into lines.
  void makeLines();
};

PlainMesh plainOf(const Mesh& mesh);
/// With derived connectivity.
Mesh buildMesh(const PlainMesh& plain);
std::string describe(const PlainMesh& mesh);
/// The same content, and consistent.
void expectSame(const Mesh& mesh, const PlainMesh& twin);

bool removeRepeatedIndices(PlainFace& face);
bool sanitizeFaces(PlainMesh& mesh);
void compactPrimitives(PlainMesh& mesh);
void removeUnusedVertices(PlainMesh& mesh);

/// Flat lists of hole groups: as validation leaves them, and after some of the faces have gone. A gone outer face takes
/// its group along, a gone hole its entry; a list without its final terminator stays as it is.
Indices validatedHoles(const Indices& list, std::size_t faceCount);
Indices renumberedHoles(const Indices& list, const std::vector<bool>& kept);

/// The corners seen along an axis, and what holds of polygons so seen.
std::vector<Vec2> seen(const PlainMesh& mesh, std::uint32_t face, int axis);
std::size_t countInside(const std::vector<Vec2>& polygon, const std::vector<Vec2>& points);
bool edgesTouch(const std::vector<Vec2>& a, const std::vector<Vec2>& b);

/// A material that is told apart by its name.
util::MaterialPair materialOf(const std::string& name);
/// A face with everything that a record can carry, or only some of it. Vertex indices are below `vertexCount`.
PlainFace randomFace(std::mt19937& random, int vertexCount, int fewestCorners, int mostCorners);
/// Crumpled faces and perforated squares on a small integer grid times `scale`, with runs and hole groups.
PlainMesh randomFaceMesh(std::mt19937& random, double scale);

}  // namespace support
