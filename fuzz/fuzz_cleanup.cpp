// Turns bytes into a record that keeps the caller's promises (arrays as long as the counts say), runs clean-up
// functions on it one after another, each on the result of the last, and checks every record that comes out.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
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

  Cleanup::MeshData& data = input.data;
  data.mVertexCoords = input.coords.data();
  data.mVCCount = static_cast<int>(input.coords.size());
  data.mIndices = input.indices.data();
  data.mCounts = input.counts.data();
  data.mCountCount = static_cast<int>(faceCount);
  if (pairCount > 0) {
    data.mTexCoords = input.texCoords.data();
    data.mTCCount = static_cast<int>(input.texCoords.size());
    data.mTCIndices = input.texCoordIndices.data();
    data.mTextures = input.textures.data();
    data.mTexturesCount = static_cast<int>(input.textures.size());
    data.mTexturesStartFaces = features & 16 ? input.starts.data() : nullptr;
  }
  data.mHoles = input.holes.data();
  data.mHolesCount = static_cast<int>(input.holes.size());
}

const Cleanup::MeshData* runNext(Bytes& in, const Cleanup::MeshData& data) {
  const float tolerance = nextCoordinate(in) * 0.25f;
  return in.below(2) == 0 ? Cleanup::removeFacesZero(tolerance, data) : Cleanup::removeEdgesZero(tolerance, data);
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
    try {
      last.reset(runNext(in, last ? *last : input.data));
    } catch (const std::runtime_error&) {
      // The documented answer to some inputs.
      break;
    }
    if (!last) break;
    const std::string problem = support::findRecordProblem(*last);
    if (!problem.empty()) {
      std::fprintf(stderr, "step %d: %s\n", step, problem.c_str());
      std::abort();
    }
  }
  return 0;
}
