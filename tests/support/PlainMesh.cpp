#include <tests/support/PlainMesh.h>

#include <sstream>

#include <facetbox/math/Predicates.h>

namespace support {
namespace {

/// Exact, and every NaN alike.
std::string textOf(double c) {
  std::ostringstream out;
  out << ' ' << std::hexfloat << c;
  return std::isnan(c) ? " nan" : std::move(out).str();
}
std::string textOf(const Vec3& v) { return textOf(v.x) + textOf(v.y) + textOf(v.z); }

template <class List>
std::string textOf(const std::string& name, const List& indices) {
  std::string text = ' ' + name + '[';
  for (const std::uint32_t i : indices) text += ' ' + std::to_string(i);
  return text + " ]";
}

bool liesInside(const PlainMesh& mesh, std::uint32_t hole, std::uint32_t outer) {
  const int holeAxis = util::dominantAxis(mesh.mFaces[hole].mNormal);
  const auto a = seen(mesh, outer, util::dominantAxis(mesh.mFaces[outer].mNormal));
  const auto b = seen(mesh, hole, util::dominantAxis(mesh.mFaces[outer].mNormal));
  return countInside(seen(mesh, hole, holeAxis), seen(mesh, outer, holeAxis)) == 0 && countInside(a, b) == b.size() &&
         !edgesTouch(a, b);
}

}  // namespace

void PlainFace::clear() {
  shrink(0);
  mSets.clear();
  mTag = -1;
}

void PlainFace::shrink(std::size_t count) {
  mCorners.resize(count);
  if (!mNormalIndices.empty()) mNormalIndices.resize(count);
  for (auto& [set, indices] : mSets) indices.resize(count);
}

PlainFace plainOf(const util::Polygon& record) {
  PlainFace face;
  face.mCorners.assign(record.mVertexIndices.begin(), record.mVertexIndices.end());
  face.mNormalIndices.assign(record.mNormalIndices.begin(), record.mNormalIndices.end());
  auto next = record.mTexCoordIndices.begin();
  for (int set = 0; set < 32; ++set) {
    if ((record.mTexCoordMask >> set & 1) == 0) continue;
    face.mSets[set].assign(next, next + record.mTexCoordCount);
    next += record.mTexCoordCount;
  }
  face.mNormal = record.mNormal;
  face.mPerVertexNormals = record.mPerVertexNormals != 0;
  face.mTag = record.mTag;
  return face;
}

util::Polygon polygonOf(const PlainFace& face) {
  util::Polygon record;
  record.mVertexIndices.assign(face.mCorners.begin(), face.mCorners.end());
  record.mNormalIndices.assign(face.mNormalIndices.begin(), face.mNormalIndices.end());
  for (const auto& [set, indices] : face.mSets) {
    record.mTexCoordCount = static_cast<std::uint32_t>(indices.size());
    record.mTexCoordMask |= 1u << set;
    record.mTexCoordIndices.insert(record.mTexCoordIndices.end(), indices.begin(), indices.end());
  }
  record.mNormal = face.mNormal;
  record.mPerVertexNormals = face.mPerVertexNormals ? 1 : 0;
  record.mTag = face.mTag;
  return record;
}

std::string describe(const PlainFace& face) {
  std::string text = textOf("corners", face.mCorners) + textOf("normals", face.mNormalIndices);
  for (const auto& [set, indices] : face.mSets) text += textOf("set" + std::to_string(set), indices);
  return text + textOf(face.mNormal) + (face.mPerVertexNormals ? " flag tag " : " tag ") + std::to_string(face.mTag);
}

void PlainMesh::makeLines() {
  mLines = std::move(mFaces);
  mFaces.clear();
  mHoles.clear();
}

PlainMesh plainOf(const Mesh& mesh) {
  const util::MeshStorage& m = mesh.storage();
  PlainMesh plain;
  plain.mVertices.assign(m.mVertices.begin(), m.mVertices.end());
  const auto copy = [](const util::PrimitiveList& from, std::vector<PlainFace>& to) {
    for (std::size_t i = 0; i < from.size(); ++i) to.push_back(plainOf(from.record(i)));
  };
  copy(m.mFaces, plain.mFaces);
  copy(m.mLines, plain.mLines);
  plain.mDefaultMaterial = m.mDefaultMaterial;
  plain.mRunMaterials = m.mRunMaterials;
  plain.mRunStarts.assign(m.mRunStarts.begin(), m.mRunStarts.end());
  Indices group;
  for (const std::uint32_t entry : m.mHoles.list()) {
    if (entry == kEnd && !group.empty()) plain.mHoles[group[0]].assign(group.begin() + 1, group.end());
    if (entry == kEnd)
      group.clear();
    else
      group.push_back(entry);
  }
  for (const auto& list : m.mVertexIndexLists) plain.mVertexIndexLists.emplace_back(list.begin(), list.end());
  for (int set = 0; set < 10; ++set)
    if (const auto& pairs = m.mTexCoords[set]; !pairs.empty()) plain.mTexCoords[set].assign(pairs.begin(), pairs.end());
  plain.mTagSets = m.mTagSets;
  return plain;
}

Mesh buildMesh(const PlainMesh& plain) {
  const auto records = [](const std::vector<PlainFace>& faces) {
    std::vector<util::Polygon> polygons;
    for (const PlainFace& face : faces) polygons.push_back(polygonOf(face));
    return polygons;
  };
  Mesh mesh = plain.mLines.empty() ? Mesh("", plain.mVertices, records(plain.mFaces))
                                   : Mesh("", plain.mVertices, records(plain.mLines), {});
  util::MeshStorage& m = mesh.storage();
  m.mNormals.resize(100, {0, 0, 1});
  m.mDefaultMaterial = plain.mDefaultMaterial;
  m.mRunMaterials = plain.mRunMaterials;
  m.mRunStarts.assign(plain.mRunStarts.begin(), plain.mRunStarts.end());
  for (const auto& [outer, holes] : plain.mHoles) {
    m.mHoles.append(&outer, 1);
    m.mHoles.append(holes.data(), holes.size());
    m.mHoles.append(&kEnd, 1);
  }
  for (const Indices& list : plain.mVertexIndexLists) m.mVertexIndexLists.emplace_back(list.begin(), list.end());
  for (const auto& [set, pairs] : plain.mTexCoords) m.mTexCoords[set].assign(pairs.begin(), pairs.end());
  m.mTagSets = plain.mTagSets;
  warmCache(mesh);
  return mesh;
}

std::string describe(const PlainMesh& mesh) {
  std::string text;
  for (const Vec3& v : mesh.mVertices) text += "vertex" + textOf(v) + '\n';
  for (const auto* list : {&mesh.mFaces, &mesh.mLines}) {
    for (const PlainFace& face : *list) text += describe(face) + '\n';
    text += "end of list\n";
  }
  text += "default " + mesh.mDefaultMaterial.first->name() + textOf("starts", mesh.mRunStarts);
  for (const util::MaterialPair& material : mesh.mRunMaterials) text += " run " + material.first->name();
  for (const auto& [outer, holes] : mesh.mHoles) text += textOf("\nholes of " + std::to_string(outer), holes);
  for (const Indices& list : mesh.mVertexIndexLists) text += textOf("list", list);
  for (const auto& [set, pairs] : mesh.mTexCoords)
    for (const Vec2& p : pairs) text += "\npair" + textOf(p.x) + textOf(p.y);
  for (const auto& tags : mesh.mTagSets) text += textOf("tags", tags);
  return text;
}

void expectSame(const Mesh& mesh, const PlainMesh& twin) {
  EXPECT_EQ(describe(plainOf(mesh)), describe(twin));
  expectConsistent(mesh);
}

bool removeRepeatedIndices(PlainFace& face) {
  Indices& v = face.mCorners;
  const std::size_t n = v.size();
  std::size_t w = 0;
  const auto handOver = [&](std::size_t from) {
    if (w == from) return;
    if (face.mPerVertexNormals && !face.mNormalIndices.empty()) face.mNormalIndices[w] = face.mNormalIndices[from];
    if (face.mSets.contains(10)) face.mSets[10][w] = face.mSets[10][from];
  };
  for (std::size_t r = 1; r < n; ++r) {
    if (v[r] == v[w]) continue;
    handOver(r - 1);
    ++w;
    if (w == r) continue;
    v[w] = v[r];
    if (!face.mNormalIndices.empty()) face.mNormalIndices[w] = face.mNormalIndices[r];
    for (auto& [set, indices] : face.mSets)
      if (set != 10) indices[w] = indices[r];
  }
  handOver(n - 1);
  const std::size_t count = v[w] != v[0] ? w + 1 : w;
  if (count < 3) {
    face.clear();
    return true;
  }
  face.shrink(count);
  return count < n;
}

bool sanitizeFaces(PlainMesh& mesh) {
  bool changed = false;
  for (PlainFace& face : mesh.mFaces)
    if (!face.isCleared() && removeRepeatedIndices(face)) changed = true;
  for (const auto& [k, holes] : mesh.mHoles)
    for (const std::uint32_t j : holes) {
      if (mesh.mFaces[j].isCleared()) continue;
      if (!mesh.mFaces[k].isCleared() && liesInside(mesh, j, k)) continue;
      mesh.mFaces[j].clear();
      changed = true;
    }
  compactPrimitives(mesh);
  return changed;
}

void compactPrimitives(PlainMesh& mesh) {
  std::vector<PlainFace>& list = mesh.primitives();
  std::size_t dropped = 0;
  for (std::uint32_t r = 0; r - dropped < list.size(); ++r) {
    for (std::uint32_t& start : mesh.mRunStarts)
      if (start == r) start -= static_cast<std::uint32_t>(dropped);
    if (!list[r - dropped].isCleared()) continue;
    // Holes already speak of the list as it stands after the drops so far.
    const auto gone = static_cast<std::uint32_t>(r - dropped);
    std::map<std::uint32_t, Indices> lowered;
    for (auto& [outer, holes] : mesh.mHoles) {
      if (outer == gone) continue;
      std::erase(holes, gone);
      for (std::uint32_t& hole : holes)
        if (hole > gone) --hole;
      lowered[outer > gone ? outer - 1 : outer] = holes;
    }
    mesh.mHoles = lowered;
    list.erase(list.begin() + gone);
    ++dropped;
  }
}

void removeUnusedVertices(PlainMesh& mesh) {
  const std::array lists{&mesh.mFaces, &mesh.mLines};
  for (std::size_t v = mesh.mVertices.size(); v-- > 0;) {
    bool used = false;
    for (auto* list : lists)
      for (const PlainFace& face : *list) used = used || std::ranges::count(face.mCorners, v) > 0;
    if (used) continue;
    mesh.mVertices.erase(mesh.mVertices.begin() + v);
    if (!mesh.mVertexIndexLists.empty()) mesh.mVertexIndexLists.erase(mesh.mVertexIndexLists.begin() + v);
    for (auto* list : lists)
      for (PlainFace& face : *list)
        for (std::uint32_t& corner : face.mCorners)
          if (corner > v) --corner;
  }
}

Indices validatedHoles(const Indices& list, std::size_t faceCount) {
  if (list.size() < 2 || list.back() != kEnd) return {};
  Faces groups;
  for (auto entry = list.begin(); entry != list.end(); ++entry) {
    const auto end = std::find(entry, list.end(), kEnd);
    if (entry != end && *entry < faceCount) {
      auto group = std::ranges::find(groups, *entry, [](const Indices& g) { return g[0]; });
      if (group == groups.end()) group = groups.insert(groups.end(), Indices{*entry});
      for (; entry != end; ++entry)
        if (*entry < faceCount && std::ranges::count(*group, *entry) == 0) group->push_back(*entry);
    }
    entry = end;
  }
  Indices result;
  for (Indices& group : groups) {
    group.push_back(kEnd);
    result.insert(result.end(), group.begin(), group.end());
  }
  return result;
}

Indices renumberedHoles(const Indices& list, const std::vector<bool>& kept) {
  if (list.size() < 2 || list.back() != kEnd) return list;
  const auto isGone = [&](std::uint32_t face) { return face < kept.size() && !kept[face]; };
  Indices result;
  for (auto group = list.begin(); group != list.end();) {
    const auto end = std::find(group, list.end(), kEnd);
    if (group == end || !isGone(*group)) {
      for (; group != end; ++group)
        if (!isGone(*group))
          result.push_back(*group >= kept.size()
                               ? *group
                               : static_cast<std::uint32_t>(std::count(kept.begin(), kept.begin() + *group, true)));
      result.push_back(kEnd);
    }
    group = end + 1;
  }
  return result;
}

std::vector<Vec2> seen(const PlainMesh& mesh, std::uint32_t face, int axis) {
  std::vector<Vec2> points;
  for (const std::uint32_t v : mesh.mFaces[face].mCorners) points.push_back(util::project(mesh.mVertices[v], axis));
  return points;
}

std::size_t countInside(const std::vector<Vec2>& polygon, const std::vector<Vec2>& points) {
  return std::ranges::count_if(points, [&](Vec2 p) { return util::strictlyInside(polygon, p); });
}

bool edgesTouch(const std::vector<Vec2>& a, const std::vector<Vec2>& b) {
  if (a.size() < 3 || b.size() < 3) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < b.size(); ++j)
      if (util::segmentsTouch(a[i], a[(i + 1) % a.size()], b[j], b[(j + 1) % b.size()])) return true;
  return false;
}

util::MaterialPair materialOf(const std::string& name) { return {util::intern(util::Shader(name)), {}}; }

PlainFace randomFace(std::mt19937& random, int vertexCount, int fewestCorners, int mostCorners) {
  PlainFace face;
  const int n = pick(random, fewestCorners, mostCorners);
  face.mCorners = randomIndices(random, n, vertexCount);
  if (oneIn(random, 2)) face.mNormalIndices = randomIndices(random, n, 100);
  for (const int set : {0, 3, 10, 11})
    if (oneIn(random, 3)) face.mSets[set] = randomIndices(random, n, 100);
  for (double* c : {&face.mNormal.x, &face.mNormal.y, &face.mNormal.z}) *c = pick(random, -2, 2);
  face.mPerVertexNormals = oneIn(random, 2);
  face.mTag = pick(random, -1, 2);
  return face;
}

PlainMesh randomFaceMesh(std::mt19937& random, double scale) {
  PlainMesh mesh;
  const auto grid = [&](int low, int high) { return scale * pick(random, low, high); };
  const int vertexCount = pick(random, 3, 12);
  for (int v = 0; v < vertexCount; ++v) mesh.mVertices.push_back({grid(0, 3), grid(0, 3), grid(0, 1)});
  for (int crumpled = pick(random, 1, 6); crumpled > 0; --crumpled)
    mesh.mFaces.push_back(randomFace(random, vertexCount, 3, 7));

  const auto addSquare = [&](Vec3 corner, double size, int axis) {
    PlainFace& square = mesh.mFaces.emplace_back();
    for (const auto& [s, t] : {std::pair(0., 0.), {size, 0.}, {size, size}, {0., size}}) {
      square.mCorners.push_back(static_cast<std::uint32_t>(mesh.mVertices.size()));
      const Vec3 p{corner.x + s, corner.y + t, corner.z};
      mesh.mVertices.push_back(axis == 0 ? Vec3{p.z, p.x, p.y} : axis == 1 ? Vec3{p.y, p.z, p.x} : p);
    }
    return static_cast<std::uint32_t>(mesh.mFaces.size() - 1);
  };
  for (int group = pick(random, 0, 3); group > 0; --group) {
    const int axis = pick(random, 0, 2);
    Indices& holes = mesh.mHoles[addSquare({0, 0, grid(0, 9)}, 10 * scale, axis)];
    for (int hole = pick(random, 0, 4); hole > 0; --hole)
      holes.push_back(addSquare({grid(-1, 9), grid(-1, 9), grid(0, 9)}, grid(1, 3), axis));
    if (oneIn(random, 2)) std::ranges::reverse(holes);
  }
  for (PlainFace& face : mesh.mFaces) face.mNormal = normalOf(mesh.mVertices, face.mCorners);

  for (int run = pick(random, 0, 4); run > 0; --run) {
    mesh.mRunMaterials.push_back(materialOf(std::string(1, static_cast<char>('a' + pick(random, 0, 2)))));
    mesh.mRunStarts.push_back(below(random, mesh.mFaces.size() + 2));
  }
  if (!oneIn(random, 4)) std::ranges::sort(mesh.mRunStarts);
  if (oneIn(random, 2))
    for (std::uint32_t v = 0; v < mesh.mVertices.size(); ++v) mesh.mVertexIndexLists.push_back(Indices(v % 3, v));
  return mesh;
}

}  // namespace support
