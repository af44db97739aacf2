#pragma once

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <facetbox/triangles/RayTest.h>
#include <facetbox/triangles/TriangleMeshCache.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>
#include <tests/support/PlainOctree.h>

/// The slow twin of one handle of the picker: does everything at once, looks at everything.
namespace support {

using Matrix = std::array<double, 16>;

inline Matrix product(const Matrix& a, const Matrix& b) {
  Matrix p{};
  for (std::size_t c = 0; c < 4; ++c)
    for (std::size_t r = 0; r < 4; ++r)
      p[4 * c + r] = a[r] * b[4 * c] + a[4 + r] * b[4 * c + 1] + a[8 + r] * b[4 * c + 2] + a[12 + r] * b[4 * c + 3];
  return p;
}

/// Whether a triangle of a mesh overlaps the clip cube, or all its vertices lie in it.
inline bool isInClipVolume(const util::TriangleMesh& mesh, const Matrix& c, bool wholeInside) {
  std::vector<Vec3> projected;
  Vec3 last{0, 0, 0};
  for (std::size_t v = 0; v < mesh.vertexCoordinates().size(); v += 3) {
    const double x = mesh.vertexCoordinates()[v], y = mesh.vertexCoordinates()[v + 1],
                 z = mesh.vertexCoordinates()[v + 2];
    const double w = std::fabs(c[3] * x + c[7] * y + c[11] * z + c[15]);
    Vec3 p = wholeInside ? last : Vec3{0, 0, 0};
    if (w > 1e-25)
      p = {(c[0] * x + c[4] * y + c[8] * z + c[12]) / w, (c[1] * x + c[5] * y + c[9] * z + c[13]) / w,
           (c[2] * x + c[6] * y + c[10] * z + c[14]) / w};
    last = p;
    projected.push_back(p);
    if (wholeInside && !(std::fabs(p.x) <= 1 && std::fabs(p.y) <= 1 && std::fabs(p.z) <= 1)) return false;
  }
  const double center[3] = {0, 0, 0}, half[3] = {1, 1, 1};
  for (std::size_t i = 0; !wholeInside && i < mesh.indices().size(); i += 3)
    if (util::overlapsBox(&projected[mesh.indices()[i]].x, &projected[mesh.indices()[i + 1]].x,
                          &projected[mesh.indices()[i + 2]].x, center, half))
      return true;
  return wholeInside;
}

struct RayAnswer {
  bool mHit = false;
  float mDistance = -1;
  std::array<float, 3> mNormal{-1, -1, -1};

  friend bool operator==(const RayAnswer&, const RayAnswer&) = default;
};

class PlainPicker {
 public:
  void addEntry(std::uint32_t id, const std::vector<const util::Mesh*>& meshes, const Matrix& matrix) {
    Entry entry{id, matrix, {}};
    for (const util::Mesh* mesh : meshes) entry.mMeshes.push_back(mCache->getTriangleMesh(*mesh));
    const unsigned item = static_cast<unsigned>(mEntries.size());
    mEntries.push_back(entry);
    if (!mOctree) mOctree.emplace(10.0);
    store(item);
    mById[static_cast<std::int32_t>(id)] = item;
  }

  void relocate(float dx, float dy, float dz) {
    if (!mOctree) return;
    const auto records = mOctree->sorted();
    mOctree.emplace(10.0);
    const Matrix translation{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, dx, dy, dz, 1};
    for (const auto& record : records) {
      mEntries[record.item].mMatrix = product(translation, mEntries[record.item].mMatrix);
      store(record.item);
    }
  }

  std::vector<std::uint32_t> pickFrustum(const std::array<float, 24>& corners, const std::array<float, 16>& matrix,
                                         bool wholeInside) const {
    std::array<Vec3, 8> volume;
    for (std::size_t k = 0; k < 8; ++k) volume[k] = {corners[3 * k], corners[3 * k + 1], corners[3 * k + 2]};
    Matrix q;
    std::copy(matrix.begin(), matrix.end(), q.begin());
    std::vector<std::uint32_t> ids;
    if (mOctree)
      for (const unsigned item : mOctree->queryFrustum(volume))
        if (isInside(mEntries[item], product(q, mEntries[item].mMatrix), wholeInside))
          ids.push_back(mEntries[item].mId);
    return ids;
  }

  /// Where the object of this id has its own origin; (0, 0, 0) where there is none.
  Vec3 placeOf(std::int32_t id) const {
    const auto found = mById.find(id);
    if (found == mById.end()) return {0, 0, 0};
    const Matrix& m = mEntries[found->second].mMatrix;
    return {m[12], m[13], m[14]};
  }

  RayAnswer pickRay(std::int32_t id, const std::array<float, 3>& origin, const std::array<float, 3>& direction) const {
    const auto found = mById.find(id);
    if (found == mById.end()) return {};
    const double from[3] = {origin[0], origin[1], origin[2]}, along[3] = {direction[0], direction[1], direction[2]};
    RayAnswer answer{false, FLT_MAX, {0, 0, 0}};
    double best = FLT_MAX;
    for (const auto& mesh : mEntries[found->second].mMeshes) {
      double t = FLT_MAX, n[3];
      if (!util::intersectRayPlain(*mesh, mEntries[found->second].mMatrix.data(), from, along, &t, n)) continue;
      answer.mHit = true;
      if (!(t < best)) continue;
      best = t;
      answer.mDistance = static_cast<float>(t);
      answer.mNormal = {static_cast<float>(n[0]), static_cast<float>(n[1]), static_cast<float>(n[2])};
    }
    return answer;
  }

 private:
  struct Entry {
    std::uint32_t mId;
    Matrix mMatrix;
    std::vector<std::shared_ptr<util::TriangleMesh>> mMeshes;
  };

  void store(unsigned item) {
    const Entry& entry = mEntries[item];
    const Matrix& m = entry.mMatrix;
    Box box;
    for (const auto& mesh : entry.mMeshes)
      for (std::size_t v = 0; v < mesh->vertexCoordinates().size(); v += 3) {
        const double x = mesh->vertexCoordinates()[v], y = mesh->vertexCoordinates()[v + 1],
                     z = mesh->vertexCoordinates()[v + 2];
        box.extend(Vec3{m[0] * x + m[4] * y + m[8] * z + m[12], m[1] * x + m[5] * y + m[9] * z + m[13],
                        m[2] * x + m[6] * y + m[10] * z + m[14]});
      }
    mOctree->ensureContains(box);
    mOctree->insert(box, item);
  }

  static bool isInside(const Entry& entry, const Matrix& c, bool wholeInside) {
    const auto test = [&](const auto& mesh) { return isInClipVolume(*mesh, c, wholeInside); };
    return wholeInside ? std::ranges::all_of(entry.mMeshes, test) : std::ranges::any_of(entry.mMeshes, test);
  }

  std::shared_ptr<util::TriangleMeshCache> mCache = std::make_shared<util::TriangleMeshCache>(4);
  std::vector<Entry> mEntries;
  std::optional<PlainOctree> mOctree;
  std::map<std::int32_t, unsigned> mById;
};

}  // namespace support
