#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <facetbox/io/CityJsonAppearance.h>
#include <facetbox/io/CityJsonGeometry.h>
#include <facetbox/io/CityJsonGrid.h>
#include <facetbox/io/JsonText.h>
#include <facetbox/io/Model.h>

namespace facetbox {

/// The text of a file. Its writer puts back whatever has not changed, byte for byte.
class CityJsonDocument : public Document {
 public:
  explicit CityJsonDocument(std::string_view bytes) : text(bytes) {}
  const std::string text;
};

/// A file taken apart.
class CityJsonFile {
 public:
  enum class Geometries { kept, forgotten };  ///< very many small ones take much memory

  /// @param text  stays with the caller; it ends with a null character
  /// @throws ReadError
  CityJsonFile(std::string_view text, ReadContext& context, Geometries geometries);
  CityJsonFile(const CityJsonFile&) = delete;
  CityJsonFile& operator=(const CityJsonFile&) = delete;

  const JsonText& text() const { return mText; }
  Model& model() { return mModel; }
  const Model& model() const { return mModel; }
  const std::vector<CityJsonGeometry>& geometries() const { return mGeometries; }  ///< of the model's objects
  const std::vector<double>& points() const { return mPoints; }                    ///< of all vertices
  const CityJsonGrid& grid() const { return mGrid; }
  const CityJsonAppearance& appearance() const { return *mAppearance; }
  std::string_view cityObjects() const { return mCityObjects; }
  std::string_view vertices() const { return mVertices; }
  std::string_view transform() const { return mTransform; }  ///< null where the file has none

 private:
  void readHeader();
  void readTransform(bool isRequired);
  void readVertices();
  void readCityObjects();
  void readCityObject(std::string_view id, std::string_view value);
  void readGeometries(const std::string& id, std::string_view list);
  void numberVerticesThrough();

  JsonText mText;
  Model mModel;
  Geometries mKeeping;
  std::vector<CityJsonGeometry> mGeometries;
  std::vector<double> mPoints;
  CityJsonGrid mGrid;
  std::optional<CityJsonAppearance> mAppearance;
  std::string_view mCityObjects, mVertices, mTransform;
  std::optional<CityJsonGeometryReader> mReader;
  std::size_t mCopied = 0;
};

}  // namespace facetbox
