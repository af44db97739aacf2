// Turns bytes into a record that keeps the caller's promises (arrays as long as the counts say), runs clean-up
// functions on it one after another, each on the result of the last, and checks every record that comes out.

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <facetbox/cleanup/Cleanup.h>
#include "fuzz/Bytes.h"
#include "tests/support/RecordCheck.h"

namespace {

/// Mostly a small integer grid, where ties happen; now and then something nasty.
float nextCoordinate(Bytes& in) {
  static constexpr float kNasty[] = {0.3f, -1e-40f, 3e38f, INFINITY, NAN};
  const std::uint8_t byte = in.next();
  if (byte >= 0xFB) return kNasty[byte - 0xFB];
  return static_cast<float>(byte % 16) * (byte < 128 ? 1.0f : 0.25f);
}

/// A tolerance of any operation: lengths, areas and angles of some use, or what no caller should pass.
float nextTolerance(Bytes& in) {
  static constexpr float kHostile[] = {INFINITY, -INFINITY, NAN, -NAN, 3e38f, 1e-40f, 180, 89, -1, 0};
  const std::uint8_t byte = in.next();
  if (byte < std::size(kHostile)) return kHostile[byte];
  return static_cast<float>(byte % 32) * 0.125f;
}

/// A count that means none, now and then.
int nextCount(Bytes& in, std::size_t length) {
  static constexpr int kNone[] = {0, -1, INT_MIN};
  const std::uint8_t byte = in.next();
  return byte < std::size(kNone) ? kNone[byte] : static_cast<int>(length);
}

struct Input {
  std::vector<float> coords, texCoords;
  std::vector<std::uint32_t> indices, texCoordIndices, counts, starts, holes;
  std::vector<char*> textures;
  Cleanup::MeshData data{};
};

void readFaces(Bytes& in, std::uint32_t vertexCount, std::uint32_t pairCount, Input& input) {
  for (std::uint32_t face = in.below(24); face > 0; --face) {
    std::uint32_t count = in.below(9);
    if (count == 8) count = 3 + in.below(40);
    input.counts.push_back(count);
    for (std::uint32_t corner = 0; corner < count; ++corner) {
      input.indices.push_back(in.below(vertexCount));
      // Sometimes beyond the pairs, which is allowed.
      input.texCoordIndices.push_back(in.below(pairCount + 1));
    }
  }
}

void readInput(Bytes& in, Input& input) {
  static char names[3][8] = {"a.png", "b\xE9", ""};
  const std::uint32_t vertexCount = 1 + in.below(40);
  for (std::uint32_t i = 0; i < 3 * vertexCount; ++i) input.coords.push_back(nextCoordinate(in));
  const std::uint8_t features = in.next();
  const std::uint32_t pairCount = features & 1 ? 1 + in.below(12) : 0;
  for (std::uint32_t i = 0; i < 2 * pairCount; ++i) input.texCoords.push_back(nextCoordinate(in));
  readFaces(in, vertexCount, pairCount, input);
  const auto faceCount = static_cast<std::uint32_t>(input.counts.size());
  if (features & 2)
    for (std::uint32_t run = in.below(5); run > 0; --run) {
      const std::uint32_t name = in.below(4);
      input.textures.push_back(name < 3 ? names[name] : nullptr);
      input.starts.push_back(in.below(faceCount + 2));
    }
  if (features & 4)
    for (std::uint32_t entry = in.below(30); entry > 0; --entry) {
      const std::uint32_t face = in.below(faceCount + 4);
      input.holes.push_back(face > faceCount ? 0xFFFFFFFFu : face);
    }
  if (features & 8) input.holes.push_back(0xFFFFFFFFu);

  // Exact copies of the counts' lengths or counts that mean none: then nothing of the array may be read.
  Cleanup::MeshData& data = input.data;
  data.mName = features & 64 ? "name" : nullptr;
  data.mVertexCoords = input.coords.data();
  data.mVCCount = nextCount(in, input.coords.size());
  data.mIndices = input.indices.data();
  data.mCounts = input.counts.data();
  data.mCountCount = nextCount(in, faceCount);
  data.mTexCoords = features & 1 ? input.texCoords.data() : nullptr;
  data.mTCCount = nextCount(in, input.texCoords.size());
  data.mTCIndices = data.mTCCount > 0 ? input.texCoordIndices.data() : nullptr;
  data.mTextures = input.textures.data();
  data.mTexturesCount = nextCount(in, input.textures.size());
  data.mTexturesStartFaces = features & 16 ? input.starts.data() : nullptr;
  data.mHoles = features & 32 ? nullptr : input.holes.data();
  data.mHolesCount = nextCount(in, input.holes.size());
}

const Cleanup::MeshData* runNext(Bytes& in, const Cleanup::MeshData& data) {
  const float tolerance = nextTolerance(in);
  const std::uint32_t which = in.below(14);
  const bool flag = which >= 7;
  switch (which % 7) {
    case 0:
      return Cleanup::mergeVertices(tolerance, data);
    case 1:
      return Cleanup::removeVerticesColinear(tolerance, flag, data);
    case 2:
      return Cleanup::removeEdgesCoplanar(tolerance, flag, data);
    case 3:
      return Cleanup::removeFacesDouble(flag, data);
    case 4:
      return Cleanup::removeFacesZero(tolerance, data);
    case 5:
      return Cleanup::removeEdgesZero(tolerance, data);
    default:
      return Cleanup::conformNormals(data);
  }
}

struct Release {
  void operator()(const Cleanup::MeshData* data) const { Cleanup::freeMeshDataAndHoles(data); }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  Bytes in(bytes, size);
  Input input;
  readInput(in, input);
  std::unique_ptr<const Cleanup::MeshData, Release> last;
  for (int step = 0; step < 4; ++step) {
    // Nothing throws: the arrays are there, the indices in range, and no mesh has 1000 vertices.
    last.reset(runNext(in, last ? *last : input.data));
    if (!last) break;
    const std::string problem = support::findRecordProblem(*last);
    if (!problem.empty()) {
      std::fprintf(stderr, "step %d: %s\n", step, problem.c_str());
      std::abort();
    }
  }
  return 0;
}
