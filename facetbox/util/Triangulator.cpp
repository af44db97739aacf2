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
#include <facetbox/triangles/Tessellator.h>
#include <facetbox/triangles/TriangleMeshFactory.h>

namespace util {
namespace {

constexpr int kWithEdgePairs = 1;
constexpr int kWithLines = 2;

/// Prints a tessellation error. Flushes the standard streams only: flushing every stream of the process would wait for
/// a thread that sits in a read.
void printError(GLenum code) noexcept {
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

/// Tessellates the faces of a mesh into arrays.
struct Triangulator::State final : private Tessellator::Caller {
  /// Tessellates all faces into `output`'s indices.
  void run(const MeshStorage& mesh, TriangleMeshArrays& output, std::vector<std::uint32_t>* sourceFaces);

 private:
  void tessellate(const PrimitiveList& faces, std::size_t face, std::span<const HoleTable::Group> groups,
                  const Vec3& normal);
  bool touchesNaN(const PrimitiveList& faces, std::size_t face, std::span<const HoleTable::Group> groups) const;
  bool touchesNaN(std::span<const std::uint32_t> corners) const;

  std::uint32_t addCorner(const Vec3& position, std::span<const Tessellator::Source> sources) override;
  void reportError(GLenum code) noexcept override { printError(code); }

  Tessellator mTessellator{*this};
  TriangleMeshArrays* mOutput = nullptr;
};

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

  for (std::size_t face = 0; face < faces.size(); ++face) {
    const auto groups = holes.groupsOf(face);
    if (faces.cornerCount(face) < 3 || holes.isHole(face)) continue;
    if (mayTouchNaN && touchesNaN(faces, face, groups)) {
      printError(GLU_TESS_COORD_TOO_LARGE);
      continue;
    }
    Vec3 normal = faces.normal(face);
    if (!normalsAreStored) computeFaceNormal(vertices, faces.corners(face), normal);
    tessellate(faces, face, groups, normal);
    if (sourceFaces) sourceFaces->resize(output.indices.size() / 3, static_cast<std::uint32_t>(face));
  }
}

void Triangulator::State::tessellate(const PrimitiveList& faces, std::size_t face,
                                     std::span<const HoleTable::Group> groups, const Vec3& normal) {
  std::size_t cornerCount = faces.cornerCount(face);
  for (const HoleTable::Group& group : groups)
    for (const std::uint32_t hole : group.holes) cornerCount += faces.cornerCount(hole);
  const auto addContour = [this,
                           coordinates = mOutput->vertexCoordinates.data()](std::span<const std::uint32_t> corners) {
    mTessellator.addContour(corners.size(), [=](std::size_t i) {
      return std::pair(corners[i], coordinates + 3 * std::size_t{corners[i]});
    });
  };

  mTessellator.begin(cornerCount, normal, mOutput->indices);
  addContour(faces.corners(face));
  for (const HoleTable::Group& group : groups)
    for (const std::uint32_t hole : group.holes) addContour(faces.corners(hole));
  if (!mTessellator.end()) throw std::runtime_error("Triangulator: not enough space for combined vertices!");
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

/// Adds a vertex, with weighted sums of the values of those that it lies between.
std::uint32_t Triangulator::State::addCorner(const Vec3& position, std::span<const Tessellator::Source> sources) {
  const std::size_t vertex = mOutput->vertexCoordinates.size() / 3;
  if (vertex > std::numeric_limits<std::uint32_t>::max()) throw std::length_error("more than 2^32 vertices");

  mOutput->vertexCoordinates.insert(mOutput->vertexCoordinates.end(), {position.x, position.y, position.z});
  // valueOf(v) points to the values of vertex v.
  const auto weightedSum = [&]<std::size_t kCount>(std::array<double, kCount>& sum, auto valueOf) {
    for (const Tessellator::Source& source : sources) {
      const auto* const value = valueOf(source.number);
      for (std::size_t k = 0; k < kCount; ++k) sum[k] += source.weight * value[k];
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
  return static_cast<std::uint32_t>(vertex);
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
