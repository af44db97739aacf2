#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <facetbox/io/CityJsonGeometry.h>
#include <facetbox/io/CityJsonVertices.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Notes.h>

namespace facetbox {

/// What a file has for the parts of a model's marks.
struct CityJsonNumbers {
  std::vector<std::uint32_t> semantics;                            ///< in the original model, kNone where it has none
  std::vector<std::pair<std::uint32_t, std::uint32_t>> materials;  ///< material and texture of each of Model::materials
};

/// Makes geometries of objects.
class CityJsonGeometryWriter {
 public:
  CityJsonGeometryWriter(const Model& model, const CityJsonNumbers& numbers, NumberedTuples<2>& texCoords, Notes& notes)
      : mModel(model), mNumbers(numbers), mTexCoords(texCoords), mNotes(notes) {}

  /// @param vertices  numbers of the mesh's vertices in the file
  /// @param original  the geometry that the object was read as; null for none: a MultiSurface is written then
  std::string write(const Object& object, std::span<const std::uint32_t> vertices, const CityJsonGeometry* original);

 private:
  // Faces by shells and solids, as the nested arrays want them.
  struct Nest {
    std::size_t top = 0;
    std::vector<std::vector<std::vector<std::uint32_t>>> solids;  // their shells' outer faces
  };
  // An object as its faces are asked for.
  struct Faces {
    const Object& object;
    std::vector<std::size_t> firstCorners;
    std::vector<std::uint32_t> groups;  // where a face's hole group begins in PolyMesh::holes; kNone for none
    std::vector<bool> isHole;
  };

  static Faces facesOf(const Object& object);
  Nest nestOf(const Faces& faces, const CityJsonGeometry* original);
  Mark markOf(const Faces& faces, std::uint32_t face) const;

  template <typename Leaf>
  static std::string nested(const Nest& nest, const Leaf& leaf);
  template <typename Ring>
  static void appendSurface(std::string& text, const Faces& faces, std::uint32_t face, const Ring& ring);

  std::string boundaries(const Faces& faces, const Nest& nest, std::span<const std::uint32_t> vertices) const;
  std::string semantics(const Faces& faces, const Nest& nest, const CityJsonGeometry* original);
  std::string material(const Faces& faces, const Nest& nest, const CityJsonGeometry* original);
  std::string texture(const Faces& faces, const Nest& nest, const CityJsonGeometry* original);
  std::string definitionOf(const Semantics& semantics);
  void noteLost(const Faces& faces);

  const Model& mModel;
  const CityJsonNumbers& mNumbers;
  NumberedTuples<2>& mTexCoords;
  Notes& mNotes;
};

/// An object's text with other values for some of its members. Those that it has not are added at the end; those with
/// an empty value go.
std::string withMembers(std::string_view object, std::span<const std::pair<std::string_view, std::string>> members);

}  // namespace facetbox
