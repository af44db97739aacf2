#include <facetbox/io/CutFaces.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include <facetbox/triangulate.h>

namespace facetbox {
namespace {

class Cutter {
 public:
  Cutter(const PolyMesh& mesh, Unknown unknown, Notes& notes)
      : mMesh(mesh), mUnknown(unknown), mNotes(notes), mFates(mesh.counts.size(), Fate::stays) {}

  std::optional<PolyMesh> cut() {
    chooseFaces();
    if (mCutCount == 0) return std::nullopt;
    collectFaces();
    mTriangles = triangulate({.points = mMesh.points,
                              .counts = mFaces.counts,
                              .indices = mFaces.indices,
                              .texCoords = mMesh.texCoords,
                              .texIndices = mFaces.texIndices,
                              .holes = mFaces.holes});
    mNotes.add("faces that cannot be cut into triangles: no area", mTriangles.skipped.size() - skippedHoles());
    startResult();
    for (std::size_t face = 0; face < mFates.size(); ++face) addFace(face);
    return std::move(mResult);
  }

 private:
  enum class Fate : std::uint8_t { stays, isCut, isHole };

  void chooseFaces() {
    for (std::size_t i = 0; i < mMesh.holes.size(); ++i) {
      const std::uint32_t outer = mMesh.holes[i];
      const std::size_t first = ++i;
      for (; mMesh.holes[i] != kNone; ++i) mFates[mMesh.holes[i]] = Fate::isHole;
      if (i > first) mFates[outer] = Fate::isCut;
      mNotes.add("holes, kept open by cutting their faces into triangles", i - first);
    }
    std::size_t polygons = 0;
    for (std::size_t face = 0; face < mFates.size(); ++face) {
      if (mUnknown == Unknown::polygons && mFates[face] == Fate::stays && mMesh.counts[face] > 3) {
        mFates[face] = Fate::isCut;
        ++polygons;
      }
      if (mFates[face] == Fate::isCut) ++mCutCount;
    }
    mNotes.add("faces with more than three corners, cut into triangles", polygons);
  }

  // What triangulate() gets to see: the faces that are cut, and their holes.
  void collectFaces() {
    std::vector<std::uint32_t> newFaces(mFates.size(), kNone);
    std::size_t corner = 0;
    for (std::size_t face = 0; face < mFates.size(); corner += mMesh.counts[face++]) {
      if (mFates[face] == Fate::stays) continue;
      newFaces[face] = static_cast<std::uint32_t>(mFaces.counts.size());
      copyFace(face, corner, mFaces);
    }
    for (std::size_t i = 0; i < mMesh.holes.size(); ++i) {
      const std::size_t first = i;
      while (mMesh.holes[i] != kNone) ++i;
      if (i - first < 2) continue;  // no hole
      for (std::size_t k = first; k < i; ++k) mFaces.holes.push_back(newFaces[mMesh.holes[k]]);
      mFaces.holes.push_back(kNone);
    }
  }

  void copyFace(std::size_t face, std::size_t corner, PolyMesh& to) const {
    const std::uint32_t count = mMesh.counts[face];
    to.counts.push_back(count);
    const auto copy = [&](const std::vector<std::uint32_t>& from, std::vector<std::uint32_t>& target) {
      const auto start = from.begin() + static_cast<std::ptrdiff_t>(corner);
      target.insert(target.end(), start, start + count);
    };
    copy(mMesh.indices, to.indices);
    if (!mMesh.texIndices.empty()) copy(mMesh.texIndices, to.texIndices);
  }

  // Holes of fewer than three corners are skipped as such.
  std::size_t skippedHoles() const {
    std::vector<std::uint32_t> holes;
    bool isOuter = true;
    for (const std::uint32_t face : mFaces.holes) {
      if (face != kNone && !isOuter) holes.push_back(face);
      isOuter = face == kNone;
    }
    std::ranges::sort(holes);
    return static_cast<std::size_t>(std::ranges::count_if(
        mTriangles.skipped, [&](const SkippedFace& s) { return std::ranges::binary_search(holes, s.face); }));
  }

  void startResult() {
    mResult.points = mMesh.points;
    mResult.points.insert(mResult.points.end(), mTriangles.madePoints.begin(), mTriangles.madePoints.end());
    mResult.texCoords = mMesh.texCoords;
    mResult.texCoords.insert(mResult.texCoords.end(), mTriangles.madeTexCoords.begin(), mTriangles.madeTexCoords.end());
  }

  void addFace(std::size_t face) {
    const std::size_t before = mResult.counts.size();
    if (mFates[face] == Fate::stays) {
      copyFace(face, mCorner, mResult);
    } else {
      const std::uint32_t cutFace = mNextCutFace++;
      for (; mTriangle < mTriangles.faces.size() && mTriangles.faces[mTriangle] == cutFace; ++mTriangle) addTriangle();
    }
    if (!mMesh.labels.empty())
      mResult.labels.insert(mResult.labels.end(), mResult.counts.size() - before, mMesh.labels[face]);
    mCorner += mMesh.counts[face];
  }

  void addTriangle() {
    mResult.counts.push_back(3);
    for (std::size_t c = 3 * mTriangle; c < 3 * mTriangle + 3; ++c) {
      mResult.indices.push_back(mTriangles.triangles[c]);
      if (!mMesh.texIndices.empty()) mResult.texIndices.push_back(mTriangles.texIndices[c]);
    }
  }

  const PolyMesh& mMesh;
  const Unknown mUnknown;
  Notes& mNotes;
  std::vector<Fate> mFates;
  std::size_t mCutCount = 0;
  PolyMesh mFaces;
  Triangulation mTriangles;
  PolyMesh mResult;
  std::size_t mCorner = 0, mTriangle = 0;
  std::uint32_t mNextCutFace = 0;
};

}  // namespace

std::optional<PolyMesh> cutFaces(const PolyMesh& mesh, Unknown unknown, Notes& notes) {
  if (mesh.holes.empty() &&
      (unknown == Unknown::facesWithHoles || std::ranges::all_of(mesh.counts, [](auto n) { return n <= 3; })))
    return std::nullopt;
  return Cutter(mesh, unknown, notes).cut();
}

}  // namespace facetbox
