#include <facetbox/io/GltfElements.h>

#include <algorithm>
#include <bit>
#include <cmath>

#include <facetbox/io/FileError.h>

namespace facetbox {

void Rounding::add(double before, double after) {
  if (before == after) return;
  ++count;
  most = std::max(most, std::abs(before - after));
}

float floatOf(double value) {
  const auto rounded = static_cast<float>(value);
  if (!std::isfinite(rounded))
    throw WriteError("glTF files hold floats, and a number of the model is too large for one");
  return rounded;
}

GltfElements::GltfElements(const PolyMesh& triangles, Rounding& rounding) : mFirst(triangles.points.size() / 3, kNone) {
  for (const std::uint32_t vertex : triangles.indices) mFirst[vertex] = 0;
  for (std::uint32_t vertex = 0; vertex < mFirst.size(); ++vertex) {
    if (mFirst[vertex] == kNone) continue;
    mFirst[vertex] = static_cast<std::uint32_t>(mVertices.size());
    mVertices.push_back(vertex);
  }
  mUsed = mVertices.size();
  const bool isTextured = !triangles.texIndices.empty();
  if (isTextured) {
    mTexCoords.assign(2 * mUsed, 0.0F);
    mHasPair.assign(mUsed, false);
    mKnown.reserve(mUsed);
  }
  mCorners.reserve(triangles.indices.size());
  for (std::size_t i = 0; i < triangles.indices.size(); ++i) {
    const std::uint32_t vertex = triangles.indices[i], pair = isTextured ? triangles.texIndices[i] : kNone;
    mCorners.push_back(pair == kNone ? mFirst[vertex]
                                     : elementOf(vertex, &triangles.texCoords[2 * std::size_t{pair}], rounding));
  }
}

std::uint32_t GltfElements::elementOf(std::uint32_t vertex, const double* uv, Rounding& rounding) {
  // v goes down in glTF, and up in a model.
  const float u = floatOf(uv[0]), v = floatOf(1 - uv[1]);
  const auto bitsOf = [](float number) { return std::bit_cast<std::uint32_t>(number); };
  const std::uint64_t words[2] = {vertex, std::uint64_t{bitsOf(u)} << 32 | bitsOf(v)};
  const std::uint32_t first = mFirst[vertex];
  const auto next = mHasPair[first] ? static_cast<std::uint32_t>(mVertices.size()) : first;
  const auto isEqual = [&](std::uint32_t element) {
    const float* const other = &mTexCoords[2 * std::size_t{element}];
    return mVertices[element] == vertex && bitsOf(other[0]) == bitsOf(u) && bitsOf(other[1]) == bitsOf(v);
  };
  const std::uint32_t element = mKnown.findOrAdd(hashOf(words, 2), next, isEqual);
  if (element != next) return element;
  rounding.add(uv[0], static_cast<double>(u));
  rounding.add(uv[1], 1 - static_cast<double>(v));
  if (mHasPair[first]) {
    if (next == kNone - 1) throw WriteError("an object has too many vertices for a glTF file");
    mVertices.push_back(vertex);
    mTexCoords.insert(mTexCoords.end(), {u, v});
  } else {
    mHasPair[first] = true;
    mTexCoords[2 * std::size_t{first}] = u;
    mTexCoords[2 * std::size_t{first} + 1] = v;
  }
  return element;
}

}  // namespace facetbox
