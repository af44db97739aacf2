#include <facetbox/io/CityJsonGeometry.h>

#include <algorithm>

#include <facetbox/PolyMesh.h>
#include <facetbox/io/CompactIndices.h>

namespace facetbox {
namespace {

std::vector<std::uint32_t> holeGroups(const CityJsonShape& shape) {
  std::vector<std::uint32_t> holes;
  std::uint32_t face = 0;
  for (const std::uint32_t rings : shape.sizes[CityJsonShape::kSurface]) {
    if (rings > 1) {
      for (std::uint32_t ring = 0; ring < rings; ++ring) holes.push_back(face + ring);
      holes.push_back(kNone);
    }
    face += rings;
  }
  return holes;
}

}  // namespace

CityJsonGeometryReader::CityJsonGeometryReader(const JsonText& text, const std::vector<double>& points,
                                               CityJsonAppearance& appearance, Model& model)
    : mText(text), mPoints(points), mAppearance(appearance), mModel(model), mMarks(model.marks) {}

bool CityJsonGeometryReader::read(CityJsonGeometry& geometry, Object& object) {
  CityJsonShape shape = parseBoundaries(mText, geometry.boundaries, geometry.top, mPoints.size() / 3);
  Values values;
  PolyMesh& mesh = object.mesh;
  if (geometry.semantics.data() != nullptr) readSemantics(geometry, shape, values);
  if (geometry.material.data() != nullptr) readMaterials(geometry, shape, values);
  if (geometry.texture.data() != nullptr) readTextures(geometry, shape, values, mesh);
  geometry.shellsPerSolid = shape.sizes[CityJsonShape::kSolid];
  if (shape.sizes[CityJsonShape::kRing].empty()) return false;

  label(shape, values, mesh);
  mesh.holes = holeGroups(shape);
  mesh.counts = std::move(shape.sizes[CityJsonShape::kRing]);
  mesh.indices = std::move(shape.vertices());
  object.fileVertices = compactIndices(mesh.indices);
  mesh.points = gathered(mPoints, object.fileVertices, 3);
  if (!mesh.texIndices.empty()) mesh.texCoords = gathered(mAppearance.texCoords(), compactIndices(mesh.texIndices), 2);
  return true;
}

std::uint32_t CityJsonGeometryReader::semanticsNumber(std::string_view surface) {
  const auto [known, isNew] = mSemantics.try_emplace(surface, static_cast<std::uint32_t>(mModel.semantics.size()));
  if (isNew) {
    const auto [type] = mText.members<1>(surface, "a semantic surface", {"type"});
    if (type.data() == nullptr) mText.failExpecting(surface, "a semantic surface must have a type");
    mModel.semantics.push_back({mText.string(type, "the type of a semantic surface"), std::string(surface)});
  }
  return known->second;
}

void CityJsonGeometryReader::readSemantics(CityJsonGeometry& geometry, const CityJsonShape& shape, Values& values) {
  const auto [surfaces, numbers] = mText.members<2>(geometry.semantics, "the semantics", {"surfaces", "values"});
  if (surfaces.data() == nullptr || numbers.data() == nullptr)
    mText.failExpecting(geometry.semantics, "semantics must have surfaces and values");
  for (JsonCursor cursor = mText.array(surfaces, "the semantic surfaces"); cursor.next();)
    geometry.semanticsNumbers.push_back(semanticsNumber(cursor.skip()));
  values.semantics.assign(shape.sizes[CityJsonShape::kSurface].size(), kNone);
  CityJsonValues(mText, shape, [&](std::size_t surface, std::string_view value) {
    values.semantics[surface] =
        geometry.semanticsNumbers[mText.index(value, geometry.semanticsNumbers.size(), "semantic surface")];
  }).walk(numbers);
}

// The theme that is read: the default one, else the first.
std::string_view CityJsonGeometryReader::chooseTheme(std::string_view themes, const std::string& byDefault,
                                                     const char* what, std::string& chosen) {
  std::string_view value;
  std::size_t count = 0;
  for (JsonCursor cursor = mText.object(themes, what); cursor.next(); ++count) {
    const std::string_view quoted = cursor.key();
    const std::string_view theme = cursor.skip();
    const bool isDefault = decoded(quoted) == byDefault;
    if (value.data() != nullptr && !isDefault) continue;
    value = theme;
    chosen = decoded(quoted);
  }
  if (count > 1)
    mText.context().notes().add(std::string(what) + " of further themes (kept in CityJSON only)", count - 1);
  return value;
}

void CityJsonGeometryReader::readMaterials(CityJsonGeometry& geometry, const CityJsonShape& shape, Values& values) {
  const std::string_view theme =
      chooseTheme(geometry.material, mAppearance.materialTheme(), "materials", geometry.materialTheme);
  if (theme.data() == nullptr) return;
  const auto [value, numbers] = mText.members<2>(theme, "the theme of a material", {"value", "values"});
  const auto materialOf = [&](std::string_view number) {
    return mText.index(number, mAppearance.materialCount(), "material");
  };
  const bool isForAll = value.data() != nullptr && value != "null";
  values.materials.assign(shape.sizes[CityJsonShape::kSurface].size(), isForAll ? materialOf(value) : kNone);
  if (isForAll || numbers.data() == nullptr) return;
  CityJsonValues(mText, shape, [&](std::size_t surface, std::string_view number) {
    values.materials[surface] = materialOf(number);
  }).walk(numbers);
}

void CityJsonGeometryReader::readTextures(CityJsonGeometry& geometry, const CityJsonShape& shape, Values& values,
                                          PolyMesh& mesh) {
  const std::string_view theme =
      chooseTheme(geometry.texture, mAppearance.textureTheme(), "textures", geometry.textureTheme);
  if (theme.data() == nullptr) return;
  const auto [numbers] = mText.members<1>(theme, "the theme of a texture", {"values"});
  if (numbers.data() == nullptr) return;
  const std::vector<std::uint32_t>& corners = shape.sizes[CityJsonShape::kRing];
  const std::vector<std::uint32_t>& rings = shape.sizes[CityJsonShape::kSurface];
  values.textures.assign(corners.size(), kNone);
  mesh.texIndices.assign(shape.vertices().size(), kNone);
  std::size_t surface = 0, ring = 0, corner = 0;  // those before the ring that is being read
  CityJsonValues(mText, shape, [&](std::size_t wanted, std::string_view value) {
    const auto passRing = [&] { corner += corners[ring++]; };
    for (; surface < wanted; ++surface)
      for (std::uint32_t i = 0; i < rings[surface]; ++i) passRing();
    std::uint32_t ringsRead = 0;
    for (JsonCursor cursor = mText.array(value, "the texture of a surface"); cursor.next(); ++ringsRead) {
      const std::string_view text = cursor.skip();
      if (ringsRead == rings[surface]) mText.failExpecting(text, "there are more textures than the surface has rings");
      JsonCursor number = mText.array(text, "the texture of a ring");
      std::size_t count = 0;
      for (; number.next(); ++count) {
        const std::string_view index = number.skip();
        if (count == 0 && index == "null") break;
        if (count == 0)
          values.textures[ring] = mText.index(index, mAppearance.textureCount(), "texture");
        else if (count <= corners[ring])
          mesh.texIndices[corner + count - 1] =
              mText.index(index, mAppearance.texCoords().size() / 2, "texture vertex");
      }
      if (values.textures[ring] != kNone && count != corners[ring] + 1)
        mText.failExpecting(text, "the texture of a ring must have one texture vertex for each corner");
      passRing();
    }
    if (ringsRead < rings[surface]) mText.failExpecting(value, "there are fewer textures than the surface has rings");
    ++surface;
  }).walk(numbers);
}

void CityJsonGeometryReader::label(const CityJsonShape& shape, const Values& values, PolyMesh& mesh) {
  const bool hasParts = shape.top >= CityJsonShape::kSolid && shape.sizes[CityJsonShape::kShell].size() > 1;
  if (!hasParts && values.semantics.empty() && values.materials.empty() && values.textures.empty()) return;
  mesh.labels.reserve(shape.sizes[CityJsonShape::kRing].size());
  std::size_t surface = 0, ring = 0;
  std::uint32_t part = 0;
  bool isMarked = false;
  for (const std::uint32_t surfaces : shape.sizes[CityJsonShape::kShell]) {
    Numbered<Mark> shellMarks(mModel.marks);  // no other shell of the object has these: nothing to remember
    Numbered<Mark>& numbered = hasParts ? shellMarks : mMarks;
    for (const std::size_t end = surface + surfaces; surface < end; ++surface)
      for (std::uint32_t i = 0; i < shape.sizes[CityJsonShape::kSurface][surface]; ++i, ++ring) {
        Mark mark;
        mark.material = mAppearance.materialFor(values.materials.empty() ? kNone : values.materials[surface],
                                                values.textures.empty() ? kNone : values.textures[ring]);
        if (!values.semantics.empty()) mark.semantics = values.semantics[surface];
        if (hasParts) mark.part = part;
        isMarked = isMarked || mark != Mark();
        mesh.labels.push_back(numbered(mark));
      }
    ++part;
  }
  if (!isMarked) mesh.labels.clear();
}

}  // namespace facetbox
