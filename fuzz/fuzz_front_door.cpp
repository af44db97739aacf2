// Turns bytes into arrays of a mesh in doubles, sound or not, and hands them to what takes such meshes: the answer is
// InvalidMesh where validate() finds something fatal, and else a result that is sound itself.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <vector>

#include <facetbox/PolyMesh.h>
#include <facetbox/check.h>
#include <facetbox/clean.h>
#include <facetbox/triangulate.h>
#include "fuzz/Bytes.h"

namespace {

using facetbox::kNone;
using facetbox::MeshView;
using facetbox::PolyMesh;

[[noreturn]] void fail(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  std::abort();
}

/// Mostly a small integer grid, where ties happen; now and then something nasty.
double nextCoordinate(Bytes& in) {
  static constexpr double kNasty[] = {0.3, -1e-320, 1.7e308, 1e-170, 1e150, -3e160, INFINITY, NAN};
  const std::uint8_t byte = in.next();
  if (byte >= 0xF8) return kNasty[byte - 0xF8];
  return (byte % 16 - 8) * (byte < 128 ? 1.0 : 0.25);
}

/// Mostly below `end`.
std::uint32_t nextIndex(Bytes& in, std::size_t end) {
  static constexpr std::uint32_t kOdd[] = {kNone, kNone - 1, 0x80000000u, 1000};
  const std::uint8_t byte = in.next();
  if (byte >= 0xFC) return kOdd[byte - 0xFC];
  return end > 0 ? byte % static_cast<std::uint32_t>(end) : 0;
}

void readFaces(Bytes& in, std::size_t vertices, std::size_t pairs, PolyMesh& mesh) {
  for (std::uint32_t faces = in.below(24); faces > 0; --faces) {
    const std::uint8_t shape = in.next();
    const std::uint32_t count = shape < 8 ? shape % 4 : shape > 250 ? 3 + in.below(200) : 3 + shape % 6;
    const bool isBare = shape % 8 == 7;
    mesh.counts.push_back(count);
    for (std::uint32_t corner = 0; corner < count; ++corner) {
      mesh.indices.push_back(nextIndex(in, vertices));
      if (pairs > 0) mesh.texIndices.push_back(isBare ? kNone : nextIndex(in, pairs));
    }
  }
}

/// Holes whose order and number make sense more often than chance would have it.
void readHoles(Bytes& in, PolyMesh& mesh) {
  for (std::uint32_t entries = in.below(30); entries > 0; --entries) {
    const std::uint8_t byte = in.next();
    mesh.holes.push_back(byte % 4 == 0 ? kNone : nextIndex(in, mesh.counts.size()));
  }
  if (in.next() % 8 != 0) mesh.holes.push_back(kNone);
}

/// Takes from an array, adds to it or changes an entry.
template <class T>
void spoil(Bytes& in, std::vector<T>& array) {
  const std::uint8_t how = in.next();
  if (how % 3 == 0)
    array.resize(array.size() - std::min<std::size_t>(array.size(), 1 + how % 5));
  else if (how % 3 == 1)
    array.push_back(static_cast<T>(in.next()));
  else if (!array.empty())
    array[in.next() % array.size()] = static_cast<T>(how < 128 ? kNone : in.next());
}

PolyMesh readMesh(Bytes& in) {
  PolyMesh mesh;
  const std::uint8_t features = in.next();
  const std::uint32_t vertices = in.below(60), pairs = features & 1 ? in.below(12) : 0;
  const double scale = std::ldexp(1.0, static_cast<std::int8_t>(features & 2 ? in.next() : 0));
  const double offset = features & 4 ? 446522.057 : 0.0;
  for (std::uint32_t i = 0; i < 3 * vertices; ++i) mesh.points.push_back(nextCoordinate(in) * scale + offset);
  for (std::uint32_t i = 0; i < 2 * pairs; ++i) mesh.texCoords.push_back(nextCoordinate(in));
  readFaces(in, vertices, pairs, mesh);
  if (features & 8)
    for (std::size_t face = 0; face < mesh.counts.size(); ++face) mesh.labels.push_back(in.next() % 3);
  if (features & 16) readHoles(in, mesh);
  if (features & 32) {
    std::vector<std::uint32_t>* const arrays[] = {&mesh.counts, &mesh.indices, &mesh.texIndices, &mesh.labels,
                                                  &mesh.holes};
    for (std::uint32_t times = in.below(3); times > 0; --times) {
      if (const std::uint32_t which = in.below(7); which < 5)
        spoil(in, *arrays[which]);
      else
        spoil(in, which == 5 ? mesh.points : mesh.texCoords);
    }
  }
  return mesh;
}

bool isSound(const MeshView& mesh) {
  return std::ranges::none_of(facetbox::validate(mesh), &facetbox::Problem::isFatal);
}

/// Nothing at all is wrong with a mesh that came out.
void requireSound(const MeshView& mesh) {
  for (const facetbox::Problem& problem : facetbox::validate(mesh, 1)) fail(describe(problem).c_str());
}

std::vector<facetbox::Step> readSteps(Bytes& in) {
  std::vector<facetbox::Step> steps;
  for (std::uint32_t count = in.below(6); count > 0; --count) {
    static constexpr double kOdd[] = {1e-320, 1e300, 180, 1e-7};
    const std::uint8_t which = in.next(), size = in.next();
    const double value = size < 4 ? kOdd[size] : size % 32 * 0.125;
    const bool flag = which >= 128;
    const facetbox::Step all[] = {facetbox::MergeVertices{value},       facetbox::RemoveZeroEdges{value},
                                  facetbox::RemoveZeroFaces{value},     facetbox::RemoveDoubleFaces{flag},
                                  facetbox::ConformNormals{},           facetbox::MergeCoplanar{value, flag},
                                  facetbox::RemoveColinear{value, flag}};
    steps.push_back(all[which % std::size(all)]);
  }
  return steps;
}

/// The result of a call, which must throw if and only if the mesh is not sound.
template <class Call, class Use>
void run(const MeshView& mesh, bool isMeshSound, Call call, Use use) {
  try {
    const auto result = call(mesh);
    if (!isMeshSound) fail("a mesh with fatal problems was taken");
    use(result);
  } catch (const facetbox::InvalidMesh&) {
    if (isMeshSound) fail("a sound mesh was rejected");
  }
}

void checkTriangles(const PolyMesh& mesh, const facetbox::Triangulation& result) {
  PolyMesh cut = mesh;
  cut.points.insert(cut.points.end(), result.madePoints.begin(), result.madePoints.end());
  cut.texCoords.insert(cut.texCoords.end(), result.madeTexCoords.begin(), result.madeTexCoords.end());
  cut.counts.assign(result.faces.size(), 3);
  cut.indices = result.triangles;
  cut.texIndices = result.texIndices;
  cut.labels = result.faces;
  cut.holes.clear();
  requireSound(cut);
  if (std::ranges::any_of(result.faces, [&](std::uint32_t face) { return face >= mesh.counts.size(); }))
    fail("triangles of no face");
  for (const facetbox::SkippedFace& skipped : result.skipped)
    if (skipped.face >= mesh.counts.size() || describe(skipped).empty()) fail("no face was skipped");
}

void checkDefects(const PolyMesh& mesh, const facetbox::Defects& result) {
  const std::size_t faces = mesh.counts.size(), vertices = mesh.points.size() / 3;
  const auto areBelow = [](const auto& pairs, std::size_t end) {
    return std::ranges::all_of(pairs, [=](const auto& pair) { return pair[0] < end && pair[1] < end; });
  };
  for (const auto* const pairs :
       {&result.sameVertices, &result.openEdges, &result.overusedEdges, &result.sameDirectionEdges})
    if (!areBelow(*pairs, vertices)) fail("pairs of vertices");
  if (!areBelow(result.doubleFaces, faces) || !areBelow(result.selfIntersections, faces)) fail("pairs of faces");
  if (std::ranges::any_of(result.zeroEdges, [&](const auto& edge) { return edge.corner >= mesh.counts.at(edge.face); }))
    fail("zero edges");
  if (result.components.size() != faces) fail("components");
  if (result.isClosed && !result.openEdges.empty()) fail("a closed mesh with open edges");
}

/// Whether a map has an entry per old item, a new item or kNone.
bool isMap(const std::vector<std::uint32_t>& map, std::size_t from, std::size_t to) {
  return map.size() == from && std::ranges::all_of(map, [=](std::uint32_t i) { return i == kNone || i < to; });
}

void checkCleaned(const PolyMesh& mesh, const facetbox::Cleaned& result) {
  requireSound(result.mesh);
  if (!result.steps.empty() && result.steps.back().measuresAfter != facetbox::measure(result.mesh)) fail("measures");
  const std::size_t vertices = result.mesh.points.size() / 3, faces = result.mesh.counts.size();
  if (!isMap(result.vertexMap, mesh.points.size() / 3, vertices)) fail("vertexMap");
  if (!isMap(result.faceMap, mesh.counts.size(), faces)) fail("faceMap");
  if (result.vertexSources.size() != vertices) fail("vertexSources");
  for (std::size_t v = 0; v < vertices; ++v) {
    const std::size_t source = 3 * std::size_t{result.vertexSources[v]};
    if (source + 3 > mesh.points.size() ||
        std::memcmp(&mesh.points[source], &result.mesh.points[3 * v], 3 * sizeof(double)) != 0)
      fail("a vertex that did not go in");
  }
  const auto& offsets = result.sourceOffsets;
  if (offsets.size() != faces + 1 || !std::ranges::is_sorted(offsets) || offsets.back() != result.sources.size())
    fail("sourceOffsets");
  for (std::size_t face = 0; face < faces; ++face)
    for (std::size_t i = offsets[face]; i < offsets[face + 1]; ++i)
      if (result.sources[i] >= mesh.counts.size() || result.faceMap[result.sources[i]] != face) fail("sources");
  const facetbox::Step conform[] = {facetbox::ConformNormals{}};
  const facetbox::Cleaned oriented = clean(result.mesh, conform);
  if (clean(oriented.mesh, conform).steps[0].facesTurned != 0) fail("faces that turn at every run");
  for (const double degrees : {1.0, 40.0, 100.0}) {
    const facetbox::Step straighten[] = {facetbox::RemoveColinear{degrees}};
    const PolyMesh straight = clean(result.mesh, straighten).mesh;
    if (clean(straight, straighten).mesh != straight) fail("corners that a second run finds straight");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Bytes in(bytes, size);
  const PolyMesh mesh = readMesh(in);
  for (const facetbox::Problem& problem : facetbox::validate(mesh, in.next() % 8))
    if (describe(problem).empty()) fail("a problem without words");
  const bool isMeshSound = isSound(mesh);
  run(
      mesh, isMeshSound, [](const MeshView& view) { return facetbox::triangulate(view); },
      [&](const auto& result) { checkTriangles(mesh, result); });
  const facetbox::CheckOptions options{.selfIntersections = in.next() % 4 != 0};
  run(
      mesh, isMeshSound, [&](const MeshView& view) { return facetbox::check(view, options); },
      [&](const auto& result) { checkDefects(mesh, result); });
  const std::vector<facetbox::Step> steps = readSteps(in);
  run(
      mesh, isMeshSound, [&](const MeshView& view) { return facetbox::clean(view, steps, {.measures = true}); },
      [&](const auto& result) { checkCleaned(mesh, result); });
  return 0;
}
