#include <facetbox/io/PlyWriter.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

#include <fmt/format.h>

#include <facetbox/io/JoinedObjects.h>
#include <facetbox/io/LeftOut.h>

namespace facetbox {
namespace {

constexpr std::uint32_t kMostInByte = std::numeric_limits<std::uint8_t>::max();

// A color as a byte stands for the number / 255.
bool isByte(float color) { return static_cast<float>(static_cast<double>(std::lround(color * 255.0F)) / 255) == color; }

class Writer {
 public:
  Writer(const Model& model, WriteContext& context)
      : mIsText(context.isText()), mOutput(context.output()), mJoined(model, context.notes()) {
    if (mJoined.faceCount() == 0) context.fail("has no face that PLY can hold; nothing is written");
    noteMaterials(model, context.notes());
    chooseForms();
  }

  void write() {
    writeHeader();
    for (const JoinedObjects::Part& part : mJoined.parts()) writeVertices(part);
    for (const JoinedObjects::Part& part : mJoined.parts()) writeFaces(part);
  }

 private:
  // The smallest types that hold every number as it is.
  void chooseForms() {
    mHasPairs = mJoined.hasTexCoordPerVertex();
    mHasPairLists = mJoined.hasTexCoords() && !mHasPairs;
    mHasFloats = !mIsText;  // of text, digits are read in full
    for (const JoinedObjects::Part& part : mJoined.parts()) {
      mHasFloats = mHasFloats && std::ranges::all_of(part.mesh->points, [](double value) {
                     return std::abs(value) <= static_cast<double>(std::numeric_limits<float>::max()) &&
                            static_cast<double>(static_cast<float>(value)) == value;
                   });
      for (const std::uint32_t count : part.mesh->counts) mMostCorners = std::max(mMostCorners, count);
      if (!mJoined.hasColors()) continue;
      const std::vector<float>& colors = *part.colors;
      mHasByteColors = mHasByteColors && std::ranges::all_of(colors, isByte);
      for (std::size_t i = 3; i < colors.size(); i += 4) mColorSize = colors[i] == 1 ? mColorSize : 4;
    }
  }

  void writeHeader() {
    const char* const order = std::endian::native == std::endian::little ? "binary_little_endian" : "binary_big_endian";
    mOutput.text(
        fmt::format("ply\nformat {} 1.0\nelement vertex {}\n", mIsText ? "ascii" : order, mJoined.vertexCount()));
    for (const char axis : {'x', 'y', 'z'})
      mOutput.text(fmt::format("property {} {}\n", mHasFloats ? "float" : "double", axis));
    constexpr const char* kColors[] = {"red", "green", "blue", "alpha"};
    for (std::size_t i = 0; mJoined.hasColors() && i < mColorSize; ++i)
      mOutput.text(fmt::format("property {} {}\n", mHasByteColors ? "uchar" : "float", kColors[i]));
    if (mHasPairs) mOutput.text("property double s\nproperty double t\n");
    mOutput.text(fmt::format("element face {}\nproperty list {} {} vertex_indices\n", mJoined.faceCount(),
                             mMostCorners > kMostInByte ? "uint" : "uchar",
                             mJoined.vertexCount() > std::numeric_limits<std::int32_t>::max() ? "uint" : "int"));
    if (mHasPairLists)
      mOutput.text(fmt::format("property list {} double texcoord\n",
                               2 * std::uint64_t{mMostCorners} > kMostInByte ? "uint" : "uchar"));
    mOutput.text("end_header\n");
  }

  // Of text, a number and a blank; the last blank of a line stays.
  template <typename T>
  void put(T value) {
    if (!mIsText) return mOutput.raw(value);
    mOutput.number(value);
    mOutput.letter(' ');
  }
  void putCount(std::uint32_t count, bool isByteEnough) {
    if (isByteEnough)
      put(static_cast<std::uint8_t>(count));
    else
      put(count);
  }
  void endRow() {
    if (mIsText) mOutput.letter('\n');
  }

  void writeVertices(const JoinedObjects::Part& part) {
    const PolyMesh& mesh = *part.mesh;
    for (std::size_t vertex = 0; vertex < mesh.points.size() / 3; ++vertex) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        const double value = mesh.points[3 * vertex + axis];
        if (mHasFloats)
          put(static_cast<float>(value));
        else
          put(value);
      }
      for (std::size_t i = 0; mJoined.hasColors() && i < mColorSize; ++i) putColor((*part.colors)[4 * vertex + i]);
      if (mHasPairs) putPair(mesh, part.pairOfVertex[vertex]);
      endRow();
    }
  }

  void putColor(float value) {
    if (mHasByteColors)
      put(static_cast<std::uint8_t>(std::lround(value * 255.0F)));
    else
      put(value);
  }
  void putPair(const PolyMesh& mesh, std::uint32_t pair) {
    put(mesh.texCoords[2 * std::size_t{pair}]);
    put(mesh.texCoords[2 * std::size_t{pair} + 1]);
  }

  void writeFaces(const JoinedObjects::Part& part) {
    const PolyMesh& mesh = *part.mesh;
    std::size_t corner = 0;
    for (const std::uint32_t count : mesh.counts) {
      if (count == 0) continue;
      putCount(count, mMostCorners <= kMostInByte);
      for (std::size_t c = corner; c < corner + count; ++c) put(part.firstVertex + mesh.indices[c]);
      if (mHasPairLists) writePairs(mesh, corner, count);
      corner += count;
      endRow();
    }
  }

  // None for a face without texture coordinates.
  void writePairs(const PolyMesh& mesh, std::size_t corner, std::uint32_t count) {
    if (mesh.texIndices.empty() || mesh.texIndices[corner] == kNone) count = 0;
    putCount(2 * count, 2 * std::uint64_t{mMostCorners} <= kMostInByte);
    for (std::size_t c = corner; c < corner + count; ++c) putPair(mesh, mesh.texIndices[c]);
  }

  const bool mIsText;
  Output& mOutput;
  const JoinedObjects mJoined;
  bool mHasPairs = false, mHasPairLists = false, mHasFloats = false, mHasByteColors = true;
  std::size_t mColorSize = 3;
  std::uint32_t mMostCorners = 0;
};

}  // namespace

void writePly(const Model& model, WriteContext& context) { Writer(model, context).write(); }

}  // namespace facetbox
