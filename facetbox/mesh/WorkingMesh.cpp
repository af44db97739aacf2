#include <facetbox/mesh/WorkingMesh.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <utility>
#include <vector>

#include <facetbox/base/Buffer.h>
#include <facetbox/math/Box.h>
#include <facetbox/mesh/FillFaces.h>
#include <facetbox/mesh/MeshStorage.h>

namespace util {
namespace {

using facetbox::MeshView;
using facetbox::PolyMesh;

/// The box of the vertices that faces of three corners and more use, and whether such a face repeats a corner.
std::pair<Box, bool> usedBox(const MeshView& mesh, Monitor* monitor) {
  Buffer<std::uint8_t> isUsed(mesh.points.size() / 3, 0);
  std::size_t first = 0;
  unsigned hasRepeats = 0;
  for (Monitor::Blocks blocks(monitor, mesh.counts.size()); blocks.next();)
    for (std::size_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      const std::uint32_t count = mesh.counts[face];
      if (count >= 3) {
        const auto corners = mesh.indices.subspan(first, count);
        for (std::uint32_t before = corners.back(); const std::uint32_t v : corners) {
          isUsed[v] = 1;
          hasRepeats |= unsigned{v == std::exchange(before, v)};
        }
      }
      first += count;
    }
  Box box;
  for (Monitor::Blocks blocks(monitor, isUsed.size()); blocks.next();)
    for (std::size_t v = blocks.begin(), end = blocks.end(); v < end; ++v)
      if (isUsed[v] != 0) box.extend(toVec3(&mesh.points[3 * v]));
  return {box, hasRepeats != 0};
}

/// What to take from the coordinates of an axis: the one that is nearest to zero, or zero where differences from it
/// need not be exact. Two doubles of which neither is more than twice the other have an exact difference (Sterbenz,
/// Floating-Point Computation, 1974).
double originOf(double min, double max) {
  if (min > 0 && max / 2 <= min) return min;
  if (max < 0 && min / 2 >= max) return max;
  return 0;
}

/// Faces of one label in a row become a run, its material the label.
void readLabels(std::span<const std::uint32_t> labels, MeshStorage& m) {
  for (std::uint32_t face = 0; face < labels.size(); ++face) {
    if (face > 0 && labels[face] == labels[face - 1]) continue;
    m.mRunStarts.push_back(face);
    m.mRunMaterials.push_back({ShaderHandle::ofNumber(labels[face]), {}});
  }
}

/// Takes the set from the faces without texture coordinates.
void dropMissingTexCoords(PrimitiveList& faces) {
  for (std::size_t face = 0; face < faces.size(); ++face)
    if (faces.cornerSet(face, 0).front() == facetbox::kNone) faces.dropCornerSet(face, 0);
}

/// reserveLarge(), with a look at the monitor now and then.
template <class T>
void reserveInPieces(std::vector<T>& values, std::size_t size, Monitor* monitor) {
  constexpr std::size_t kPiece = (std::size_t{16} << 20) / sizeof(T);
  if (!monitor) return reserveLarge(values, size);
  values.reserve(size);
  adviseLargePages(values.data(), size * sizeof(T));
  for (std::size_t begin = 0; begin < size; begin += kPiece) {
    populatePages(values.data() + begin, std::min(kPiece, size - begin) * sizeof(T));
    monitor->look();
  }
}

void writeFaces(const PrimitiveList& faces, bool withTexCoords, Monitor* monitor, PolyMesh& mesh) {
  reserveInPieces(mesh.counts, faces.size(), monitor);
  mesh.counts.resize(faces.size());
  std::size_t corners = 0;
  for (std::size_t face = 0; face < faces.size(); ++face) corners += mesh.counts[face] = faces.cornerCount(face);
  reserveInPieces(mesh.indices, corners, monitor);
  mesh.indices.resize(corners);
  faces.copyCorners(mesh.indices.data());
  if (!withTexCoords) return;
  reserveInPieces(mesh.texIndices, corners, monitor);
  bool isComplete = true;
  for (std::size_t face = 0; face < faces.size(); ++face) isComplete = isComplete && faces.carries(face, 0);
  mesh.texIndices.resize(corners, facetbox::kNone);
  if (isComplete) return faces.copyCornerSet(0, mesh.texIndices.data());
  auto out = mesh.texIndices.begin();
  for (std::size_t face = 0; face < faces.size(); ++face) {
    if (faces.carries(face, 0)) std::ranges::copy(faces.cornerSet(face, 0), out);
    out += faces.cornerCount(face);
  }
}

void writeLabels(const MeshStorage& m, PolyMesh& mesh) {
  reserveLarge(mesh.labels, m.mFaces.size());
  mesh.labels.resize(m.mFaces.size());
  // A run of which nothing is left may start beyond the last face.
  const auto startOf = [&](std::size_t run) {
    return run < m.mRunStarts.size() ? std::min<std::size_t>(m.mRunStarts[run], m.mFaces.size()) : m.mFaces.size();
  };
  for (std::size_t run = 0; run < m.mRunStarts.size(); ++run)
    std::fill(mesh.labels.begin() + static_cast<std::ptrdiff_t>(startOf(run)),
              mesh.labels.begin() + static_cast<std::ptrdiff_t>(startOf(run + 1)), m.mRunMaterials[run].first.number());
}

/// Groups that have lost all their holes are none any more.
void writeHoles(const HoleTable& table, std::vector<std::uint32_t>& holes) {
  holes.reserve(table.list().size());
  std::size_t group = 0;
  for (const std::uint32_t entry : table.list()) {
    holes.push_back(entry);
    if (entry != HoleTable::kEnd) continue;
    if (holes.size() == group + 2) holes.resize(group);
    group = holes.size();
  }
}

}  // namespace

MeshFrame frameOf(const MeshView& mesh, Monitor* monitor) {
  const auto [box, hasRepeats] = usedBox(mesh, monitor);
  MeshFrame frame;
  frame.hasRepeats = hasRepeats;
  if (box.min.x > box.max.x) return frame;
  frame.origin = {originOf(box.min.x, box.max.x), originOf(box.min.y, box.max.y), originOf(box.min.z, box.max.z)};
  // Halved, so that the sides of the largest boxes do not overflow.
  const Vec3 half = 0.5 * box.max - 0.5 * box.min;
  const double longest = largestMagnitude(half);
  if (longest == 0) return frame;
  // The smallest meshes of all would need a factor beyond what a double holds.
  constexpr int kLargestPower = 1022;
  frame.scale = std::ldexp(1.0, std::clamp(-std::ilogb(longest) - 1, -kLargestPower, kLargestPower));
  frame.diagonal = 2 * length(frame.scale * half);
  return frame;
}

void readVertices(const MeshView& mesh, const MeshFrame& frame, Monitor* monitor, Buffer<Vec3>& vertices) {
  vertices.resize(mesh.points.size() / 3);
  for (Monitor::Blocks blocks(monitor, vertices.size()); blocks.next();)
    for (std::size_t v = blocks.begin(), end = blocks.end(); v < end; ++v)
      vertices[v] = frame.toFrame(toVec3(&mesh.points[3 * v]));
}

std::unique_ptr<Mesh> makeWorkingMesh(const MeshView& view, const MeshFrame& frame, MeshHistory* history,
                                      Monitor* monitor) {
  auto mesh = std::make_unique<Mesh>("", std::vector<Vec3>(), std::vector<Polygon>());
  MeshStorage& m = mesh->storage();
  m.mHistory.set(history);
  m.mMonitor.set(monitor);
  readVertices(view, frame, monitor, m.mVertices);
  readLabels(view.labels, m);
  m.mHoles.append(view.holes.data(), view.holes.size());
  const bool hasTexCoords = !view.texIndices.empty();
  if (hasTexCoords) {
    m.mTexCoords[0].resize(view.texCoords.size() / 2);
    for (std::size_t pair = 0; pair < m.mTexCoords[0].size(); ++pair)
      m.mTexCoords[0][pair] = {view.texCoords[2 * pair], view.texCoords[2 * pair + 1]};
  }
  if (monitor) monitor->look();
  fillFaces(*mesh,
            FaceArrays<std::uint32_t>{view.counts.data(), view.counts.size(), view.indices.data(),
                                      hasTexCoords ? view.texIndices.data() : nullptr, hasTexCoords},
            Indices::inRange, Normals::leftOpen);
  if (hasTexCoords) dropMissingTexCoords(m.mFaces);
  return mesh;
}

PolyMesh toPolyMesh(const Mesh& mesh, const MeshView& input, const MeshHistory& history) {
  const MeshStorage& m = mesh.storage();
  Monitor* const monitor = m.mMonitor.get();
  PolyMesh result;
  const std::span<const std::uint32_t> sources = history.vertices.sources();
  reserveInPieces(result.points, 3 * sources.size(), monitor);
  result.points.resize(3 * sources.size());
  for (Monitor::Blocks blocks(monitor, sources.size()); blocks.next();)
    for (std::size_t v = blocks.begin(), end = blocks.end(); v < end; ++v)
      std::copy_n(&input.points[3 * std::size_t{sources[v]}], 3, &result.points[3 * v]);
  reserveInPieces(result.texCoords, input.texCoords.size(), monitor);
  result.texCoords.assign(input.texCoords.begin(), input.texCoords.end());
  if (monitor) monitor->look();
  writeFaces(m.mFaces, !input.texIndices.empty(), monitor, result);
  if (monitor) monitor->look();
  if (!input.labels.empty()) writeLabels(m, result);
  writeHoles(m.mHoles, result.holes);
  return result;
}

}  // namespace util
