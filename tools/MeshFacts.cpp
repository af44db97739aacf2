#include <tools/MeshFacts.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <span>

namespace tool {
namespace {

using Corners = std::span<const std::uint32_t>;

void measureBox(const Model& model, MeshFacts& facts) {
  if (model.mVertices.empty()) return;
  facts.mMin.fill(std::numeric_limits<float>::max());
  facts.mMax.fill(std::numeric_limits<float>::lowest());
  for (std::size_t i = 0; i < model.mVertices.size(); ++i) {
    facts.mMin[i % 3] = std::min(facts.mMin[i % 3], model.mVertices[i]);
    facts.mMax[i % 3] = std::max(facts.mMax[i % 3], model.mVertices[i]);
  }
  double diagonalSq = 0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double size = double{facts.mMax[axis]} - double{facts.mMin[axis]};
    diagonalSq += size * size;
  }
  facts.mDiagonal = std::sqrt(diagonalSq);
}

bool samePosition(const Model& model, std::uint32_t a, std::uint32_t b) {
  return std::equal(&model.mVertices[std::size_t{3} * a], &model.mVertices[std::size_t{3} * a] + 3,
                    &model.mVertices[std::size_t{3} * b]);
}

// Half the length of the area vector, taken relative to the first corner.
double areaOf(const Model& model, Corners corners) {
  const float* origin = &model.mVertices[std::size_t{3} * corners[0]];
  const auto edgeTo = [&](std::uint32_t vertex) {
    const float* p = &model.mVertices[std::size_t{3} * vertex];
    return std::array<double, 3>{double{p[0]} - origin[0], double{p[1]} - origin[1], double{p[2]} - origin[2]};
  };
  std::array<double, 3> sum = {};
  std::array<double, 3> a = edgeTo(corners[1]);
  for (std::size_t i = 2; i < corners.size(); ++i) {
    const std::array<double, 3> b = edgeTo(corners[i]);
    sum[0] += a[1] * b[2] - a[2] * b[1];
    sum[1] += a[2] * b[0] - a[0] * b[2];
    sum[2] += a[0] * b[1] - a[1] * b[0];
    a = b;
  }
  return 0.5 * std::sqrt(sum[0] * sum[0] + sum[1] * sum[1] + sum[2] * sum[2]);
}

struct EdgeUse {
  std::uint64_t mKey;  // both vertices, the smaller one high
  bool mIsForward;     // from the smaller to the larger
  bool operator<(const EdgeUse& other) const { return mKey < other.mKey; }
};

void countEdges(const Model& model, std::vector<EdgeUse>& uses, MeshFacts& facts) {
  std::sort(uses.begin(), uses.end());
  for (auto first = uses.begin(); first != uses.end();) {
    const auto end = std::find_if(first, uses.end(), [&](const EdgeUse& use) { return use.mKey != first->mKey; });
    const auto count = end - first;
    const auto a = static_cast<std::uint32_t>(first->mKey >> 32), b = static_cast<std::uint32_t>(first->mKey);
    if (samePosition(model, a, b)) ++facts.mZeroLengthEdges;
    // Faces cannot share an edge from a vertex to itself.
    if (a != b && count == 1) ++facts.mBorderEdges;
    if (a != b && count > 2) ++facts.mOverusedEdges;
    if (a != b && count == 2 && first->mIsForward == (first + 1)->mIsForward) ++facts.mSameDirectionEdges;
    first = end;
  }
}

void countFaces(const Model& model, MeshFacts& facts) {
  std::vector<bool> isUsed(model.vertexCount());
  std::vector<EdgeUse> uses;
  uses.reserve(model.mIndices.size());
  std::vector<std::uint32_t> scratch;
  std::size_t corner = 0;
  for (const std::uint32_t count : model.mCounts) {
    const Corners corners = Corners(model.mIndices).subspan(corner, count);
    corner += count;
    ++facts.mFacesByCorners[count];
    for (const std::uint32_t vertex : corners) isUsed[vertex] = true;
    if (count < 3) {
      ++facts.mIllegalFaces;
      continue;
    }
    const double area = areaOf(model, corners);
    if (area == 0) ++facts.mZeroAreaFaces;
    if (area <= 1e-12 * facts.mDiagonal * facts.mDiagonal) ++facts.mNearlyZeroAreaFaces;
    if (repeatsVertex(corners, scratch)) ++facts.mRepeatingFaces;
    for (std::size_t i = 0; i < corners.size(); ++i) {
      const std::uint32_t a = corners[i], b = corners[i + 1 < corners.size() ? i + 1 : 0];
      uses.push_back({std::uint64_t{std::min(a, b)} << 32 | std::max(a, b), a < b});
    }
  }
  facts.mUnusedVertices = static_cast<std::size_t>(std::count(isUsed.begin(), isUsed.end(), false));
  countEdges(model, uses, facts);
}

void countMaterials(const Model& model, MeshFacts& facts) {
  std::vector<std::size_t> faces(model.mMaterials.size());
  int last = -1;
  for (std::size_t run = 0; run < model.mRuns.size(); ++run) {
    const std::size_t end = run + 1 < model.mRuns.size() ? model.mRuns[run + 1].mFirstFace : model.faceCount();
    const int material = model.mRuns[run].mLabel.mMaterial;
    if (material >= 0) {
      faces[static_cast<std::size_t>(material)] += end - model.mRuns[run].mFirstFace;
      if (material != last) ++facts.mMaterialRuns;
    }
    last = material;
  }
  for (std::size_t material = 0; material < faces.size(); ++material) {
    if (faces[material] > 0) facts.mFacesByMaterial.emplace_back(model.mMaterials[material], faces[material]);
  }
}

void countHoles(const Model& model, MeshFacts& facts) {
  facts.mHoleGroups = static_cast<std::size_t>(std::count(model.mHoles.begin(), model.mHoles.end(), kEndOfGroup));
  facts.mHoleFaces = model.mHoles.size() - 2 * facts.mHoleGroups;
}

}  // namespace

bool repeatsVertex(Corners corners, std::vector<std::uint32_t>& scratch) {
  scratch.assign(corners.begin(), corners.end());
  std::sort(scratch.begin(), scratch.end());
  return std::adjacent_find(scratch.begin(), scratch.end()) != scratch.end();
}

double boundingBoxDiagonal(const Model& model) {
  MeshFacts facts;
  measureBox(model, facts);
  return facts.mDiagonal;
}

MeshFacts gatherFacts(const Model& model) {
  MeshFacts facts;
  measureBox(model, facts);
  countFaces(model, facts);
  countMaterials(model, facts);
  countHoles(model, facts);
  return facts;
}

}  // namespace tool
