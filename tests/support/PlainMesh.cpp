#include <algorithm>
#include <cmath>
#include <span>
#include <sstream>

#include <facetbox/util/math/Predicates.h>
#include <facetbox/util/mesh/MeshStorage.h>
#include <facetbox/util/mesh/PolygonArea.h>
#include <tests/support/PlainMesh.h>

namespace support {
namespace {

/// Exact, and every NaN alike.
void describe(std::ostream& out, const util::Vec3& v) {
  for (const double c : {v.x, v.y, v.z}) {
    out << ' ';
    if (std::isnan(c))
      out << "nan";
    else
      out << std::hexfloat << c;
  }
}

void describe(std::ostream& out, const char* name, const Indices& indices) {
  out << ' ' << name << '[';
  for (const std::uint32_t i : indices) out << ' ' << i;
  out << " ]";
}

std::vector<util::Vec2> projected(const PlainMesh& mesh, const PlainFace& face, int axis) {
  std::vector<util::Vec2> points;
  for (const std::uint32_t v : face.mCorners) points.push_back(util::project(mesh.mVertices[v], axis));
  return points;
}

bool liesInside(const PlainMesh& mesh, const PlainFace& hole, const PlainFace& outer) {
  const int holeAxis = util::dominantAxis(hole.mNormal), axis = util::dominantAxis(outer.mNormal);
  for (const util::Vec2 p : projected(mesh, outer, holeAxis))
    if (util::strictlyInside(projected(mesh, hole, holeAxis), p)) return false;
  const auto a = projected(mesh, outer, axis), b = projected(mesh, hole, axis);
  for (const util::Vec2 p : b)
    if (!util::strictlyInside(a, p)) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < b.size(); ++j)
      if (util::segmentsTouch(a[i], a[(i + 1) % a.size()], b[j], b[(j + 1) % b.size()])) return false;
  return true;
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
  std::ostringstream out;
  describe(out, "corners", face.mCorners);
  describe(out, "normals", face.mNormalIndices);
  for (const auto& [set, indices] : face.mSets) describe(out, ("set" + std::to_string(set)).c_str(), indices);
  describe(out, face.mNormal);
  out << (face.mPerVertexNormals ? " flag" : "") << " tag " << face.mTag;
  return std::move(out).str();
}

PlainMesh plainOf(const util::Mesh& mesh) {
  const util::MeshStorage& m = mesh.storage();
  PlainMesh plain;
  plain.mVertices.assign(m.mVertices.begin(), m.mVertices.end());
  const auto copy = [](const util::PrimitiveList& from, std::vector<PlainFace>& to) {
    for (std::size_t i = 0; i < from.size(); ++i) to.push_back(plainOf(from.record(i)));
  };
  copy(m.mFaces, plain.mFaces);
  copy(m.mLines, plain.mLines);
  copy(m.mPoints, plain.mPoints);
  plain.mDefaultMaterial = m.mDefaultMaterial;
  plain.mRunMaterials = m.mRunMaterials;
  plain.mRunStarts.assign(m.mRunStarts.begin(), m.mRunStarts.end());
  for (auto entry = m.mHoles.list().begin(); entry != m.mHoles.list().end(); ++entry) {
    Indices& holes = plain.mHoles[*entry];
    while (*++entry != kEnd) holes.push_back(*entry);
  }
  for (const auto& list : m.mVertexIndexLists) plain.mVertexIndexLists.emplace_back(list.begin(), list.end());
  return plain;
}

util::Mesh buildMesh(const PlainMesh& plain) {
  const auto records = [](const std::vector<PlainFace>& faces) {
    std::vector<util::Polygon> polygons;
    for (const PlainFace& face : faces) polygons.push_back(polygonOf(face));
    return polygons;
  };
  util::Mesh mesh = plain.mFaces.empty()
                        ? util::Mesh("", plain.mVertices, records(plain.mLines), records(plain.mPoints))
                        : util::Mesh("", plain.mVertices, records(plain.mFaces));
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
  return mesh;
}

std::string describe(const PlainMesh& mesh) {
  std::ostringstream out;
  for (const util::Vec3& v : mesh.mVertices) {
    out << "vertex";
    describe(out, v);
    out << '\n';
  }
  for (const PlainFace& face : mesh.mFaces) out << "face" << describe(face) << '\n';
  for (const PlainFace& line : mesh.mLines) out << "line" << describe(line) << '\n';
  for (const PlainFace& point : mesh.mPoints) out << "point" << describe(point) << '\n';
  out << "default " << mesh.mDefaultMaterial.first->name() << '\n';
  for (const util::MaterialPair& material : mesh.mRunMaterials) out << "run " << material.first->name() << '\n';
  describe(out, "starts", mesh.mRunStarts);
  for (const auto& [outer, holes] : mesh.mHoles) {
    out << "\nouter " << outer;
    describe(out, "holes", holes);
  }
  for (const Indices& list : mesh.mVertexIndexLists) describe(out, "list", list);
  return std::move(out).str();
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
  const std::ptrdiff_t m = static_cast<std::ptrdiff_t>(w) - (v[w] != v[0] ? 0 : 1);
  if (m < 2) {
    face.clear();
    return true;
  }
  const auto count = static_cast<std::size_t>(m) + 1;
  if (count == n) return false;
  face.shrink(count);
  return true;
}

bool sanitizeFaces(PlainMesh& mesh) {
  bool changed = false;
  for (PlainFace& face : mesh.mFaces)
    if (!face.isCleared() && removeRepeatedIndices(face)) changed = true;
  for (const auto& [k, holes] : mesh.mHoles)
    for (const std::uint32_t j : holes) {
      if (mesh.mFaces[j].isCleared()) continue;
      if (!mesh.mFaces[k].isCleared() && liesInside(mesh, mesh.mFaces[j], mesh.mFaces[k])) continue;
      mesh.mFaces[j].clear();
      changed = true;
    }
  compactPrimitives(mesh);
  return changed;
}

void compactPrimitives(PlainMesh& mesh) {
  std::vector<PlainFace>& list = !mesh.mPoints.empty()  ? mesh.mPoints
                                 : !mesh.mLines.empty() ? mesh.mLines
                                                        : mesh.mFaces;
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
  const bool withLists = !mesh.mVertexIndexLists.empty();
  for (std::size_t v = mesh.mVertices.size(); v-- > 0;) {
    bool used = false;
    for (auto* list : {&mesh.mFaces, &mesh.mLines, &mesh.mPoints})
      for (const PlainFace& face : *list) used = used || std::ranges::count(face.mCorners, v) > 0;
    if (used) continue;
    mesh.mVertices.erase(mesh.mVertices.begin() + static_cast<std::ptrdiff_t>(v));
    if (withLists) mesh.mVertexIndexLists.erase(mesh.mVertexIndexLists.begin() + static_cast<std::ptrdiff_t>(v));
    for (auto* list : {&mesh.mFaces, &mesh.mLines, &mesh.mPoints})
      for (PlainFace& face : *list)
        for (std::uint32_t& corner : face.mCorners)
          if (corner > v) --corner;
  }
}

Indices renumberedHoles(const Indices& list, const std::vector<bool>& kept) {
  if (list.size() < 2 || list.back() != kEnd) return list;
  const auto isGone = [&](std::uint32_t face) { return face < kept.size() && !kept[face]; };
  const auto lowered = [&](std::uint32_t face) {
    if (face >= kept.size()) return face;
    return static_cast<std::uint32_t>(std::count(kept.begin(), kept.begin() + face, true));
  };
  Indices result;
  for (auto group = list.begin(); group != list.end();) {
    const auto end = std::find(group, list.end(), kEnd);
    if (group == end || !isGone(*group)) {
      std::for_each(group, end, [&](std::uint32_t face) {
        if (!isGone(face)) result.push_back(lowered(face));
      });
      result.push_back(kEnd);
    }
    group = end + 1;
  }
  return result;
}

util::MaterialPair materialOf(const std::string& name) { return {util::intern(util::Shader(name)), {}}; }

PlainFace randomFace(std::mt19937& random, int vertexCount, int fewestCorners, int mostCorners) {
  PlainFace face;
  const int n = pick(random, fewestCorners, mostCorners);
  const auto indices = [&](int below) {
    Indices values;
    for (int i = 0; i < n; ++i) values.push_back(static_cast<std::uint32_t>(pick(random, 0, below - 1)));
    return values;
  };
  face.mCorners = indices(vertexCount);
  if (pick(random, 0, 1)) face.mNormalIndices = indices(100);
  for (const int set : {0, 3, 10, 11})
    if (pick(random, 0, 2) == 0) face.mSets[set] = indices(100);
  face.mNormal = {1.0 * pick(random, -2, 2), 1.0 * pick(random, -2, 2), 1.0 * pick(random, -2, 2)};
  face.mPerVertexNormals = pick(random, 0, 1) != 0;
  face.mTag = pick(random, -1, 2);
  return face;
}

PlainMesh randomFaceMesh(std::mt19937& random, double scale) {
  PlainMesh mesh;
  const auto grid = [&](int low, int high) { return scale * pick(random, low, high); };
  const int vertexCount = pick(random, 3, 12);
  for (int v = 0; v < vertexCount; ++v) mesh.mVertices.push_back({grid(0, 3), grid(0, 3), grid(0, 1)});
  const int crumpled = pick(random, 1, 6);
  for (int f = 0; f < crumpled; ++f) mesh.mFaces.push_back(randomFace(random, vertexCount, 3, 7));

  const auto addSquare = [&](util::Vec3 corner, double size, int axis) {
    PlainFace square;
    for (const auto& [s, t] : {std::pair(0., 0.), {size, 0.}, {size, size}, {0., size}}) {
      square.mCorners.push_back(static_cast<std::uint32_t>(mesh.mVertices.size()));
      const util::Vec3 p{corner.x + s, corner.y + t, corner.z};
      mesh.mVertices.push_back(axis == 0 ? util::Vec3{p.z, p.x, p.y} : axis == 1 ? util::Vec3{p.y, p.z, p.x} : p);
    }
    mesh.mFaces.push_back(square);
    return static_cast<std::uint32_t>(mesh.mFaces.size() - 1);
  };
  for (int group = pick(random, 0, 3); group > 0; --group) {
    const int axis = pick(random, 0, 2);
    const std::uint32_t outer = addSquare({0, 0, grid(0, 9)}, 10 * scale, axis);
    Indices& holes = mesh.mHoles[outer];
    for (int hole = pick(random, 0, 4); hole > 0; --hole)
      holes.push_back(addSquare({grid(-1, 9), grid(-1, 9), grid(0, 9)}, grid(1, 3), axis));
    if (pick(random, 0, 1)) std::ranges::reverse(holes);
  }
  for (PlainFace& face : mesh.mFaces) util::computeFaceNormal(mesh.mVertices, face.mCorners, face.mNormal);

  const int faceCount = static_cast<int>(mesh.mFaces.size());
  for (int run = pick(random, 0, 4); run > 0; --run) {
    mesh.mRunMaterials.push_back(materialOf(std::string(1, static_cast<char>('a' + pick(random, 0, 2)))));
    mesh.mRunStarts.push_back(static_cast<std::uint32_t>(pick(random, 0, faceCount + 1)));
  }
  if (pick(random, 0, 3) != 0) std::ranges::sort(mesh.mRunStarts);
  if (pick(random, 0, 1))
    for (std::uint32_t v = 0; v < mesh.mVertices.size(); ++v) mesh.mVertexIndexLists.push_back(Indices(v % 3, v));
  return mesh;
}

}  // namespace support
