#include <facetbox/checks/Repeats.h>

#include <algorithm>
#include <bit>
#include <span>
#include <tuple>

#include <facetbox/operations/CanonicalCorners.h>
#include <facetbox/operations/FaceBuckets.h>
#include <facetbox/operations/RepeatedVisits.h>

namespace util {
namespace {

using Pair = facetbox::Defects::Pair;

/// Pairs each item with the lowest equal one. Only items of equal hash are compared.
/// @param hashes    of all items; unset where an item does not take part
/// @param takesPart takesPart(item)
/// @param less      less(a, b) orders items of a bucket; `prepare(items)` is called before, for each bucket
/// @param monitor   may be null
template <class TakesPart, class Prepare, class Less>
std::vector<Pair> pairEqual(const Buffer<std::uint32_t>& hashes, TakesPart takesPart, Prepare prepare, Less less,
                            Monitor* monitor) {
  RepeatedHashes repeated(hashes.size());
  for (Monitor::Blocks blocks(monitor, hashes.size()); blocks.next();)
    for (std::uint32_t item = blocks.begin(), end = blocks.end(); item < end; ++item)
      if (takesPart(item)) repeated.add(hashes[item]);
  Buffer<std::uint32_t> candidates;
  for (Monitor::Blocks blocks(monitor, hashes.size()); blocks.next();)
    for (std::uint32_t item = blocks.begin(), end = blocks.end(); item < end; ++item)
      if (takesPart(item) && repeated.mayRepeat(hashes[item])) candidates.push_back(item);

  std::vector<Pair> pairs;
  FaceBuckets buckets(candidates, hashes, monitor);
  std::size_t begin = 0;
  for (const std::uint32_t end : buckets.ends()) {
    const auto bucket = buckets.faces().subspan(begin, end - begin);
    begin = end;
    if (monitor) monitor->tick(bucket.size());
    if (bucket.size() < 2) continue;
    prepare(bucket);
    std::stable_sort(bucket.begin(), bucket.end(), [&](std::uint32_t a, std::uint32_t b) {  // equal ones stay ascending
      if (monitor) monitor->tick();
      return less(a, b);
    });
    for (std::size_t first = 0, i = 1; i < bucket.size(); ++i) {
      if (less(bucket[first], bucket[i]))
        first = i;
      else
        pairs.push_back({bucket[first], bucket[i]});
    }
  }
  std::ranges::sort(pairs, [monitor](const Pair& a, const Pair& b) {
    if (monitor) monitor->tick();
    return a < b;
  });
  return pairs;
}

std::uint32_t hashOf(const Vec3& p) {
  std::uint64_t hash = 0;
  for (const double v : {p.x, p.y, p.z}) {
    // Odd constants as in faceHash(); both zeros are one place.
    hash = (hash ^ std::bit_cast<std::uint64_t>(v + 0.0)) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 32;
  }
  return static_cast<std::uint32_t>(hash * 0xBB67AE8584CAA73Bu >> 32);
}

/// The canonical corners of the faces of a bucket.
class CanonicalForms {
 public:
  explicit CanonicalForms(const CheckedMesh& mesh) : mMesh(mesh), mFirsts(mesh.faceCount()) {}

  void prepare(std::span<const std::uint32_t> faces) {
    mCorners.clear();
    for (const std::uint32_t face : faces) {
      mFirsts[face] = mCorners.size();
      mCorners.resize(mCorners.size() + mMesh.corners(face).size());
      writeCanonicalCorners(mMesh.corners(face), mCorners.data() + mFirsts[face], mScratch);
    }
  }
  std::span<const std::uint32_t> of(std::uint32_t face) const {
    return std::span(mCorners).subspan(mFirsts[face], mMesh.corners(face).size());
  }

 private:
  const CheckedMesh& mMesh;
  Buffer<std::size_t> mFirsts;  // only of the faces at hand
  std::vector<std::uint32_t> mCorners, mScratch;
};

}  // namespace

void checkPlaces(const CheckedMesh& mesh, facetbox::Defects& defects) {
  Buffer<std::uint32_t> hashes(mesh.vertexCount());
  for (std::uint32_t vertex = 0; vertex < hashes.size(); ++vertex) hashes[vertex] = hashOf(mesh.point(vertex));
  defects.sameVertices = pairEqual(
      hashes, [](std::uint32_t) { return true; }, [](std::span<const std::uint32_t>) {},
      [&](std::uint32_t a, std::uint32_t b) {
        const Vec3 p = mesh.point(a), q = mesh.point(b);
        return std::tie(p.x, p.y, p.z) < std::tie(q.x, q.y, q.z);
      },
      mesh.monitor());
}

void checkRepeats(const CheckedMesh& mesh, facetbox::Defects& defects) {
  RepeatedVisits repeatedVisits(mesh.vertexCount());
  Buffer<std::uint32_t> hashes(mesh.faceCount());
  const auto isCompared = [&](std::uint32_t face) { return !mesh.isLeftOut(face) && !mesh.isHole(face); };
  for (Monitor::Blocks blocks(mesh.monitor(), mesh.faceCount()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) {
      if (mesh.isLeftOut(face)) continue;
      const auto corners = mesh.corners(face);
      if (repeatedVisits.anyIn(face, corners)) defects.repeatedCorners.push_back(face);
      if (isCompared(face)) hashes[face] = faceHash(corners);
    }
  CanonicalForms forms(mesh);
  defects.doubleFaces = pairEqual(
      hashes, isCompared, [&](std::span<const std::uint32_t> faces) { forms.prepare(faces); },
      [&](std::uint32_t a, std::uint32_t b) { return std::ranges::lexicographical_compare(forms.of(a), forms.of(b)); },
      mesh.monitor());
}

}  // namespace util
