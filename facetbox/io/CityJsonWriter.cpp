#include <facetbox/io/CityJsonWriter.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include <facetbox/io/CityJsonFile.h>
#include <facetbox/io/CityJsonGeometryWriter.h>
#include <facetbox/io/CityJsonVertices.h>

namespace facetbox {
namespace {

// Ids of city objects that are new, each different from all others.
class Ids {
 public:
  explicit Ids(Notes& notes) : mNotes(notes) {}
  void take(std::string id) { mTaken.insert(std::move(id)); }

  /// An object's id as JSON.
  std::string make(const Object& object, std::size_t number) {
    bool isChanged = false;
    std::string name = object.name.empty() ? fmt::format("object {}", number + 1) : object.name;
    std::string text = encoded(name, isChanged);
    if (isChanged) mNotes.add("bytes of names that are not UTF-8, in names of objects");
    if (mTaken.insert(decoded(text)).second) return text;
    const std::string stem = decoded(text);
    std::size_t& next = mNext.try_emplace(stem, 2).first->second;
    while (!mTaken.insert(fmt::format("{} ({})", stem, next)).second) ++next;
    mNotes.add("names of several objects, numbered");
    return encoded(fmt::format("{} ({})", stem, next), isChanged);
  }

 private:
  Notes& mNotes;
  std::set<std::string> mTaken;
  std::map<std::string, std::size_t> mNext;
};

std::string newCityObject(const std::string& id, const std::string& geometry) {
  // What it is in the city, nobody has told us.
  return fmt::format(R"({}:{{"type":"GenericCityObject","geometry":[{}]}})", id, geometry);
}

// For each of `from`, which of `to` equals it; kNone for none.
template <typename T>
std::vector<std::uint32_t> correspondence(const std::vector<T>& from, const std::vector<T>& to) {
  std::unordered_multimap<std::string_view, std::uint32_t> byDefinition;
  std::vector<std::uint32_t> result(from.size(), kNone);
  for (std::size_t i = 0; i < to.size(); ++i) byDefinition.emplace(to[i].definition, static_cast<std::uint32_t>(i));
  for (std::size_t i = 0; i < from.size(); ++i) {
    if (i < to.size() && from[i] == to[i]) {
      result[i] = static_cast<std::uint32_t>(i);
      continue;
    }
    const auto [begin, end] = byDefinition.equal_range(from[i].definition);
    for (auto at = begin; at != end; ++at)
      if (from[i] == to[at->second]) result[i] = std::min(result[i], at->second);
  }
  return result;
}

// A model that goes back into the file that it was read from.
class FileUpdate {
 public:
  FileUpdate(const Model& model, const CityJsonDocument& document, WriteContext& context)
      : mModel(model),
        mContext(context),
        mReadContext("", std::nullopt, mOptions),
        mFile(document.text, mReadContext, CityJsonFile::Geometries::kept),
        mVertices(mFile),
        mTexCoords(mFile.appearance().texCoords()) {}

  void write() {
    relateMarks();
    relateObjects();
    replaceGeometries();
    addObjects();
    mVertices.fit(mContext.notes());
    replace(mFile.vertices(), mVertices.vertices());
    replace(mFile.transform(), mVertices.transform());
    addTexCoords();
    output();
  }

 private:
  static constexpr std::size_t kGone = static_cast<std::size_t>(-1);

  void relateMarks() {
    mNumbers.semantics = correspondence(mModel.semantics, mFile.model().semantics);
    mMaterials = correspondence(mModel.materials, mFile.model().materials);
    std::size_t unknown = 0;
    for (const std::uint32_t material : mMaterials) {
      if (material == kNone) ++unknown;
      mNumbers.materials.push_back(material == kNone ? std::pair(kNone, kNone) : mFile.appearance().pairs()[material]);
    }
    mContext.notes().add("materials that the file did not have", unknown);
  }

  // Finds the geometries that objects come from.
  void relateObjects() {
    const std::vector<Object>& olds = mFile.model().objects;
    std::unordered_map<std::string_view, std::size_t> byPlace;
    for (std::size_t i = 0; i < olds.size(); ++i) byPlace.emplace(olds[i].place, i);
    mObjects.assign(olds.size(), kGone);
    for (std::size_t i = 0; i < mModel.objects.size(); ++i) {
      const Object& object = mModel.objects[i];
      if (!object.colors.empty()) mContext.notes().add("colors of vertices", object.colors.size() / 4);
      const auto known = byPlace.find(object.place);
      if (known != byPlace.end() && olds[known->second].name == object.name && mObjects[known->second] == kGone)
        mObjects[known->second] = i;
      else
        mNew.push_back(i);
    }
  }

  bool isUnchanged(const Object& object, const Object& old) const {
    if (object.mesh.labels.size() != old.mesh.labels.size()) return false;
    for (std::size_t face = 0; face < old.mesh.labels.size(); ++face)
      if (related(object.mesh.labels[face]) != mFile.model().marks[old.mesh.labels[face]]) return false;
    const MeshView mesh = object.mesh, oldMesh = old.mesh;
    const auto isSame = [](auto a, auto b) { return std::ranges::equal(a, b); };
    return isSame(mesh.points, oldMesh.points) && isSame(mesh.counts, oldMesh.counts) &&
           isSame(mesh.indices, oldMesh.indices) && isSame(mesh.texCoords, oldMesh.texCoords) &&
           isSame(mesh.texIndices, oldMesh.texIndices) && isSame(mesh.holes, oldMesh.holes);
  }

  // A mark in the numbers of the file.
  Mark related(std::uint32_t label) const {
    Mark mark = label < mModel.marks.size() ? mModel.marks[label] : Mark();
    mark.semantics = mark.semantics < mNumbers.semantics.size() ? mNumbers.semantics[mark.semantics] : kNone;
    mark.material = mark.material < mMaterials.size() ? mMaterials[mark.material] : kNone;
    mark.group = kNone;
    return mark;
  }

  void replaceGeometries() {
    const std::vector<CityJsonGeometry>& geometries = mFile.geometries();
    CityJsonGeometryWriter writer(mModel, mNumbers, mTexCoords, mContext.notes());
    for (std::size_t i = 0; i < geometries.size();) {
      const char* const list = geometries[i].list.data();
      std::map<const char*, std::string> texts;  // of what has changed; empty for what has gone
      const std::string_view whole = geometries[i].list;
      for (; i < geometries.size() && geometries[i].list.data() == list; ++i) {
        if (mObjects[i] == kGone || mModel.objects[mObjects[i]].mesh.counts.empty()) {
          texts[geometries[i].text.data()];
          mContext.notes().add("geometries that have no faces any more");
          continue;
        }
        const Object& object = mModel.objects[mObjects[i]];
        if (isUnchanged(object, mFile.model().objects[i])) continue;
        noteThemes(geometries[i]);
        texts[geometries[i].text.data()] = writer.write(object, mVertices.numbersOf(object), &geometries[i]);
      }
      if (!texts.empty()) replaceList(whole, texts);
    }
  }

  void noteThemes(const CityJsonGeometry& geometry) {
    for (const std::string_view themes : {geometry.material, geometry.texture}) {
      if (themes.data() == nullptr) continue;
      std::size_t count = 0;
      JsonCursor cursor(themes);
      for (cursor.enter(); cursor.next(); ++count) {
        cursor.key();
        cursor.skip();
      }
      if (count > 1) mContext.notes().add("further themes of geometries that have changed", count - 1);
    }
  }

  void replaceList(std::string_view list, const std::map<const char*, std::string>& texts) {
    std::string text = "[";
    JsonCursor cursor(list);
    for (cursor.enter(); cursor.next();) {
      const std::string_view old = cursor.skip();
      const auto changed = texts.find(old.data());
      if (changed != texts.end() && changed->second.empty()) continue;
      if (text.size() > 1) text += ",";
      text += changed != texts.end() ? std::string_view(changed->second) : old;
    }
    replace(list, text + "]");
  }

  void addObjects() {
    if (mNew.empty()) return;
    Ids ids(mContext.notes());
    JsonCursor cursor(mFile.cityObjects());
    bool isFirst = true;
    for (cursor.enter(); cursor.next(); isFirst = false) {
      ids.take(decoded(cursor.key()));
      cursor.skip();
    }
    CityJsonGeometryWriter writer(mModel, mNumbers, mTexCoords, mContext.notes());
    std::string text;
    for (const std::size_t i : mNew) {
      const Object& object = mModel.objects[i];
      if (object.mesh.counts.empty()) continue;
      if (!isFirst) text += ',';
      isFirst = false;
      text += newCityObject(ids.make(object, i), writer.write(object, mVertices.numbersOf(object), nullptr));
    }
    const std::string_view all = mFile.cityObjects();
    replace(all.substr(all.size() - 1, 0), std::move(text));
  }

  void addTexCoords() {
    const std::vector<double>& added = mTexCoords.added();
    if (added.empty()) return;
    const std::string_view old = mFile.appearance().verticesTexture();
    std::string text = old.data() == nullptr ? "[" : std::string(old.substr(0, old.size() - 1));
    for (std::size_t i = 0; i < added.size(); i += 2)
      text += fmt::format("{}[{},{}]", i == 0 && mTexCoords.known().empty() ? "" : ",", added[i], added[i + 1]);
    text += "]";
    if (old.data() != nullptr)
      replace(old, std::move(text));
    else
      replace(mFile.appearance().value(),
              withMembers(mFile.appearance().value(),
                          std::vector{std::pair<std::string_view, std::string>("vertices-texture", std::move(text))}));
  }

  // Takes other text for a piece of the file; empty text for a whole value means: as it stands.
  void replace(std::string_view piece, std::string text) {
    if (!text.empty()) mChanges[piece.data()] = {piece.size(), std::move(text)};
  }

  void output() {
    const std::string_view whole = mFile.text().root();
    const char* at = whole.data();
    for (const auto& [start, change] : mChanges) {
      mContext.output().text({at, static_cast<std::size_t>(start - at)});
      mContext.output().text(change.second);
      at = start + change.first;
    }
    mContext.output().text({at, static_cast<std::size_t>(whole.data() + whole.size() - at)});
  }

  const Model& mModel;
  WriteContext& mContext;
  ReadOptions mOptions;
  ReadContext mReadContext;
  CityJsonFile mFile;
  CityJsonVertices mVertices;
  NumberedTuples<2> mTexCoords;
  CityJsonNumbers mNumbers;
  std::vector<std::uint32_t> mMaterials;  // the model's, in those of the file
  std::vector<std::size_t> mObjects;      // of the model, for each geometry
  std::vector<std::size_t> mNew;          // objects that come from none
  std::map<const char*, std::pair<std::size_t, std::string>> mChanges;
};

// A model that comes from elsewhere.
class NewFile {
 public:
  NewFile(const Model& model, WriteContext& context)
      : mModel(model), mContext(context), mVertices(model), mTexCoords({}) {}

  void write() {
    std::vector<std::vector<std::uint32_t>> vertices;
    for (const Object& object : mModel.objects) {
      vertices.push_back(mVertices.numbersOf(object));
      noteLost(object, vertices.back());
    }
    mVertices.fit(mContext.notes());
    listMaterials();
    Output& out = mContext.output();
    out.text("{\"type\":\"CityJSON\",\"version\":\"2.0\",\n\"transform\":");
    out.text(mVertices.transform());
    out.text(",\n\"CityObjects\":{");
    writeObjects(vertices);
    out.text("},\n\"vertices\":");
    out.text(mVertices.vertices());
    writeAppearance();
    out.text("}\n");
  }

 private:
  void noteLost(const Object& object, const std::vector<std::uint32_t>& vertices) {
    mContext.notes().add("vertices that no face uses",
                         static_cast<std::size_t>(std::count(vertices.begin(), vertices.end(), kNone)));
    mContext.notes().add("colors of vertices", object.colors.size() / 4);
    if (object.mesh.counts.empty()) mContext.notes().add("objects without faces");
  }

  void listMaterials() {
    std::size_t unknownImages = 0, colors = 0, definitions = 0;
    for (const Material& material : mModel.materials) {
      std::pair<std::uint32_t, std::uint32_t> numbers = {kNone, kNone};
      if (!material.name.empty() || material.color || material.texture.empty()) {
        numbers.first = mMaterialCount++;
        addMaterial(material, colors);
      }
      if (const std::string_view type = imageType(material.texture); !type.empty()) {
        numbers.second = mTextureCount++;
        mTextures += fmt::format(R"({}{{"type":"{}","image":{}}})", numbers.second > 0 ? "," : "", type,
                                 inJson(material.texture));
      } else if (!material.texture.empty()) {
        ++unknownImages;
      }
      if (!material.definition.empty()) ++definitions;
      mNumbers.materials.push_back(numbers);
    }
    mContext.notes().add("images of materials that are neither PNG nor JPEG", unknownImages);
    mContext.notes().add("digits of opacities", colors);
    mContext.notes().add("properties of materials besides name, color and image", definitions);
  }

  void addMaterial(const Material& material, std::size_t& rounded) {
    mMaterials += fmt::format("{}{{\"name\":{}", mMaterialCount > 1 ? "," : "", inJson(material.name));
    if (material.color) {
      const auto& color = *material.color;
      mMaterials += fmt::format(",\"diffuseColor\":[{},{},{}]", color[0], color[1], color[2]);
      const double transparency = 1 - color[3];
      if (1 - transparency != color[3]) ++rounded;
      if (transparency != 0) mMaterials += fmt::format(",\"transparency\":{}", transparency);
    }
    mMaterials += "}";
  }

  std::string inJson(const std::string& text) {
    bool isChanged = false;
    std::string result = encoded(text, isChanged);
    if (isChanged) mContext.notes().add("bytes of names that are not UTF-8, in materials");
    return result;
  }

  static std::string_view imageType(std::string name) {
    for (char& c : name)
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (name.ends_with(".png")) return "PNG";
    return name.ends_with(".jpg") || name.ends_with(".jpeg") ? "JPG" : "";
  }

  void writeObjects(const std::vector<std::vector<std::uint32_t>>& vertices) {
    Ids ids(mContext.notes());
    CityJsonGeometryWriter writer(mModel, mNumbers, mTexCoords, mContext.notes());
    bool isFirst = true;
    for (std::size_t i = 0; i < mModel.objects.size(); ++i) {
      const Object& object = mModel.objects[i];
      if (object.mesh.counts.empty()) continue;
      mContext.output().text(isFirst ? "\n" : ",\n");
      isFirst = false;
      mContext.output().text(newCityObject(ids.make(object, i), writer.write(object, vertices[i], nullptr)));
    }
  }

  void writeAppearance() {
    if (mMaterials.empty() && mTextures.empty()) return;
    Output& out = mContext.output();
    out.text(",\n\"appearance\":{\"materials\":[");
    out.text(mMaterials);
    out.text("],\"textures\":[");
    out.text(mTextures);
    out.text("],\"vertices-texture\":[");
    for (std::size_t i = 0; i < mTexCoords.added().size(); i += 2) {
      out.text(i > 0 ? ",[" : "[");
      out.number(mTexCoords.added()[i]);
      out.letter(',');
      out.number(mTexCoords.added()[i + 1]);
      out.letter(']');
    }
    out.text("]}");
  }

  const Model& mModel;
  WriteContext& mContext;
  CityJsonVertices mVertices;
  NumberedTuples<2> mTexCoords;
  CityJsonNumbers mNumbers;
  std::string mMaterials, mTextures;  // of the appearance
  std::uint32_t mMaterialCount = 0, mTextureCount = 0;
};

}  // namespace

void writeCityJson(const Model& model, WriteContext& context) {
  if (const auto* document = dynamic_cast<const CityJsonDocument*>(model.document.get()))
    FileUpdate(model, *document, context).write();
  else
    NewFile(model, context).write();
}

}  // namespace facetbox
