#include <facetbox/util/Triangulator.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <limits>
#include <new>
#include <stdexcept>
#include <utility>

#include <GL/glu.h>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/mesh/PolygonArea.h>
#include <facetbox/triangles/HoleView.h>
#include <facetbox/triangles/TriangleMeshFactory.h>

namespace util {
namespace {

/// The tessellator holds addresses of combined vertices' records while a face is under way, so that they must not move:
/// a limit per face instead of growth.
constexpr std::size_t kMaxCombinedVertices = 512;

constexpr int kWithEdgePairs = 1;
constexpr int kWithLines = 2;

/// What the tessellator is given as a vertex's data: the record's address.
struct VertexRecord {
  std::uint32_t mVertex;
};

struct TessDeleter {
  void operator()(GLUtesselator* tess) const { gluDeleteTess(tess); }
};

/// Prints a tessellation error. Flushes the standard streams only: flushing every stream of the process would wait for
/// a thread that sits in a read.
void GLAPIENTRY reportError(GLenum code) {
  if (const GLubyte* const text = gluErrorString(code))
    std::fprintf(stderr, "Tessellation Error: %s\n", reinterpret_cast<const char*>(text));
  else
    std::fprintf(stderr, "Tessellation Error: %d\n", static_cast<int>(code));
  std::fflush(stdout);
  std::fflush(stderr);
  for (std::ostream* const stream : {&std::cout, &std::cerr, &std::clog}) try {
      stream->flush();
    } catch (const std::ios_base::failure&) {
      // Its owner asked for exceptions, but the tessellator's frames can pass none on. The stream keeps its state.
    }
}

bool areEqual(const std::vector<double>& coordinates, const Buffer<Vec3>& vertices) {
  static_assert(sizeof(Vec3) == 3 * sizeof(double));
  return vertices.empty() || std::memcmp(coordinates.data(), vertices.data(), vertices.size() * sizeof(Vec3)) == 0;
}

bool anyNaN(const std::vector<double>& values) {
  bool any = false;
  for (const double value : values) any |= std::isnan(value);
  return any;
}

std::vector<Vec3> verticesOf(const std::vector<double>& coordinates) {
  std::vector<Vec3> vertices(coordinates.size() / 3);
  if (!vertices.empty()) std::memcpy(vertices.data(), coordinates.data(), vertices.size() * sizeof(Vec3));
  return vertices;
}

/// How many indices the triangles of faces without holes and crossings take.
std::size_t expectedIndices(const PrimitiveList& faces) {
  std::size_t triangles = 0;
  for (std::size_t face = 0; face < faces.size(); ++face)
    if (faces.cornerCount(face) > 2) triangles += faces.cornerCount(face) - 2;
  return 3 * triangles;
}

void requirePerVertex(const TriangleMeshArrays& arrays, std::size_t vertexCount) {
  const auto fits = [=](std::size_t size, std::size_t expected) { return size == 0 || size == expected; };
  bool ok =
      arrays.vertexCoordinates.size() == 3 * vertexCount && fits(arrays.secondCoordinates.size(), 3 * vertexCount);
  for (const TriangleMesh::CoordinateSet& set : arrays.coordinateSets) ok = ok && fits(set.size(), vertexCount);
  if (!ok) throw std::invalid_argument("triangulation needs as many coordinates as the mesh has vertices");
}

}  // namespace

/// The tessellator, its callbacks, and the buffers that are kept from face to face.
///
/// No exception may cross the tessellator's frames: a callback keeps it, from then on nothing is collected, and it is
/// thrown once the tessellator has returned.
struct Triangulator::State {
  State();

  /// Tessellates all faces into `output`'s indices.
  void run(const MeshStorage& mesh, TriangleMeshArrays& output, std::vector<std::uint32_t>* sourceFaces);

 private:
  void feedFace(const PrimitiveList& faces, std::size_t face, std::span<const HoleTable::Group> groups,
                const Vec3& normal);
  void feedContour(std::span<const std::uint32_t> corners, VertexRecord*& record);
  bool touchesNaN(const PrimitiveList& faces, std::size_t face, std::span<const HoleTable::Group> groups) const;
  bool touchesNaN(std::span<const std::uint32_t> corners) const;

  void endPrimitive();
  VertexRecord* combine(const GLdouble position[3], void* const sources[4], const GLfloat weights[4]);

  /// Does `work` unless an exception has been kept; keeps what it throws.
  template <class Work>
  void guarded(Work work) noexcept {
    if (mKept) return;
    try {
      work();
    } catch (...) {
      mKept = std::current_exception();
    }
  }

  static void GLAPIENTRY onBegin(GLenum type, void* data);
  static void GLAPIENTRY onEnd(void* data);
  static void GLAPIENTRY onVertex(void* vertex, void* data);
  static void GLAPIENTRY onCombine(GLdouble position[3], void* sources[4], GLfloat weights[4], void** out, void* data);

  std::unique_ptr<GLUtesselator, TessDeleter> mTess;
  GLenum mPrimitiveType = 0;
  std::vector<const VertexRecord*> mPrimitive;  ///< since the last begin
  TriangleMeshArrays* mOutput = nullptr;
  std::vector<std::uint32_t>* mSourceFaces = nullptr;
  std::uint32_t mFace = 0;
  Buffer<VertexRecord> mRecords;  ///< of the face and its holes; never resized while the tessellator has addresses
  std::vector<VertexRecord> mCombined;  ///< likewise: capacity kMaxCombinedVertices
  std::exception_ptr mKept;
};

Triangulator::State::State() : mTess(gluNewTess()) {
  if (!mTess) throw std::bad_alloc();
  gluTessCallback(mTess.get(), GLU_TESS_BEGIN_DATA, reinterpret_cast<_GLUfuncptr>(&onBegin));
  gluTessCallback(mTess.get(), GLU_TESS_END_DATA, reinterpret_cast<_GLUfuncptr>(&onEnd));
  gluTessCallback(mTess.get(), GLU_TESS_VERTEX_DATA, reinterpret_cast<_GLUfuncptr>(&onVertex));
  gluTessCallback(mTess.get(), GLU_TESS_ERROR, reinterpret_cast<_GLUfuncptr>(&reportError));
  gluTessCallback(mTess.get(), GLU_TESS_COMBINE_DATA, reinterpret_cast<_GLUfuncptr>(&onCombine));
  mCombined.reserve(kMaxCombinedVertices);
}

void Triangulator::State::run(const MeshStorage& mesh, TriangleMeshArrays& output,
                              std::vector<std::uint32_t>* sourceFaces) {
  const PrimitiveList& faces = mesh.mFaces;
  HoleView holes(mesh.mHoles, faces.size());
  // A stored normal speaks of the mesh's own coordinates; under it, faces that were turned away would be dropped.
  const bool normalsAreStored = areEqual(output.vertexCoordinates, mesh.mVertices);
  const bool mayTouchNaN = anyNaN(output.vertexCoordinates);
  const std::vector<Vec3> vertices = normalsAreStored ? std::vector<Vec3>() : verticesOf(output.vertexCoordinates);
  output.indices.clear();
  output.indices.reserve(expectedIndices(faces));
  mOutput = &output;
  mSourceFaces = sourceFaces;

  for (std::size_t face = 0; face < faces.size(); ++face) {
    const auto groups = holes.groupsOf(face);
    if (faces.cornerCount(face) < 3 || holes.isHole(face)) continue;
    if (mayTouchNaN && touchesNaN(faces, face, groups)) {
      reportError(GLU_TESS_COORD_TOO_LARGE);
      continue;
    }
    Vec3 normal = faces.normal(face);
    if (!normalsAreStored) computeFaceNormal(vertices, faces.corners(face), normal);
    feedFace(faces, face, groups, normal);
    if (mKept) std::rethrow_exception(std::exchange(mKept, nullptr));
  }
}

/// Feeds one face. Everything that may throw comes before the tessellator is begun.
void Triangulator::State::feedFace(const PrimitiveList& faces, std::size_t face,
                                   std::span<const HoleTable::Group> groups, const Vec3& normal) {
  std::size_t recordCount = faces.cornerCount(face);
  for (const HoleTable::Group& group : groups)
    for (const std::uint32_t hole : group.holes) recordCount += faces.cornerCount(hole);
  mRecords.resize(recordCount);
  mCombined.clear();
  mPrimitive.clear();
  mFace = static_cast<std::uint32_t>(face);

  GLUtesselator* const tess = mTess.get();
  VertexRecord* record = mRecords.data();
  gluTessBeginPolygon(tess, this);
  gluTessNormal(tess, normal.x, normal.y, normal.z);
  feedContour(faces.corners(face), record);
  for (const HoleTable::Group& group : groups)
    for (const std::uint32_t hole : group.holes) feedContour(faces.corners(hole), record);
  gluTessEndPolygon(tess);
}

void Triangulator::State::feedContour(std::span<const std::uint32_t> corners, VertexRecord*& record) {
  GLUtesselator* const tess = mTess.get();
  double* const coordinates = mOutput->vertexCoordinates.data();
  gluTessBeginContour(tess);
  for (const std::uint32_t vertex : corners) {
    *record = {vertex};
    gluTessVertex(tess, coordinates + 3 * std::size_t{vertex}, record++);
  }
  gluTessEndContour(tess);
}

/// Whether a corner of the face or of its holes has a coordinate that is not a number.
bool Triangulator::State::touchesNaN(const PrimitiveList& faces, std::size_t face,
                                     std::span<const HoleTable::Group> groups) const {
  bool touches = touchesNaN(faces.corners(face));
  for (const HoleTable::Group& group : groups)
    for (const std::uint32_t hole : group.holes) touches = touches || touchesNaN(faces.corners(hole));
  return touches;
}

bool Triangulator::State::touchesNaN(std::span<const std::uint32_t> corners) const {
  const double* const coordinates = mOutput->vertexCoordinates.data();
  return std::ranges::any_of(corners, [=](std::uint32_t vertex) {
    const double* const p = coordinates + 3 * std::size_t{vertex};
    return std::isnan(p[0]) || std::isnan(p[1]) || std::isnan(p[2]);
  });
}

/// Turns the primitive's vertices into triangles that all have the primitive's orientation.
void Triangulator::State::endPrimitive() {
  const std::size_t n = mPrimitive.size();
  if (n < 3 ||
      (mPrimitiveType != GL_TRIANGLES && mPrimitiveType != GL_TRIANGLE_FAN && mPrimitiveType != GL_TRIANGLE_STRIP))
    return;
  const std::size_t count = mPrimitiveType == GL_TRIANGLES ? n / 3 : n - 2;
  std::vector<std::uint32_t>& indices = mOutput->indices;
  indices.resize(indices.size() + 3 * count);
  std::uint32_t* out = indices.data() + indices.size() - 3 * count;
  const VertexRecord* const* const v = mPrimitive.data();
  const auto emit = [&out, v](std::size_t a, std::size_t b, std::size_t c) {
    *out++ = v[a]->mVertex;
    *out++ = v[b]->mVertex;
    *out++ = v[c]->mVertex;
  };
  switch (mPrimitiveType) {
    case GL_TRIANGLES:
      for (std::size_t i = 0; i < count; ++i) emit(3 * i, 3 * i + 1, 3 * i + 2);
      break;
    case GL_TRIANGLE_FAN:
      for (std::size_t i = 0; i < count; ++i) emit(0, i + 1, i + 2);
      break;
    default:  // a strip: every second triangle is the other way round
      for (std::size_t i = 0; i < count; ++i) emit(i + i % 2, i + 1 - i % 2, i + 2);
      break;
  }
  if (mSourceFaces) mSourceFaces->insert(mSourceFaces->end(), count, mFace);
}

/// Adds a vertex where contours cross or meet: at most four vertices that it lies between, some of which may be null,
/// and their weights.
VertexRecord* Triangulator::State::combine(const GLdouble position[3], void* const sources[4],
                                           const GLfloat weights[4]) {
  if (mCombined.size() == kMaxCombinedVertices)
    throw std::runtime_error("Triangulator: not enough space for combined vertices!");
  const std::size_t vertex = mOutput->vertexCoordinates.size() / 3;
  if (vertex > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("more than 2^32 vertices");

  mOutput->vertexCoordinates.insert(mOutput->vertexCoordinates.end(), position, position + 3);
  // valueOf(v) points to the values of vertex v.
  const auto weightedSum = [&]<std::size_t kCount>(std::array<double, kCount>& sum, auto valueOf) {
    for (int i = 0; i < 4; ++i) {
      if (!sources[i]) continue;
      const auto* const value = valueOf(static_cast<const VertexRecord*>(sources[i])->mVertex);
      for (std::size_t k = 0; k < kCount; ++k) sum[k] += weights[i] * value[k];
    }
  };
  if (std::vector<double>& second = mOutput->secondCoordinates; !second.empty()) {
    std::array<double, 3> sum{};
    weightedSum(sum, [&](std::size_t v) { return second.data() + 3 * v; });
    second.insert(second.end(), sum.begin(), sum.end());
  }
  for (TriangleMesh::CoordinateSet& set : mOutput->coordinateSets) {
    if (set.empty()) continue;
    std::array<double, 2> sum{};
    weightedSum(sum, [&](std::size_t v) { return set[v].data(); });
    set.push_back(sum);
  }
  return &mCombined.emplace_back(VertexRecord{static_cast<std::uint32_t>(vertex)});
}

void GLAPIENTRY Triangulator::State::onBegin(GLenum type, void* data) {
  State& state = *static_cast<State*>(data);
  state.mPrimitiveType = type;
  state.mPrimitive.clear();
}

void GLAPIENTRY Triangulator::State::onEnd(void* data) {
  State& state = *static_cast<State*>(data);
  state.guarded([&] { state.endPrimitive(); });
}

void GLAPIENTRY Triangulator::State::onVertex(void* vertex, void* data) {
  State& state = *static_cast<State*>(data);
  state.guarded([&] { state.mPrimitive.push_back(static_cast<const VertexRecord*>(vertex)); });
}

void GLAPIENTRY Triangulator::State::onCombine(GLdouble position[3], void* sources[4], GLfloat weights[4], void** out,
                                               void* data) {
  State& state = *static_cast<State*>(data);
  // Once an exception is kept, the tessellator still gets some vertex: without one it would report an error of its own.
  *out = sources[0];
  state.guarded([&] { *out = state.combine(position, sources, weights); });
}

Triangulator::Triangulator() : mState(std::make_unique<State>()) {}

Triangulator::~Triangulator() = default;

TriangleMesh* Triangulator::triangulate(const Mesh& mesh, std::vector<double> vertexCoordinates, int option) {
  TriangleMeshArrays arrays;
  arrays.vertexCoordinates = std::move(vertexCoordinates);
  return triangulate(mesh, std::move(arrays), option, TriangleMeshFactory());
}

TriangleMesh* Triangulator::triangulate(const Mesh& mesh, TriangleMeshArrays&& arrays, int option,
                                        const TriangleMeshFactory& factory) {
  const MeshStorage& storage = mesh.storage();
  requirePerVertex(arrays, storage.mVertices.size());
  arrays.edgePairs.clear();
  mState->run(storage, arrays, nullptr);
  if (option == kWithEdgePairs) {
    const auto& edges = storage.mConnectivity.edges(storage.mFaces);
    arrays.edgePairs.reserve(2 * edges.size());
    for (const auto& [first, second] : edges) arrays.edgePairs.insert(arrays.edgePairs.end(), {first, second});
  } else if (option == kWithLines) {
    const PrimitiveList& lines = storage.mLines;
    for (std::size_t line = 0; line < lines.size(); ++line)
      if (const auto corners = lines.corners(line); corners.size() > 1)
        arrays.indices.insert(arrays.indices.end(), {corners[0], corners[1], corners[1]});
  }
  return factory.create(std::move(arrays));
}

std::unique_ptr<Mesh> Triangulator::triangulateToFaces(const Mesh& mesh, std::vector<std::uint32_t>* sourceFaces) {
  const MeshStorage& storage = mesh.storage();
  TriangleMeshArrays arrays;
  arrays.vertexCoordinates.reserve(3 * storage.mVertices.size());
  for (const Vec3& v : storage.mVertices)
    arrays.vertexCoordinates.insert(arrays.vertexCoordinates.end(), {v.x, v.y, v.z});
  std::vector<std::uint32_t> sources;
  mState->run(storage, arrays, &sources);

  auto result = std::make_unique<Mesh>(storage.mName, std::vector<Vec3>(), std::vector<Polygon>());
  MeshStorage& out = result->storage();
  out.mVertices.resize(arrays.vertexCoordinates.size() / 3);
  if (!out.mVertices.empty())
    std::memcpy(out.mVertices.data(), arrays.vertexCoordinates.data(), out.mVertices.size() * sizeof(Vec3));
  out.mFaces.adopt(Buffer<std::uint32_t>(sources.size(), 3u),
                   Buffer<std::uint32_t>(arrays.indices.begin(), arrays.indices.end()), {});
  for (std::size_t triangle = 0; triangle < sources.size(); ++triangle)
    out.mFaces.setNormal(triangle, storage.mFaces.normal(sources[triangle]));
  if (sourceFaces) *sourceFaces = std::move(sources);
  return result;
}

}  // namespace util
