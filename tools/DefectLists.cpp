#include <tools/DefectLists.h>

#include <algorithm>
#include <array>
#include <limits>
#include <span>
#include <unordered_map>
#include <utility>

#include <tools/Join.h>
#include <tools/MeshFacts.h>

namespace tool {
namespace {

using facetbox::Defects;
using facetbox::kNone;
using facetbox::PolyMesh;

constexpr std::array<DefectNames, kDefectKinds> kNames = {
    {{"short-faces", "shortFaces", "faces with fewer than 3 corners"},
     {"repeated-corners", "repeatedCorners", "faces that repeat a vertex"},
     {"zero-faces", "zeroFaces", "faces of zero area"},
     {"zero-edges", "zeroEdges", "edges of zero length"},
     {"double-faces", "doubleFaces", "faces that repeat another face"},
     {"open-edges", "openEdges", "edges used once"},
     {"overused-edges", "overusedEdges", "edges used more than twice"},
     {"same-direction-edges", "sameDirectionEdges", "edges used twice in one direction"},
     {"t-corners", "tCorners", "vertices inside an edge used once"},
     {"same-vertices", "sameVertices", "vertices at the same position"},
     {"unused-vertices", "unusedVertices", "vertices that no face uses"},
     {"bad-holes", "badHoles", "holes that are none"},
     {"self-intersections", "selfIntersections", "faces that intersect"}}};

std::uint64_t keyOf(std::uint32_t a, std::uint32_t b) { return (std::uint64_t{std::min(a, b)} << 32) | std::max(a, b); }

// The places in one object: its numbers become those of the file.
class ObjectPlaces {
 public:
  ObjectPlaces(const facetbox::Object& object, std::uint32_t number, const Joined* joined, std::uint32_t firstFace,
               std::uint32_t firstVertex)
      : mObject(object),
        mMesh(object.mesh),
        mNumber(number),
        mJoined(joined),
        mFirstFace(firstFace),
        mFirstVertex(firstVertex) {
    mFirstCorners.reserve(mMesh.counts.size());
    std::size_t corners = 0;
    for (const std::uint32_t count : mMesh.counts) {
      mFirstCorners.push_back(corners);
      corners += count;
    }
  }

  Place of(std::span<const std::uint32_t> faces, std::span<const std::uint32_t> vertices) const {
    Place place;
    place.mObject = faces.empty() || !mJoined ? mNumber : mJoined->objectOf(mMesh.labels[faces[0]]);
    for (const std::uint32_t face : faces) place.mFaces.push_back(fileFace(face));
    for (const std::uint32_t vertex : vertices) {
      place.mVertices.push_back((mObject.fileVertices.empty() ? mFirstVertex + vertex : mObject.fileVertices[vertex]) +
                                1);
      place.mPoints.push_back(&mMesh.points[std::size_t{3} * vertex]);
    }
    return place;
  }
  Place ofFace(std::uint32_t face, std::span<const std::uint32_t> vertices = {}) const {
    return of({&face, 1}, vertices);
  }

  std::uint32_t fileFace(std::uint32_t face) const { return face == kNone ? face : mFirstFace + face + 1; }

  std::span<const std::uint32_t> cornersOf(std::uint32_t face) const {
    return std::span(mMesh.indices).subspan(mFirstCorners[face], mMesh.counts[face]);
  }

  std::uint32_t faceCount() const { return static_cast<std::uint32_t>(mMesh.counts.size()); }

 private:
  const facetbox::Object& mObject;
  const PolyMesh& mMesh;
  std::uint32_t mNumber;
  const Joined* mJoined;
  std::uint32_t mFirstFace, mFirstVertex;
  std::vector<std::size_t> mFirstCorners;
};

// The faces at some edges.
class FacesAtEdges {
 public:
  void want(const Defects::Pair& edge) { mFaces[keyOf(edge[0], edge[1])]; }

  void find(const ObjectPlaces& places) {
    if (mFaces.empty()) return;
    for (std::uint32_t face = 0; face < places.faceCount(); ++face) {
      const auto corners = places.cornersOf(face);
      if (corners.size() < 3) continue;
      for (std::size_t i = 0; i < corners.size(); ++i) {
        const auto found = mFaces.find(keyOf(corners[i], corners[i + 1 < corners.size() ? i + 1 : 0]));
        if (found != mFaces.end() && (found->second.empty() || found->second.back() != face))
          found->second.push_back(face);
      }
    }
  }

  std::span<const std::uint32_t> at(const Defects::Pair& edge) const { return mFaces.at(keyOf(edge[0], edge[1])); }

 private:
  std::unordered_map<std::uint64_t, std::vector<std::uint32_t>> mFaces;
};

class Collector {
 public:
  Collector(const DefectOptions& options, CheckedModel& result) : mOptions(options), mResult(result) {
    for (std::size_t kind = 0; kind < kDefectKinds; ++kind) mResult.mLists.push_back({static_cast<DefectKind>(kind)});
  }

  void add(const ObjectPlaces& places, const Defects& defects) {
    addFaces(places, defects);
    addEdges(places, defects);
    addVertices(places, defects);
    addHoles(places, defects);
    list(DefectKind::tCorners).mIsCounted &= defects.areTCornersComplete;
    list(DefectKind::selfIntersections).mIsCounted &= defects.areSelfIntersectionsComplete;
  }

 private:
  DefectList& list(DefectKind kind) { return mResult.mLists[static_cast<std::size_t>(kind)]; }

  std::size_t wanted(const DefectList& list, std::size_t count) const {
    const std::size_t limit = mOptions.mLimit > 0 ? mOptions.mLimit : std::numeric_limits<std::size_t>::max();
    return std::min(count, limit - list.mPlaces.size());
  }

  template <typename Entries, typename Make>
  void addAll(DefectKind kind, const Entries& entries, Make make) {
    DefectList& all = list(kind);
    const std::size_t count = wanted(all, entries.size());
    for (std::size_t i = 0; i < count; ++i) all.mPlaces.push_back(make(entries[i]));
    all.mCount += entries.size();
  }

  void addFaces(const ObjectPlaces& places, const Defects& defects) {
    const auto whole = [&](std::uint32_t face) { return places.ofFace(face, places.cornersOf(face)); };
    const auto pair = [&](const Defects::Pair& faces) { return places.of(faces, {}); };
    addAll(DefectKind::shortFaces, defects.leftOutFaces, whole);
    addAll(DefectKind::zeroFaces, defects.zeroFaces, whole);
    addAll(DefectKind::doubleFaces, defects.doubleFaces, pair);
    addAll(DefectKind::selfIntersections, defects.selfIntersections, pair);
    addAll(DefectKind::repeatedCorners, defects.repeatedCorners, [&](std::uint32_t face) {
      const auto corners = places.cornersOf(face);
      std::vector<std::uint32_t> sorted(corners.begin(), corners.end());
      std::sort(sorted.begin(), sorted.end());
      return places.ofFace(face, {&*std::adjacent_find(sorted.begin(), sorted.end()), 1});
    });
    addAll(DefectKind::zeroEdges, defects.zeroEdges, [&](const Defects::Corner& edge) {
      const auto corners = places.cornersOf(edge.face);
      const Defects::Pair ends = {corners[edge.corner], corners[(edge.corner + 1) % corners.size()]};
      return places.ofFace(edge.face, ends);
    });
  }

  void addEdges(const ObjectPlaces& places, const Defects& defects) {
    FacesAtEdges faces;
    const auto want = [&](DefectKind kind, const auto& entries, auto edgeOf) {
      for (std::size_t i = 0; i < wanted(list(kind), entries.size()); ++i) faces.want(edgeOf(entries[i]));
    };
    const auto itself = [](const Defects::Pair& edge) -> const Defects::Pair& { return edge; };
    const auto around = [](const Defects::TCorner& corner) -> const Defects::Pair& { return corner.edge; };
    want(DefectKind::openEdges, defects.openEdges, itself);
    want(DefectKind::overusedEdges, defects.overusedEdges, itself);
    want(DefectKind::sameDirectionEdges, defects.sameDirectionEdges, itself);
    want(DefectKind::tCorners, defects.tCorners, around);
    faces.find(places);
    const auto edge = [&](const Defects::Pair& ends) { return places.of(faces.at(ends), ends); };
    addAll(DefectKind::openEdges, defects.openEdges, edge);
    addAll(DefectKind::overusedEdges, defects.overusedEdges, edge);
    addAll(DefectKind::sameDirectionEdges, defects.sameDirectionEdges, edge);
    addAll(DefectKind::tCorners, defects.tCorners, [&](const Defects::TCorner& corner) {
      return places.of(faces.at(corner.edge), std::array{corner.vertex, corner.edge[0], corner.edge[1]});
    });
  }

  void addVertices(const ObjectPlaces& places, const Defects& defects) {
    addAll(DefectKind::sameVertices, defects.sameVertices,
           [&](const Defects::Pair& vertices) { return places.of({}, vertices); });
    addAll(DefectKind::unusedVertices, defects.unusedVertices, [&](const std::uint32_t& vertex) {
      return places.of({}, {&vertex, 1});
    });
  }

  void addHoles(const ObjectPlaces& places, const Defects& defects) {
    addAll(DefectKind::badHoles, defects.droppedHoles, [&](facetbox::DroppedHole hole) {
      Place place = places.of(std::array{hole.outer, hole.hole}, {});
      hole.outer = places.fileFace(hole.outer);
      hole.hole = places.fileFace(hole.hole);
      place.mHole = hole;
      return place;
    });
  }

  const DefectOptions& mOptions;
  CheckedModel& mResult;
};

facetbox::CheckOptions checkOptionsOf(const DefectOptions& options, double diagonal) {
  facetbox::CheckOptions own;
  if (options.mZeroEdges) own.zeroEdgeLength = options.mZeroEdges->length(diagonal);
  if (options.mZeroArea) own.zeroFaceArea = options.mZeroArea->area(diagonal);
  if (options.mTCornerDistance) own.tCornerDistance = options.mTCornerDistance->length(diagonal);
  own.tCorners = options.mTCorners;
  own.selfIntersections = options.mSelfIntersections;
  return own;
}

}  // namespace

const DefectNames& namesOf(DefectKind kind) { return kNames[static_cast<std::size_t>(kind)]; }

std::optional<DefectKind> defectNamed(std::string_view option) {
  for (std::size_t kind = 0; kind < kDefectKinds; ++kind)
    if (option == kNames[kind].mOption) return static_cast<DefectKind>(kind);
  return std::nullopt;
}

CheckedModel checkModel(const facetbox::Model& model, const Joined* joined, const DefectOptions& options) {
  CheckedModel result;
  Collector collector(options, result);
  for (std::uint32_t number = 0; number < model.objects.size(); ++number) {
    const facetbox::Object& object = model.objects[number];
    const Defects defects = facetbox::check(object.mesh, checkOptionsOf(options, boundingBoxDiagonal(object.mesh)));
    collector.add(ObjectPlaces(object, number, joined, static_cast<std::uint32_t>(result.mFaces),
                               static_cast<std::uint32_t>(result.mVertices)),
                  defects);
    result.mFaces += object.mesh.counts.size();
    result.mVertices += object.mesh.points.size() / 3;
    result.mComponents += defects.componentCount;
    result.mIsClosed = result.mIsClosed && defects.isClosed;
    result.mIsOriented = result.mIsOriented && defects.isOriented;
    result.mArea += defects.area;
    result.mVolume += defects.volume;
  }
  std::erase_if(result.mLists, [&](const DefectList& list) {
    return (list.mKind == DefectKind::tCorners && !options.mTCorners) ||
           (list.mKind == DefectKind::selfIntersections && !options.mSelfIntersections);
  });
  return result;
}

}  // namespace tool
