#include <facetbox/io/CityJsonFile.h>

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace facetbox {
namespace {

// What has no place in a model, but in its document.
std::string keptOnly(const std::string& what) { return what + " (kept in CityJSON only)"; }

// As RFC 6901 writes an object's name in a pointer.
std::string inPointer(std::string_view name) {
  std::string result;
  for (const char c : name) {
    if (c == '~')
      result += "~0";
    else if (c == '/')
      result += "~1";
    else
      result += c;
  }
  return result;
}

}  // namespace

CityJsonFile::CityJsonFile(std::string_view text, ReadContext& context, Geometries geometries)
    : mText(text, context), mKeeping(geometries) {
  readHeader();
  readVertices();
  mReader.emplace(mText, mPoints, *mAppearance, mModel);
  readCityObjects();
  mAppearance->noteUnused();
  numberVerticesThrough();
}

void CityJsonFile::readHeader() {
  constexpr std::array<std::string_view, 9> kNames = {"type",        "version",    "transform",
                                                      "CityObjects", "vertices",   "appearance",
                                                      "metadata",    "extensions", "geometry-templates"};
  JsonCursor start(mText.root());
  if (start.peek() != '{') mText.fail(start.at(), "a CityJSON file must be an object with the type \"CityJSON\"");
  const auto members = mText.members<kNames.size()>(mText.root(), "the file", kNames);
  const auto [type, version, transform, cityObjects, vertices, appearance, metadata, extensions, templates] = members;
  if (type == "\"CityJSONFeature\"")
    mText.fail(type.data(), "this is one feature of a sequence (CityJSONSeq); only whole CityJSON files are read");
  if (type != "\"CityJSON\"")
    mText.fail(type.data() != nullptr ? type.data() : start.at(),
               "this is no CityJSON file: its type must be \"CityJSON\"; no other JSON files are read under this name");
  for (std::size_t i : {1u, 3u, 4u})
    if (members[i].data() == nullptr) mText.fail(start.at(), fmt::format("the member \"{}\" is missing", kNames[i]));
  const std::string number = mText.string(version, "the version");
  const bool isOld = number.starts_with("1.0");
  if (!isOld && !number.starts_with("1.1") && !number.starts_with("2.0"))
    mText.failExpecting(version, "the version must be \"1.0\", \"1.1\" or \"2.0\"");
  for (std::size_t i : {6u, 7u, 8u})
    if (members[i].data() != nullptr) mText.context().notes().add(keptOnly(fmt::format("member '{}'", kNames[i])));
  mCityObjects = cityObjects;
  mVertices = vertices;
  mTransform = transform;
  readTransform(!isOld);
  mAppearance.emplace(mText, appearance, mModel.materials);
}

void CityJsonFile::readTransform(bool isRequired) {
  mGrid.isGiven = mTransform.data() != nullptr;
  if (!mGrid.isGiven) {
    if (isRequired) mText.fail(mText.root().data(), "the member \"transform\" is missing");
    return;
  }
  const auto read = [&](std::string_view value, const char* what, std::array<double, 3>& numbers) {
    if (value.data() == nullptr) mText.failExpecting(mTransform, "the transform must have scale and translate");
    std::size_t count = 0;
    for (JsonCursor cursor = mText.array(value, what); cursor.next(); ++count) {
      const std::string_view number = cursor.skip();
      if (count < 3) numbers[count] = mText.number(number, what);
    }
    if (count != 3) mText.failExpecting(value, fmt::format("{} must be three numbers", what));
  };
  const auto [scale, translate] = mText.members<2>(mTransform, "the transform", {"scale", "translate"});
  read(scale, "the scale of the transform", mGrid.scale);
  read(translate, "the translation of the transform", mGrid.translate);
  for (const double factor : mGrid.scale)
    if (factor == 0) mText.failExpecting(scale, "the scale of the transform must not be zero");
}

void CityJsonFile::readVertices() {
  constexpr std::size_t kShortest = 8;  // [0,0,0] and a comma
  mPoints.reserve(3 * (mVertices.size() / kShortest + 1));
  for (JsonCursor cursor = mText.array(mVertices, "the vertices"); cursor.next();) {
    mText.context().poll();
    const std::string_view vertex = cursor.skip();
    std::size_t axis = 0;
    for (JsonCursor number = mText.array(vertex, "a vertex"); number.next(); ++axis) {
      const std::string_view value = number.skip();
      if (axis >= 3) continue;
      const double coordinate =
          mGrid.isGiven ? mText.integer(value, "a coordinate of a vertex") * mGrid.scale[axis] + mGrid.translate[axis]
                        : mText.number(value, "a coordinate of a vertex");
      if (!std::isfinite(coordinate)) mText.failExpecting(value, "a coordinate becomes infinite by the transform");
      mPoints.push_back(coordinate);
    }
    if (axis != 3) mText.failExpecting(vertex, "a vertex must be three numbers");
  }
  mPoints.shrink_to_fit();
  if (mPoints.size() / 3 >= facetbox::kNone) mText.context().fail("has more vertices than 32 bits can number");
}

void CityJsonFile::readCityObjects() {
  std::vector<std::string_view> ids;
  for (JsonCursor cursor = mText.object(mCityObjects, "the city objects"); cursor.next();) {
    mText.context().poll();
    ids.push_back(cursor.key());
    readCityObject(ids.back(), cursor.skip());
  }
  mText.context().notes().add(keptOnly("types of city objects"), ids.size());
  std::sort(ids.begin(), ids.end());
  const auto twice = std::adjacent_find(ids.begin(), ids.end());
  if (twice != ids.end())
    mText.fail(std::max(twice[0].data(), twice[1].data()), fmt::format("the city object {} stands twice", *twice));
}

void CityJsonFile::readCityObject(std::string_view id, std::string_view value) {
  constexpr std::array<std::string_view, 6> kNames = {"geometry", "attributes",         "parents",
                                                      "children", "geographicalExtent", "address"};
  const auto members = mText.members<kNames.size()>(value, "a city object", kNames);
  for (std::size_t i = 1; i < members.size(); ++i)
    if (members[i].data() != nullptr)
      mText.context().notes().add(keptOnly(fmt::format("member '{}' of city objects", kNames[i])));
  if (members[0].data() != nullptr) readGeometries(decoded(id), members[0]);
}

void CityJsonFile::readGeometries(const std::string& id, std::string_view list) {
  const std::string place = fmt::format("/CityObjects/{}/geometry/", inPointer(id));
  std::size_t number = 0;
  for (JsonCursor cursor = mText.array(list, "the geometry of a city object"); cursor.next(); ++number) {
    CityJsonGeometry geometry;
    geometry.text = cursor.skip();
    geometry.list = list;
    const auto [type, boundaries, semantics, material, texture, lod] = mText.members<6>(
        geometry.text, "a geometry", {"type", "boundaries", "semantics", "material", "texture", "lod"});
    if (type.data() == nullptr) mText.failExpecting(geometry.text, "a geometry must have a type");
    const std::optional<std::size_t> top = levelOfGeometry(mText.string(type, "the type of a geometry"));
    if (!top) {
      const bool isKnown = type == "\"MultiPoint\"" || type == "\"MultiLineString\"" || type == "\"GeometryInstance\"";
      mText.context().notes().add(
          keptOnly(isKnown ? fmt::format("geometry {}", type) : std::string("geometry of unknown type")));
      continue;
    }
    if (boundaries.data() == nullptr) mText.failExpecting(geometry.text, "a geometry must have boundaries");
    if (lod.data() != nullptr) mText.context().notes().add(keptOnly("levels of detail"));
    geometry.type = type;
    geometry.boundaries = boundaries;
    geometry.semantics = semantics;
    geometry.material = material;
    geometry.texture = texture;
    geometry.top = *top;
    Object object;
    if (!mReader->read(geometry, object)) {
      mText.context().notes().add(keptOnly("geometry without surfaces"));
      continue;
    }
    object.name = id;
    object.place = place + std::to_string(number);
    // A long name with very many geometries must not fill the memory.
    mCopied += object.name.size() + object.place.size();
    if (mCopied > 3 * mText.root().size() + 4096)
      mText.context().fail("names of city objects are too long for so many geometries to be read");
    mModel.objects.push_back(std::move(object));
    if (mKeeping == Geometries::kept) mGeometries.push_back(std::move(geometry));
  }
}

// Leaves the numbers out where they run through, as they do unless objects share vertices or leave some out.
void CityJsonFile::numberVerticesThrough() {
  std::uint32_t next = 0;
  for (const Object& object : mModel.objects)
    for (const std::uint32_t vertex : object.fileVertices)
      if (vertex != next++) return;
  for (Object& object : mModel.objects) object.fileVertices = {};
}

}  // namespace facetbox
