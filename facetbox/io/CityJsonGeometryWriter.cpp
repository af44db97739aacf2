#include <facetbox/io/CityJsonGeometryWriter.h>

#include <algorithm>
#include <map>

#include <facetbox/PolyMesh.h>

namespace facetbox {
namespace {

using Members = std::vector<std::pair<std::string_view, std::string>>;

std::string inJson(std::string_view text) {
  bool isChanged = false;
  return encoded(text, isChanged);
}

// The level that a solid's faces go down to when they are no solid any more.
constexpr std::size_t kFlat = CityJsonShape::kShell;

}  // namespace

std::string withMembers(std::string_view object, std::span<const std::pair<std::string_view, std::string>> members) {
  std::vector<bool> isDone(members.size(), false);
  std::string text = "{";
  const auto separate = [&] {
    if (text.size() > 1) text += ',';
  };
  JsonCursor cursor(object);
  cursor.enter();
  const char* end = object.data() + 1;  // of what was dealt with
  while (cursor.next()) {
    const char* const start = *end == ',' ? end + 1 : end;
    const std::string name = decoded(cursor.key());
    const char* const valueStart = cursor.at();
    const std::string_view value = cursor.skip();
    end = cursor.at();
    const auto known = std::find_if(members.begin(), members.end(), [&](const auto& m) { return m.first == name; });
    if (known != members.end()) isDone[static_cast<std::size_t>(known - members.begin())] = true;
    if (known != members.end() && known->second.empty()) continue;
    separate();
    text.append(start, valueStart);
    text += known != members.end() ? std::string_view(known->second) : value;
  }
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (isDone[i] || members[i].second.empty()) continue;
    separate();
    text += inJson(members[i].first) + ":" + members[i].second;
  }
  return text + "}";
}

CityJsonGeometryWriter::Faces CityJsonGeometryWriter::facesOf(const Object& object) {
  const PolyMesh& mesh = object.mesh;
  const std::size_t count = mesh.counts.size();
  Faces faces = {object, {}, std::vector<std::uint32_t>(count, kNone), std::vector<bool>(count, false)};
  faces.firstCorners.reserve(count);
  std::size_t corner = 0;
  for (const std::uint32_t corners : mesh.counts) {
    faces.firstCorners.push_back(corner);
    corner += corners;
  }
  bool isOuter = true;
  for (std::size_t i = 0; i < mesh.holes.size(); ++i) {
    const std::uint32_t face = mesh.holes[i];
    if (face != kNone && isOuter) faces.groups[face] = static_cast<std::uint32_t>(i);
    if (face != kNone && !isOuter) faces.isHole[face] = true;
    isOuter = face == kNone;
  }
  return faces;
}

Mark CityJsonGeometryWriter::markOf(const Faces& faces, std::uint32_t face) const {
  const std::vector<std::uint32_t>& labels = faces.object.mesh.labels;
  return labels.empty() || labels[face] >= mModel.marks.size() ? Mark() : mModel.marks[labels[face]];
}

CityJsonGeometryWriter::Nest CityJsonGeometryWriter::nestOf(const Faces& faces, const CityJsonGeometry* original) {
  const auto count = static_cast<std::uint32_t>(faces.isHole.size());
  std::vector<std::uint32_t> sizes = {1};  // shells per solid
  if (original != nullptr && original->top > kFlat) sizes = original->shellsPerSolid;
  std::vector<std::pair<std::size_t, std::size_t>> places;  // solid and shell of each part
  Nest nest;
  nest.top = original != nullptr ? original->top : kFlat;
  for (std::size_t solid = 0; solid < sizes.size(); ++solid) {
    nest.solids.emplace_back(sizes[solid]);
    for (std::size_t shell = 0; shell < sizes[solid]; ++shell) places.emplace_back(solid, shell);
  }
  bool isWhole = true;
  std::vector<std::uint32_t> all;
  for (std::uint32_t face = 0; face < count; ++face) {
    if (faces.isHole[face]) continue;
    all.push_back(face);
    const std::size_t part = places.size() == 1 ? 0 : markOf(faces, face).part;
    isWhole = isWhole && part < places.size();
    if (isWhole) nest.solids[places[part].first][places[part].second].push_back(face);
  }
  // What is around a cavity must not be the cavity.
  for (const auto& shells : nest.solids)
    isWhole = isWhole && (shells.empty() || !shells.front().empty() ||
                          std::all_of(shells.begin(), shells.end(), [](const auto& shell) { return shell.empty(); }));
  if (isWhole) {
    for (auto& shells : nest.solids) std::erase_if(shells, [](const auto& shell) { return shell.empty(); });
    std::erase_if(nest.solids, [](const auto& shells) { return shells.empty(); });
    return nest;
  }
  mNotes.add("solids whose outer shell is gone, written as MultiSurface");
  return {kFlat, {{std::move(all)}}};
}

// The arrays around leaf(face, text).
template <typename Leaf>
std::string CityJsonGeometryWriter::nested(const Nest& nest, const Leaf& leaf) {
  std::string text;
  const auto list = [&text](const auto& items, auto&& write) {
    text += '[';
    for (std::size_t i = 0; i < items.size(); ++i) {
      if (i > 0) text += ',';
      write(items[i]);
    }
    text += ']';
  };
  const auto writeShell = [&](const auto& shell) { list(shell, [&](std::uint32_t face) { leaf(text, face); }); };
  const auto writeSolid = [&](const auto& solid) { list(solid, writeShell); };
  if (nest.top == CityJsonShape::kSolids)
    list(nest.solids, writeSolid);
  else if (nest.top == CityJsonShape::kSolid)
    writeSolid(nest.solids.front());
  else
    writeShell(nest.solids.front().front());
  return text;
}

// The outline and the holes of a face, each through ring(text, face).
template <typename Ring>
void CityJsonGeometryWriter::appendSurface(std::string& text, const Faces& faces, std::uint32_t face,
                                           const Ring& ring) {
  text += '[';
  ring(text, face);
  if (faces.groups[face] != kNone)
    for (std::size_t i = faces.groups[face] + std::size_t{1}; faces.object.mesh.holes[i] != kNone; ++i) {
      text += ',';
      ring(text, faces.object.mesh.holes[i]);
    }
  text += ']';
}

std::string CityJsonGeometryWriter::boundaries(const Faces& faces, const Nest& nest,
                                               std::span<const std::uint32_t> vertices) const {
  const PolyMesh& mesh = faces.object.mesh;
  const auto ring = [&](std::string& text, std::uint32_t face) {
    text += '[';
    for (std::uint32_t corner = 0; corner < mesh.counts[face]; ++corner) {
      if (corner > 0) text += ',';
      text += std::to_string(vertices[mesh.indices[faces.firstCorners[face] + corner]]);
    }
    text += ']';
  };
  return nested(nest, [&](std::string& text, std::uint32_t face) { appendSurface(text, faces, face, ring); });
}

// Links between semantic surfaces are numbers in their own list: they would mislead in another.
std::string CityJsonGeometryWriter::definitionOf(const Semantics& semantics) {
  if (mModel.format != Format::cityJson || semantics.definition.empty())
    return "{\"type\":" + inJson(semantics.type) + "}";
  const std::string text = withMembers(semantics.definition, Members{{"parent", ""}, {"children", ""}});
  if (text != withMembers(semantics.definition, {})) mNotes.add("links between semantic surfaces");
  return text;
}

std::string CityJsonGeometryWriter::semantics(const Faces& faces, const Nest& nest, const CityJsonGeometry* original) {
  std::map<std::uint32_t, std::size_t> numbers;  // of Model::semantics in the list of this geometry
  std::map<std::uint32_t, std::size_t> known;    // of the original's semantics
  std::string added;
  std::size_t count = 0;
  bool isAny = false;
  if (original != nullptr)
    for (const std::uint32_t number : original->semanticsNumbers) known.try_emplace(number, count++);
  const std::size_t knownCount = count;
  std::string values = nested(nest, [&](std::string& text, std::uint32_t face) {
    const std::uint32_t index = markOf(faces, face).semantics;
    if (index >= mModel.semantics.size()) {
      text += "null";
      return;
    }
    isAny = true;
    const auto [at, isNew] = numbers.try_emplace(index, count);
    if (isNew) {
      const std::uint32_t number = index < mNumbers.semantics.size() ? mNumbers.semantics[index] : kNone;
      if (const auto old = known.find(number); old != known.end()) {
        at->second = old->second;
      } else {
        if (count++ > 0) added += ',';
        added += definitionOf(mModel.semantics[index]);
      }
    }
    text += std::to_string(at->second);
  });
  if (original == nullptr || original->semantics.data() == nullptr)
    return isAny ? "{\"surfaces\":[" + added + "],\"values\":" + values + "}" : "";
  Members members = {{"values", std::move(values)}};
  if (count > knownCount) {
    JsonCursor cursor(original->semantics);
    std::string surfaces;
    for (cursor.enter(); cursor.next();) {
      const bool isWanted = decoded(cursor.key()) == "surfaces";
      const std::string_view value = cursor.skip();
      if (isWanted) surfaces = value.substr(0, value.size() - 1);
    }
    members.emplace_back("surfaces", surfaces + added + "]");
  }
  return withMembers(original->semantics, members);
}

std::string CityJsonGeometryWriter::material(const Faces& faces, const Nest& nest, const CityJsonGeometry* original) {
  bool isAny = false;
  const std::string values = nested(nest, [&](std::string& text, std::uint32_t face) {
    const std::uint32_t material = markOf(faces, face).material;
    const std::uint32_t number = material < mNumbers.materials.size() ? mNumbers.materials[material].first : kNone;
    isAny = isAny || number != kNone;
    text += number == kNone ? "null" : std::to_string(number);
  });
  if (!isAny) return {};
  const std::string theme = original != nullptr ? original->materialTheme : "";
  return "{" + inJson(theme) + ":{\"values\":" + values + "}}";
}

std::string CityJsonGeometryWriter::texture(const Faces& faces, const Nest& nest, const CityJsonGeometry* original) {
  const PolyMesh& mesh = faces.object.mesh;
  if (mesh.texIndices.empty()) return {};
  bool isAny = false;
  const auto ring = [&](std::string& text, std::uint32_t face) {
    const std::uint32_t material = markOf(faces, face).material;
    const std::uint32_t number = material < mNumbers.materials.size() ? mNumbers.materials[material].second : kNone;
    const std::size_t first = faces.firstCorners[face];
    if (number == kNone || mesh.counts[face] == 0 || mesh.texIndices[first] == kNone) {
      text += "[null]";
      return;
    }
    isAny = true;
    text += "[" + std::to_string(number);
    for (std::size_t corner = first; corner < first + mesh.counts[face]; ++corner) {
      const std::size_t pair = mesh.texIndices[corner];
      text += ',' + std::to_string(mTexCoords.numberOf({mesh.texCoords[2 * pair], mesh.texCoords[2 * pair + 1]}));
    }
    text += ']';
  };
  const std::string values =
      nested(nest, [&](std::string& text, std::uint32_t face) { appendSurface(text, faces, face, ring); });
  if (!isAny) return {};
  const std::string theme = original != nullptr ? original->textureTheme : "";
  return "{" + inJson(theme) + ":{\"values\":" + values + "}}";
}

void CityJsonGeometryWriter::noteLost(const Faces& faces) {
  const PolyMesh& mesh = faces.object.mesh;
  std::size_t groups = 0, bareCoords = 0, bareTextures = 0, parts = 0;
  for (std::uint32_t face = 0; face < mesh.counts.size(); ++face) {
    const Mark mark = markOf(faces, face);
    if (mark.group != kNone) ++groups;
    const bool hasCoords =
        !mesh.texIndices.empty() && mesh.counts[face] > 0 && mesh.texIndices[faces.firstCorners[face]] != kNone;
    const bool hasTexture =
        mark.material < mNumbers.materials.size() && mNumbers.materials[mark.material].second != kNone;
    if (hasCoords && !hasTexture) ++bareCoords;
    if (hasTexture && !hasCoords) ++bareTextures;
  }
  for (std::size_t i = 0, outer = 0; i < mesh.holes.size(); ++i) {
    if (mesh.holes[i] == kNone) {
      outer = i + 1;
      continue;
    }
    const Mark mark = markOf(faces, mesh.holes[i]), around = markOf(faces, mesh.holes[outer]);
    if (mark.semantics != around.semantics || mark.part != around.part) ++parts;
  }
  mNotes.add("groups of faces", groups);
  mNotes.add("texture coordinates of faces without an image", bareCoords);
  mNotes.add("images of faces without texture coordinates", bareTextures);
  mNotes.add("marks of holes that differ from those of their faces", parts);
}

std::string CityJsonGeometryWriter::write(const Object& object, std::span<const std::uint32_t> vertices,
                                          const CityJsonGeometry* original) {
  const Faces faces = facesOf(object);
  const Nest nest = nestOf(faces, original);
  noteLost(faces);
  Members members = {{"boundaries", boundaries(faces, nest, vertices)},
                     {"semantics", semantics(faces, nest, original)},
                     {"material", material(faces, nest, original)},
                     {"texture", texture(faces, nest, original)}};
  if (original != nullptr && nest.top != original->top) members.emplace_back("type", "\"MultiSurface\"");
  // The standard wants a level of detail; 3 is the one for models of any detail.
  return withMembers(original != nullptr ? original->text : std::string_view(R"({"type":"MultiSurface","lod":"3"})"),
                     members);
}

}  // namespace facetbox
