#pragma once

// What the fuzz targets that play scenes make of their bytes.

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include <facetbox/util/Mesh.h>
#include "fuzz/Bytes.h"
#include "tests/support/PlainPicker.h"

/// Mostly a small integer grid, where ties happen; now and then something nasty.
inline float nextNumber(Bytes& in) {
  constexpr float kNasty[] = {NAN, INFINITY, 3e38f, -1e-40f, 0.3f, -0.0f, 1e9f, -3e38f};
  const std::uint8_t byte = in.next();
  if (byte >= 0xF8) return kNasty[byte - 0xF8];
  return static_cast<float>(byte % 16 - 8) * (byte < 128 ? 1.0f : 0.25f);
}

/// @param fewestVertices  five more at most
inline util::Mesh nextMesh(Bytes& in, std::uint32_t fewestVertices = 3, int mostFaces = 4) {
  const std::uint32_t vertexCount = fewestVertices + in.next() % 6;
  std::vector<float> coords;
  for (std::uint32_t i = 0; i < 3 * vertexCount; ++i) coords.push_back(nextNumber(in));
  std::vector<std::uint32_t> indices;
  std::vector<std::int32_t> counts;
  for (int face = in.next() % (mostFaces + 1); face > 0; --face) {
    counts.push_back(3 + in.next() % 3);
    for (int corner = counts.back(); corner > 0; --corner) indices.push_back(in.next() % vertexCount);
  }
  return util::Mesh("", static_cast<int>(coords.size()), coords.data(), indices.data(), static_cast<int>(counts.size()),
                    counts.data(), nullptr, 0, nullptr);
}

inline support::Matrix nextMatrix(Bytes& in) {
  support::Matrix m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  const std::uint8_t changed = in.next();
  for (const std::size_t i : {12, 13, 14}) m[i] = nextNumber(in);
  for (int i = changed % 4; i > 0; --i) m[in.next() % 16] = nextNumber(in);
  return m;
}

[[noreturn]] inline void fail(const char* what) {
  std::fprintf(stderr, "%s differ from the twin's\n", what);
  std::abort();
}
