#include <tools/DefectProbe.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <span>
#include <vector>

#include <facetbox/cleanup/Cleanup.h>
#include <tools/RecordBridge.h>

namespace tool {
namespace {

/// Only faces and vertices.
struct Probe {
  std::vector<float> vertices;
  std::vector<std::uint32_t> indices, counts;

  Cleanup::MeshData view() {
    Cleanup::MeshData data{};
    data.mVertexCoords = vertices.data();
    data.mVCCount = static_cast<int>(vertices.size());
    data.mIndices = indices.data();
    data.mIndexCount = static_cast<int>(indices.size());
    data.mCounts = counts.data();
    data.mCountCount = static_cast<int>(counts.size());
    return data;
  }
};

/// Number of vertices that a weld removes when no face can prevent it: every vertex gets a triangle of its own, with
/// two points far outside the box.
std::size_t countDuplicates(const Model& model, const MeshFacts& facts, double tolerance) {
  const auto vertexCount = static_cast<std::uint32_t>(model.vertexCount());
  Probe probe;
  probe.vertices = model.mVertices;
  const auto away = static_cast<float>(4 * facts.mDiagonal + 1);
  for (const float side : {1.0f, -1.0f})
    for (std::size_t axis = 0; axis < 3; ++axis)
      probe.vertices.push_back(facts.mMax[axis] + away * (axis == 0 ? 1.0f : axis == 1 ? side : 0.5f));
  if (!std::all_of(probe.vertices.begin(), probe.vertices.end(), [](float x) { return std::isfinite(x); })) return 0;
  for (std::uint32_t v = 0; v < vertexCount; ++v) {
    probe.indices.insert(probe.indices.end(), {v, vertexCount, vertexCount + 1});
    probe.counts.push_back(3);
  }
  const RecordPtr welded(Cleanup::mergeVertices(static_cast<float>(tolerance), probe.view()));
  return welded ? vertexCount + 2 - static_cast<std::size_t>(welded->mVCCount) / 3 : 0;
}

/// Number of faces that repeat an earlier one. Skips hole faces and faces that repeat a vertex.
std::size_t countDoubleFaces(const Model& model) {
  std::vector<bool> isHole(model.faceCount());
  for (std::size_t i = 1; i < model.mHoles.size(); ++i)
    if (model.mHoles[i] != kEndOfGroup && model.mHoles[i - 1] != kEndOfGroup) isHole[model.mHoles[i]] = true;
  Probe probe;
  probe.vertices = model.mVertices;
  std::vector<std::uint32_t> scratch;
  std::size_t corner = 0;
  for (std::size_t face = 0; face < model.faceCount(); ++face) {
    const auto corners = std::span(model.mIndices).subspan(corner, model.mCounts[face]);
    corner += corners.size();
    if (isHole[face] || corners.size() < 3 || repeatsVertex(corners, scratch)) continue;
    probe.indices.insert(probe.indices.end(), corners.begin(), corners.end());
    probe.counts.push_back(model.mCounts[face]);
  }
  if (probe.counts.empty()) return 0;
  const RecordPtr single(Cleanup::removeFacesDouble(false, probe.view()));
  return single ? probe.counts.size() - static_cast<std::size_t>(single->mCountCount) : 0;
}

}  // namespace

void probeDefects(const Model& model, MeshFacts& facts) {
  if (model.vertexCount() == 0) return;
  facts.mDuplicateVertices = countDuplicates(model, facts, 0);
  facts.mNearlyDuplicateVertices = countDuplicates(model, facts, kNearlySame * facts.mDiagonal);
  facts.mDoubleFaces = countDoubleFaces(model);
}

}  // namespace tool
