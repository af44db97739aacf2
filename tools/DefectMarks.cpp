#include <tools/DefectMarks.h>

#include <algorithm>
#include <cstddef>
#include <span>

#include <facetbox/check.h>
#include <facetbox/clean.h>

namespace tool {
namespace {

using facetbox::Defects;
using facetbox::kNone;
using facetbox::MeshView;

std::vector<std::size_t> cornerStarts(const MeshView& mesh) {
  std::vector<std::size_t> starts{0};
  for (const std::uint32_t count : mesh.counts) starts.push_back(starts.back() + count);
  return starts;
}

// Whether two loops of the same vertices run against each other. Corners may be missing in either: the first edge that
// both have decides.
bool areOpposite(std::span<const std::uint32_t> one, std::span<const std::uint32_t> other) {
  for (std::size_t i = 0; i < one.size(); ++i) {
    const std::uint32_t a = one[i], b = one[(i + 1) % one.size()];
    if (a == b) continue;
    int alike = 0;
    for (std::size_t k = 0; k < other.size(); ++k) {
      const std::uint32_t c = other[k], d = other[(k + 1) % other.size()];
      alike += static_cast<int>(a == c && b == d) - static_cast<int>(a == d && b == c);
    }
    if (alike != 0) return alike < 0;
  }
  return false;
}

std::vector<std::uint32_t> turnedFaces(const MeshView& mesh) {
  const facetbox::Step step = facetbox::ConformNormals{};
  const facetbox::Cleaned cleaned = facetbox::clean(mesh, std::span(&step, 1));
  std::vector<std::uint32_t> turned;
  if (cleaned.steps.front().facesTurned == 0) return turned;
  const std::vector<std::size_t> starts = cornerStarts(mesh), newStarts = cornerStarts(cleaned.mesh);
  std::vector<std::uint32_t> loop;
  for (std::uint32_t face = 0; face < mesh.counts.size(); ++face) {
    const std::uint32_t now = cleaned.faceMap[face];
    if (now == kNone) continue;
    loop.clear();
    for (std::size_t corner = starts[face]; corner < starts[face + 1]; ++corner)
      loop.push_back(cleaned.vertexMap[mesh.indices[corner]]);
    const auto after = std::span(cleaned.mesh.indices).subspan(newStarts[now], cleaned.mesh.counts[now]);
    if (areOpposite(loop, after)) turned.push_back(face);
  }
  return turned;
}

// Collects what is found in one object after the other.
class Collector {
 public:
  explicit Collector(DefectMarks& marks) : mMarks(marks) { mMarks.mAreComplete.fill(true); }

  void add(const MeshView& mesh, bool intersections) {
    facetbox::CheckOptions options;
    options.selfIntersections = intersections;
    const Defects defects = facetbox::check(mesh, options);
    addEdges(MarkKind::openEdge, defects.openEdges);
    addEdges(MarkKind::overusedEdge, defects.overusedEdges);
    addEdges(MarkKind::sameDirectionEdge, defects.sameDirectionEdges);
    addFaces(MarkKind::turnedFace, turnedFaces(mesh));
    addFaces(MarkKind::zeroFace, defects.zeroFaces);
    addPairs(MarkKind::doubleFace, defects.doubleFaces);
    addPairs(MarkKind::intersectingFace, defects.selfIntersections, defects.areSelfIntersectionsComplete);
    for (const facetbox::DroppedHole& hole : defects.droppedHoles)
      mMarks.mFaces.push_back({MarkKind::badHole, mFirstFace + hole.hole});
    count(MarkKind::badHole, defects.droppedHoles.size());
    addZeroEdges(mesh, defects.zeroEdges);
    for (const Defects::TCorner& corner : defects.tCorners) addVertex(MarkKind::tCorner, corner.vertex);
    count(MarkKind::tCorner, defects.tCorners.size(), defects.areTCornersComplete);
    for (const Defects::Pair& pair : defects.sameVertices) addVertex(MarkKind::sameVertex, pair[1]);
    count(MarkKind::sameVertex, defects.sameVertices.size());
    mFirstFace += static_cast<std::uint32_t>(mesh.counts.size());
    mFirstVertex += static_cast<std::uint32_t>(mesh.points.size() / 3);
  }

 private:
  void count(MarkKind kind, std::size_t found, bool isComplete = true) {
    mMarks.mCounts[static_cast<std::size_t>(kind)] += found;
    mMarks.mAreComplete[static_cast<std::size_t>(kind)] &= isComplete;
  }
  void addVertex(MarkKind kind, std::uint32_t vertex) { mMarks.mVertices.push_back({kind, mFirstVertex + vertex}); }
  void addEdges(MarkKind kind, const std::vector<Defects::Pair>& edges) {
    for (const auto& [from, to] : edges) mMarks.mEdges.push_back({kind, mFirstVertex + from, mFirstVertex + to});
    count(kind, edges.size());
  }
  void addZeroEdges(const MeshView& mesh, const std::vector<Defects::Corner>& edges) {
    const std::vector<std::size_t> starts = cornerStarts(mesh);
    for (const Defects::Corner& edge : edges)
      addVertex(MarkKind::zeroEdge, mesh.indices[starts[edge.face] + edge.corner]);
    count(MarkKind::zeroEdge, edges.size());
  }
  void addFaces(MarkKind kind, const std::vector<std::uint32_t>& faces) {
    for (const std::uint32_t face : faces) mMarks.mFaces.push_back({kind, mFirstFace + face});
    count(kind, faces.size());
  }
  void addPairs(MarkKind kind, const std::vector<Defects::Pair>& pairs, bool isComplete = true) {
    std::vector<std::uint32_t> faces;
    for (const Defects::Pair& pair : pairs) faces.insert(faces.end(), pair.begin(), pair.end());
    std::sort(faces.begin(), faces.end());
    faces.erase(std::unique(faces.begin(), faces.end()), faces.end());
    for (const std::uint32_t face : faces) mMarks.mFaces.push_back({kind, mFirstFace + face});
    count(kind, pairs.size(), isComplete);
  }

  DefectMarks& mMarks;
  std::uint32_t mFirstFace = 0, mFirstVertex = 0;
};

}  // namespace

const char* keyOf(MarkKind kind) {
  constexpr const char* kKeys[kMarkKinds] = {"openEdges",   "overusedEdges",     "sameDirectionEdges", "turnedFaces",
                                             "doubleFaces", "selfIntersections", "zeroFaces",          "badHoles",
                                             "zeroEdges",   "tCorners",          "sameVertices"};
  return kKeys[static_cast<std::size_t>(kind)];
}

DefectMarks findDefects(const facetbox::Model& model, bool intersections) {
  DefectMarks marks;
  Collector collector(marks);
  for (const facetbox::Object& object : model.objects) collector.add(object.mesh, intersections);
  return marks;
}

}  // namespace tool
