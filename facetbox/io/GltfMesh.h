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
#include <facetbox/io/GltfUses.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Numbered.h>

namespace facetbox {

/// Reads a mesh, not placed yet: all its primitives become one object.
///
/// The vertices are the positions that triangles use, one for all corners at the same place, in the order of the file.
/// Texture coordinates are pairs of a vertex, in the order in which corners name them.
class GltfMesh {
 public:
  enum class Notes : bool { areTaken, wereTaken };

  /// @param marks    of the model
  /// @param touched  per accessor of positions: the elements that triangles use
  /// @param notes    wereTaken: the mesh has been read before, and what is odd about it is known
  GltfMesh(GltfFile& file, const JsonValue& mesh, Numbered<Mark>& marks, GltfAccessors& accessors,
           std::map<std::size_t, std::vector<bool>>& touched, Notes notes = Notes::areTaken);

  /// @param isMirrored  whether triangles are to be turned inside out
  /// @return false where there are no triangles
  bool read(bool isMirrored, Object& object);

  /// What an object takes that has been read.
  static std::size_t memoryOf(const Object& object);

 private:
  struct Primitive {
    JsonValue value;
    std::size_t positions;                    // index into mPositions
    std::vector<std::uint32_t> corners;       // elements of the accessors, three per triangle
    const GltfAccessor* texCoords = nullptr;  // null: none
    const GltfAccessor* colors = nullptr;
    Mark mark = {};
  };
  struct Positions {
    const GltfAccessor* accessor;
    std::size_t index;  // of the accessor
    std::optional<GltfUses> uses;
    std::vector<std::uint32_t> vertices;  // by rank
  };

  void openPrimitive(const JsonValue& value);
  std::size_t openPositions(const JsonValue& index);
  const GltfAccessor* openAttribute(const JsonValue& attributes, std::string_view name, std::size_t count,
                                    std::initializer_list<std::string_view> types);
  std::vector<std::uint32_t> readCorners(const JsonValue& primitive, std::size_t vertices, std::uint64_t mode);
  void findUses();
  void takeMemory();
  void readVertices(PolyMesh& mesh);
  void readFaces(bool isMirrored, PolyMesh& mesh);
  void readColors(std::size_t vertices, std::vector<float>& colors);
  void noteAttributes();
  void note(const char* what, std::size_t count = 1);
  bool isAnyTextured() const;

  GltfFile& mFile;
  const JsonValue mMesh;
  Numbered<Mark>& mMarks;
  GltfAccessors& mAccessors;
  std::map<std::size_t, std::vector<bool>>& mTouched;
  const bool mIsNoting;
  std::vector<Primitive> mPrimitives;
  std::vector<Positions> mPositions;
  std::map<std::size_t, std::size_t> mPositionsOf;  // by accessor
  std::size_t mTaken = 0;                           // memory that the mesh needs until it has been read
};

}  // namespace facetbox
