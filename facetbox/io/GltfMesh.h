#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <facetbox/io/GltfAccessor.h>
#include <facetbox/io/GltfFile.h>
#include <facetbox/io/GltfNodes.h>
#include <facetbox/io/GltfUses.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Numbered.h>

namespace facetbox {

/// Reads the mesh of one node: all its primitives become one object.
///
/// The vertices are the positions that triangles use, one for all corners at the same place, in the order of the file.
/// Texture coordinates are pairs of a vertex, in the order in which corners name them.
class GltfMesh {
 public:
  /// @param marks    of the model
  /// @param touched  per accessor of positions: the elements that triangles use
  GltfMesh(GltfFile& file, const JsonValue& mesh, Numbered<Mark>& marks,
           std::map<std::size_t, std::vector<bool>>& touched);

  /// @return false where there are no triangles
  bool read(const GltfTransform& transform, Object& object);

 private:
  struct Primitive {
    JsonValue value;
    std::size_t positions;               // index into mPositions
    std::vector<std::uint32_t> corners;  // elements of the accessors, three per triangle
    std::optional<GltfAccessor> texCoords, colors;
    Mark mark;
  };
  struct Positions {
    GltfAccessor accessor;
    std::size_t index;  // of the accessor
    std::optional<GltfUses> uses;
    std::vector<std::uint32_t> vertices;  // by rank
  };

  void openPrimitive(const JsonValue& value);
  std::size_t openPositions(const JsonValue& index);
  std::optional<GltfAccessor> openAttribute(const JsonValue& attributes, std::string_view name, std::size_t count,
                                            std::initializer_list<std::string_view> types);
  std::vector<std::uint32_t> readCorners(const JsonValue& primitive, std::size_t vertices, std::uint64_t mode);
  void findUses();
  void takeMemory();
  void readVertices(PolyMesh& mesh);
  void readFaces(bool isMirrored, PolyMesh& mesh);
  void readColors(std::size_t vertices, std::vector<float>& colors);
  void noteAttributes();
  void place(const GltfTransform& transform, PolyMesh& mesh) const;
  bool isAnyTextured() const;

  GltfFile& mFile;
  const JsonValue mMesh;
  Numbered<Mark>& mMarks;
  std::map<std::size_t, std::vector<bool>>& mTouched;
  std::vector<Primitive> mPrimitives;
  std::vector<Positions> mPositions;
  std::map<std::size_t, std::size_t> mPositionsOf;  // by accessor
  std::size_t mTaken = 0;                           // memory that the mesh needs until it has been read
};

}  // namespace facetbox
