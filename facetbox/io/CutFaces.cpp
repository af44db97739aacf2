#include <facetbox/io/CutFaces.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include <facetbox/clean.h>
#include <facetbox/triangulate.h>

namespace facetbox {
namespace {

const char* noteOf(DroppedHole::Reason reason) {
  switch (reason) {
    case DroppedHole::Reason::outside:
      return "holes, left out: beside their faces or around them";
    case DroppedHole::Reason::crosses:
      return "holes, left out: they cross the outlines of their faces";
    case DroppedHole::Reason::touches:
      return "holes, left out: they touch the outlines of their faces";
    case DroppedHole::Reason::overlaps:
      return "holes, left out: they overlap or touch other holes";
    case DroppedHole::Reason::tooFewCorners:
      return "holes, left out: fewer than three corners";
    case DroppedHole::Reason::tooSmall:
      return "holes, left out: no area";
    case DroppedHole::Reason::outerIsGone:
      return "holes, left out: their faces have fewer than three corners";
  }
  return "holes, left out";
}

class Cutter {
 public:
  Cutter(const PolyMesh& mesh, Unknown unknown, Notes& notes)
      : mMesh(mesh), mUnknown(unknown), mNotes(notes), mFates(mesh.counts.size(), Fate::stays) {}

  std::optional<PolyMesh> cut() {
    dropHoles();
    chooseFaces();
    if (mCutCount == 0 && !mDropsFaces) return std::nullopt;
    collectFaces();
    mTriangles = triangulate({.points = mMesh.points,
                              .counts = mFaces.counts,
                              .indices = mFaces.indices,
                              .texCoords = mMesh.texCoords,
                              .texIndices = mFaces.texIndices,
                              .holes = mFaces.holes});
    mNotes.add("faces that cannot be cut into triangles: no area", mTriangles.skipped.size() - skippedHoles());
    mNotes.add("vertices made where outlines cross", mTriangles.madePoints.size() / 3);
    startResult();
    for (std::size_t face = 0; face < mFates.size(); ++face) addFace(face);
    return std::move(mResult);
  }

 private:
  enum class Fate : std::uint8_t { stays, isCut, isHole, isLeftOut };

  // A hole that does not lie in its face would become a face where there is none.
  void dropHoles() {
    if (mMesh.holes.empty()) return;
    const PolyMesh bare = {
        .points = mMesh.points, .counts = mMesh.counts, .indices = mMesh.indices, .holes = mMesh.holes};
    for (const DroppedHole& dropped : clean(bare, {}).droppedHoles) {
      if (dropped.hole == kNone || mFates[dropped.hole] == Fate::isLeftOut) continue;
      mFates[dropped.hole] = Fate::isLeftOut;
      mDropsFaces = true;
      mNotes.add(noteOf(dropped.reason));
    }
  }

  void chooseFaces() {
    for (std::size_t i = 0; i < mMesh.holes.size(); ++i) {
      const std::uint32_t outer = mMesh.holes[i];
      std::size_t kept = 0;
      for (++i; mMesh.holes[i] != kNone; ++i) {
        if (mFates[mMesh.holes[i]] == Fate::isLeftOut) continue;
        mFates[mMesh.holes[i]] = Fate::isHole;
        ++kept;
      }
      if (kept > 0) mFates[outer] = Fate::isCut;
      mNotes.add("holes, kept open by cutting their faces into triangles", kept);
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
      if (mFates[face] != Fate::isCut && mFates[face] != Fate::isHole) continue;
      newFaces[face] = static_cast<std::uint32_t>(mFaces.counts.size());
      copyFace(face, corner, mFaces);
    }
    for (std::size_t i = 0; i < mMesh.holes.size(); ++i) {
      const std::uint32_t outer = mMesh.holes[i];
      const std::size_t start = mFaces.holes.size();
      for (++i; mMesh.holes[i] != kNone; ++i) {
        if (mFates[mMesh.holes[i]] != Fate::isHole) continue;
        if (mFaces.holes.size() == start) mFaces.holes.push_back(newFaces[outer]);
        mFaces.holes.push_back(newFaces[mMesh.holes[i]]);
      }
      if (mFaces.holes.size() > start) mFaces.holes.push_back(kNone);
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
    } else if (mFates[face] != Fate::isLeftOut) {
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
  bool mDropsFaces = false;
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
