#include <facetbox/mesh/FlipFace.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <span>

namespace util {
namespace {

/// Reverses a cycle; its first `kept` entries swap among themselves and lead the result.
void reverseCycle(std::span<std::uint32_t> cycle, std::size_t kept) {
  const auto middle = cycle.begin() + static_cast<std::ptrdiff_t>(std::min(kept, cycle.size()));
  std::reverse(cycle.begin(), middle);
  std::reverse(middle, cycle.end());
}

constexpr std::size_t kFirstStays = 1;
constexpr std::size_t kSecondLeads = 2;

}  // namespace

void flipFace(PrimitiveList& faces, std::size_t face) {
  flipCorners(faces, face);
  faces.setNormal(face, -faces.normal(face));
}

void flipCorners(PrimitiveList& faces, std::size_t face) {
  reverseCycle(faces.corners(face), kSecondLeads);
  if (faces.hasNormalIndices(face))
    reverseCycle(faces.normalIndices(face), faces.perVertexNormals(face) ? kFirstStays : kSecondLeads);
  for (std::uint32_t bits = faces.mask(face); bits != 0; bits &= bits - 1) {
    const int set = std::countr_zero(bits);
    reverseCycle(faces.cornerSet(face, set), set == PrimitiveList::kOutgoingEdgeSet ? kFirstStays : kSecondLeads);
  }
}

}  // namespace util
