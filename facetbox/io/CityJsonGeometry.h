#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <facetbox/io/CityJsonAppearance.h>
#include <facetbox/io/CityJsonShape.h>
#include <facetbox/io/JsonText.h>
#include <facetbox/io/Model.h>
#include <facetbox/io/Numbered.h>

namespace facetbox {

/// A geometry that is read as an object. The views are text of the file; null where it has no such member.
struct CityJsonGeometry {
  std::string_view text;  ///< all of it
  std::string_view list;  ///< of the city object's geometries, all of it
  std::string_view type, boundaries, semantics, material, texture;
  std::size_t top = 0;                          ///< the level of its boundaries
  std::vector<std::uint32_t> shellsPerSolid;    ///< for levels from kSolid
  std::vector<std::uint32_t> semanticsNumbers;  ///< of its semantic surfaces, in Model::semantics
  std::string materialTheme, textureTheme;      ///< that were read
};

/// Makes objects of geometries.
class CityJsonGeometryReader {
 public:
  /// @param points  of all vertices of the file
  CityJsonGeometryReader(const JsonText& text, const std::vector<double>& points, CityJsonAppearance& appearance,
                         Model& model);

  /// Fills mesh and fileVertices.
  /// @return false where there is no surface: nothing is noted then
  bool read(CityJsonGeometry& geometry, Object& object);

 private:
  // What surfaces and rings are marked with; empty: none of them is.
  struct Values {
    std::vector<std::uint32_t> semantics, materials;  // per surface
    std::vector<std::uint32_t> textures;              // per ring
  };

  void readSemantics(CityJsonGeometry& geometry, const CityJsonShape& shape, Values& values);
  void readMaterials(CityJsonGeometry& geometry, const CityJsonShape& shape, Values& values);
  void readTextures(CityJsonGeometry& geometry, const CityJsonShape& shape, Values& values, PolyMesh& mesh);
  std::string_view chooseTheme(std::string_view themes, const std::string& byDefault, const char* what,
                               std::string& chosen);
  std::uint32_t semanticsNumber(std::string_view surface);
  void label(const CityJsonShape& shape, const Values& values, PolyMesh& mesh);

  const JsonText& mText;
  const std::vector<double>& mPoints;
  CityJsonAppearance& mAppearance;
  Model& mModel;
  Numbered<Mark> mMarks;
  std::unordered_map<std::string_view, std::uint32_t> mSemantics;  // by their text
};

}  // namespace facetbox
