#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <facetbox/mesh/MeshStorage.h>

namespace util {

/// Closes up the vertices that are kept, with their index lists; they keep their order. The records' indices are the
/// caller's to renumber.
/// @param keptCount  how many are kept
/// @param isKept     isKept(v, next), asked in ascending order; `next` is the number that v gets if it is kept
/// @param newNumberOf  newNumberOf(v): the number of the vertex that v becomes, or MeshHistory's kNone; for the history
template <class IsKept, class NewNumberOf>
void compactVertices(MeshStorage& m, std::uint32_t keptCount, IsKept isKept, NewNumberOf newNumberOf) {
  if (m.mHistory) m.mHistory->vertices.renumber(newNumberOf);
  const std::size_t vertexCount = m.mVertices.size();
  const bool withLists = m.mVertexIndexLists.size() == vertexCount;
  std::uint32_t next = 0;
  for (std::uint32_t v = 0; v < vertexCount; ++v) {
    if (!isKept(v, next)) continue;
    m.mVertices[next] = m.mVertices[v];
    if (withLists && next != v) m.mVertexIndexLists[next] = std::move(m.mVertexIndexLists[v]);
    ++next;
  }
  assert(next == keptCount);
  m.mVertices.resize(keptCount);
  if (withLists) m.mVertexIndexLists.resize(keptCount);
}

}  // namespace util
