#include <tests/support/PolyMeshes.h>

#include <algorithm>

#include <tests/support/Meshes.h>

namespace support {
namespace {

using facetbox::kNone;
using facetbox::PolyMesh;

class SceneBuilder {
 public:
  explicit SceneBuilder(std::mt19937& random) : mRandom(random) {}

  PolyMesh build() {
    const double jitter = oneIn(mRandom, 2) ? 0 : 0.02;
    addPile(jitter);
    if (oneIn(mRandom, 2)) addPlate(jitter);
    if (oneIn(mRandom, 3)) mMesh.points.insert(mMesh.points.end(), {4, 4, 4});  // that no face uses
    if (oneIn(mRandom, 2))
      for (std::size_t f = 0; f < mMesh.counts.size(); ++f) mMesh.labels.push_back(below(mRandom, 2));
    if (oneIn(mRandom, 2)) addTexCoords();
    return std::move(mMesh);
  }

 private:
  std::uint32_t vertex(const Vec3& p, double jitter) {
    const auto off = [&] { return jitter * pick(mRandom, -100, 100) / 100; };
    mMesh.points.insert(mMesh.points.end(), {p.x + off(), p.y + off(), p.z + off()});
    return static_cast<std::uint32_t>(mMesh.points.size() / 3 - 1);
  }

  std::uint32_t face(const Indices& corners) {
    mMesh.counts.push_back(static_cast<std::uint32_t>(corners.size()));
    mMesh.indices.insert(mMesh.indices.end(), corners.begin(), corners.end());
    return static_cast<std::uint32_t>(mMesh.counts.size() - 1);
  }

  void addPile(double jitter) {
    std::set<std::array<int, 3>> cubes;
    for (int i = pick(mRandom, 1, 12); i > 0; --i)
      cubes.insert({pick(mRandom, 0, 3), pick(mRandom, 0, 3), pick(mRandom, 0, 2)});
    const Surface pile = surfaceOf(cubes, 1);
    for (const Indices& square : pile.mFaces) {
      Indices corners;
      for (const std::uint32_t v : square)
        for (int copies = oneIn(mRandom, 15) ? 2 : 1; copies > 0; --copies)
          corners.push_back(vertex(pile.mPoints[v], jitter));
      if (oneIn(mRandom, 8)) std::ranges::reverse(corners);
      for (int times = oneIn(mRandom, 10) ? 2 : 1; times > 0; --times) {
        if (corners.size() > 4 || oneIn(mRandom, 2)) {
          face(corners);
        } else {
          face({corners[0], corners[1], corners[2]});
          face({corners[0], corners[2], corners[3]});
        }
      }
    }
  }

  Indices square(double x, double y, double size, double jitter) {
    return {vertex({x, y, -1}, jitter), vertex({x + size, y, -1}, jitter), vertex({x + size, y + size, -1}, jitter),
            vertex({x, y + size, -1}, jitter)};
  }

  void addPlate(double jitter) {
    mMesh.holes.push_back(face(square(-2, -2, 8, jitter)));
    for (int i = pick(mRandom, 1, 6); i > 0; --i) {
      Indices corners = square(pick(mRandom, -10, 12) / 4.0, pick(mRandom, -10, 12) / 4.0, 1, jitter);
      if (oneIn(mRandom, 2)) std::ranges::reverse(corners);
      mMesh.holes.push_back(face(corners));
    }
    mMesh.holes.push_back(kNone);
  }

  /// A pair per vertex, as if the scene was seen from above.
  void addTexCoords() {
    for (std::size_t v = 0; v < mMesh.points.size() / 3; ++v)
      mMesh.texCoords.insert(mMesh.texCoords.end(), {mMesh.points[3 * v] / 8, mMesh.points[3 * v + 1] / 8});
    mMesh.texIndices = mMesh.indices;
    std::size_t first = 0;
    for (const std::uint32_t count : mMesh.counts) {
      if (oneIn(mRandom, 5)) std::fill_n(mMesh.texIndices.begin() + static_cast<std::ptrdiff_t>(first), count, kNone);
      first += count;
    }
  }

  std::mt19937& mRandom;
  PolyMesh mMesh;
};

}  // namespace

PolyMesh randomScene(std::mt19937& random) { return SceneBuilder(random).build(); }

}  // namespace support
