#include <facetbox/mesh/HoleClearing.h>
#include <facetbox/mesh/Maintenance.h>
#include <facetbox/mesh/MeshStorage.h>
#include <facetbox/operations/RemoveFacesDouble.h>
#include <facetbox/operations/TexCoordTree.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <compare>
#include <cstddef>
#include <functional>
#include <iterator>
#include <limits>
#include <set>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

// The order of things, which the result must not depart from: vertices ascending; at a vertex the faces that use it,
// ascending, each paired with itself if it is there twice and then with every higher one; a double is cleared at once.
//
// Whether two faces are double never changes while both are there. So a pair is decided where it is met first, at its
// lowest vertex, and a face's pairing with itself at the lowest vertex that it visits twice. Only faces with equal keys
// can be double, hence the classes of equal keys can be worked through one by one, in any order. What remains of the
// common order is the numbering of new tag sets: for it the matches carry where they were met.

namespace util {
namespace {

constexpr double kTexCoordTolerance = 0.001;
constexpr std::uint32_t kTexCoordSetBits = (1u << PrimitiveList::kTexCoordSets) - 1;

/// Numbers for the faces' first materials: equal numbers, same material.
class MaterialNumbers {
 public:
  explicit MaterialNumbers(const MeshStorage& mesh) {
    std::uint32_t highest = 0;
    for (const std::uint32_t start : mesh.mRunStarts) mHighestStarts.push_back(highest = std::max(highest, start));
    std::unordered_map<const Shader*, std::uint32_t> numbers;
    for (const MaterialPair& material : mesh.mRunMaterials)
      mNumbers.push_back(numbers.try_emplace(&*material.first, numbers.size()).first->second);
  }

  /// O(log runs). The first start greater than the face is also the first at which the highest start so far is: that
  /// finds MeshStorage::runOf() by bisection, whatever the order of the starts.
  std::uint32_t of(std::uint32_t face) const {
    if (mNumbers.empty()) return 0;
    const auto next = std::ranges::upper_bound(mHighestStarts, face) - mHighestStarts.begin();
    return mNumbers[static_cast<std::size_t>(std::max<std::ptrdiff_t>(next, 1) - 1)];
  }

 private:
  std::vector<std::uint32_t> mHighestStarts;  // per run, of the runs up to it
  std::vector<std::uint32_t> mNumbers;        // per run
};

/// Decides whether two faces are double.
class FaceComparison {
 public:
  FaceComparison(const MeshStorage& mesh, bool compareAttributes)
      : mMesh(mesh), mCompareAttributes(compareAttributes), mMaterials(mesh) {}

  bool comparesAttributes() const { return mCompareAttributes; }
  const MaterialNumbers& materials() const { return mMaterials; }

  /// Whether face b, begun at the first corner of a that has b's first vertex, runs like a or backwards; a is the lower
  /// face, or the same. Where a visits that vertex again, no other beginning is tried.
  bool areDouble(std::uint32_t a, std::uint32_t b) const {
    const auto cornersOfA = mMesh.mFaces.corners(a), cornersOfB = mMesh.mFaces.corners(b);
    const std::size_t n = cornersOfA.size();
    if (cornersOfB.size() != n) return false;
    const auto begin = static_cast<std::size_t>(std::ranges::find(cornersOfA, cornersOfB[0]) - cornersOfA.begin());
    if (begin == n) return false;
    const Directions directions =
        walk(n, begin, {true, true}, [&](std::size_t i, std::size_t j) { return cornersOfA[i] == cornersOfB[j]; });
    if (!mCompareAttributes || !directions.any()) return directions.any();
    if (mMaterials.of(a) != mMaterials.of(b)) return false;
    return walk(n, begin, directions, [&](std::size_t i, std::size_t j) { return sameTexCoords(a, i, b, j); }).any();
  }

 private:
  /// The directions in which b may still run like a.
  struct Directions {
    bool forward, backward;
    bool any() const { return forward || backward; }
  };

  /// Walks once around b and, from a's corner `begin`, around a in both directions; what becomes of the directions when
  /// `agree(corner of a, corner of b)` has to hold all the way.
  template <class Agree>
  static Directions walk(std::size_t n, std::size_t begin, Directions directions, Agree agree) {
    std::size_t ahead = begin, back = begin;
    for (std::size_t k = 0; k < n && directions.any(); ++k) {
      directions.forward = directions.forward && agree(ahead, k);
      directions.backward = directions.backward && agree(back, k);
      ahead = ahead + 1 == n ? 0 : ahead + 1;
      back = back == 0 ? n - 1 : back - 1;
    }
    return directions;
  }

  bool sameTexCoords(std::uint32_t a, std::size_t cornerOfA, std::uint32_t b, std::size_t cornerOfB) const {
    const PrimitiveList& faces = mMesh.mFaces;
    for (std::uint32_t bits = faces.mask(a) & kTexCoordSetBits; bits != 0; bits &= bits - 1) {
      const int set = std::countr_zero(bits);
      if (!faces.carries(b, set)) return false;
      const auto& pairs = mMesh.mTexCoords[static_cast<std::size_t>(set)];
      const std::uint32_t pairOfA = faces.cornerSet(a, set)[cornerOfA], pairOfB = faces.cornerSet(b, set)[cornerOfB];
      if (pairOfA >= pairs.size() || pairOfB >= pairs.size()) return false;
      const double u = pairs[pairOfA].x - pairs[pairOfB].x, v = pairs[pairOfA].y - pairs[pairOfB].y;
      // A NaN distance is none to tell them apart by.
      if (std::sqrt(u * u + v * v) >= kTexCoordTolerance) return false;
    }
    return true;
  }

  const MeshStorage& mMesh;
  bool mCompareAttributes;
  MaterialNumbers mMaterials;
};

/// A number that double faces have in common: a sum over the undirected edges, in which neither the first corner nor
/// the direction matters. Others rarely share it, but may.
std::uint32_t keyOf(std::span<const std::uint32_t> corners) {
  std::uint64_t sum = 0;
  std::uint32_t from = corners.back();
  for (const std::uint32_t to : corners) {
    // Odd constants: the fractional parts of the golden ratio and of the square root of 3.
    std::uint64_t edge = std::uint64_t{std::max(from, to)} << 32 | std::min(from, to);
    edge *= 0x9E3779B97F4A7C15u;
    edge ^= edge >> 32;
    sum += edge * 0xBB67AE8584CAA73Bu;
    from = to;
  }
  return static_cast<std::uint32_t>(sum >> 32);
}

/// A set of keys that knows which were added more than once: always right about those, rarely wrong about the others.
class RepeatedKeys {
 public:
  explicit RepeatedKeys(std::size_t count)
      : mWords(std::bit_ceil(count / 2 + 1), 0), mShift(32 - std::bit_width(mWords.size() - 1)) {}

  void add(std::uint32_t key) {
    std::uint64_t& word = wordOf(key);
    const std::uint64_t once = onceBit(key);
    word |= once | (word & once) << 32;
  }
  void addTwice(std::uint32_t key) { wordOf(key) |= onceBit(key) | onceBit(key) << 32; }
  bool mayRepeat(std::uint32_t key) { return (wordOf(key) >> 32 & onceBit(key)) != 0; }

 private:
  std::uint64_t& wordOf(std::uint32_t key) { return mWords[std::uint64_t{key} >> mShift]; }
  static std::uint64_t onceBit(std::uint32_t key) { return std::uint64_t{1} << (key & 31); }

  Buffer<std::uint64_t> mWords;  // 32 slots each: low half for met, high half for met again; 16 to 32 slots per key
  int mShift;
};

/// Faces in classes of the same key; the faces of a class are ascending.
class KeyClasses {
 public:
  /// @param faces  ascending
  /// @param keys   of all faces, addressed by face
  KeyClasses(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& keys) {
    if (!hash(faces, keys)) sort(faces, keys);
  }

  /// The faces, class after class.
  std::span<std::uint32_t> faces() { return mFaces; }
  /// Per class, where it ends among them.
  std::span<const std::uint32_t> ends() const { return mEnds; }

 private:
  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;
  /// Keys that were made to meet in a few slots take more steps than this for each face; others take one or two.
  static constexpr std::size_t kSteps = 8;

  /// By a hash table, the classes by their first faces. False, with nothing done, where keys crowd.
  bool hash(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& keys) {
    // A key's slot is the one that its upper bits name, or the next free one behind.
    struct Slot {
      std::uint32_t key, keyClass;
    };
    Buffer<Slot> slots(std::bit_ceil(faces.size() + faces.size() / 2 + 1), {0, kNone});
    const int shift = 32 - std::bit_width(slots.size() - 1);
    Buffer<std::uint32_t> classes;
    classes.reserve(faces.size());
    std::size_t stepsLeft = kSteps * faces.size();
    for (const std::uint32_t face : faces) {
      std::size_t slot = std::uint64_t{keys[face]} >> shift;
      while (slots[slot].keyClass != kNone && slots[slot].key != keys[face]) {
        if (stepsLeft-- == 0) {
          mEnds.clear();
          return false;
        }
        slot = slot + 1 == slots.size() ? 0 : slot + 1;
      }
      if (slots[slot].keyClass == kNone) {
        slots[slot] = {keys[face], static_cast<std::uint32_t>(mEnds.size())};
        mEnds.push_back(0);
      }
      classes.push_back(slots[slot].keyClass);
      ++mEnds[slots[slot].keyClass];
    }
    // Counts to starts; filling moves them to the ends.
    std::uint32_t total = 0;
    for (std::uint32_t& end : mEnds) total += std::exchange(end, total);
    mFaces.resize(faces.size());
    for (std::size_t i = 0; i < faces.size(); ++i) mFaces[mEnds[classes[i]]++] = faces[i];
    return true;
  }

  void sort(const Buffer<std::uint32_t>& faces, const Buffer<std::uint32_t>& keys) {
    mFaces = faces;
    std::ranges::sort(mFaces, {}, [&](std::uint32_t face) { return std::pair(keys[face], face); });
    for (std::uint32_t i = 0; i < mFaces.size(); ++i)
      if (i + 1 == mFaces.size() || keys[mFaces[i]] != keys[mFaces[i + 1]]) mEnds.push_back(i + 1);
  }

  Buffer<std::uint32_t> mFaces, mEnds;
};

/// Where the smallest of the rotations of a cycle begins. O(size). After Shiloach, Fast Canonization of Circular
/// Strings, 1981, in its simpler form with two candidates.
template <class At>
std::size_t smallestRotation(std::size_t size, At at) {
  std::size_t i = 0, j = 1;
  for (std::size_t same = 0; i < size && j < size && same < size;) {
    const std::uint32_t a = at((i + same) % size), b = at((j + same) % size);
    if (a == b) {
      ++same;
      continue;
    }
    (a > b ? i : j) += same + 1;
    if (i == j) ++j;
    same = 0;
  }
  return std::min(i, j);
}

/// Writes a face's corners from where and in the direction in which they are the smallest sequence: equal for faces
/// that have the same corners in the same cyclic order or in the reversed one, and for no others.
void writeSmallestForm(std::span<const std::uint32_t> corners, std::uint32_t* out, std::vector<std::uint32_t>& other) {
  const std::size_t n = corners.size();
  const auto write = [n](auto at, std::uint32_t* to) {
    const std::size_t begin = smallestRotation(n, at);
    for (std::size_t i = 0; i < n; ++i) to[i] = at((begin + i) % n);
  };
  other.resize(n);
  write([&](std::size_t i) { return corners[i]; }, out);
  write([&](std::size_t i) { return corners[n - 1 - i]; }, other.data());
  if (std::ranges::lexicographical_compare(other, std::span(out, n))) std::ranges::copy(other, out);
}

/// Finds the faces that visit a vertex twice.
class TwiceVisited {
 public:
  explicit TwiceVisited(std::size_t vertexCount) : mVertexCount(vertexCount) {}

  /// To be asked once for each face.
  bool anyIn(std::uint32_t face, std::span<const std::uint32_t> corners) {
    const std::size_t n = corners.size();
    if (n <= kFewCorners) {
      for (std::size_t i = 1; i < n; ++i)
        for (std::size_t j = 0; j < i; ++j)
          if (corners[i] == corners[j]) return true;
      return false;
    }
    if (mVisitors.empty()) mVisitors.resize(mVertexCount, std::numeric_limits<std::uint32_t>::max());
    for (const std::uint32_t v : corners)
      if (std::exchange(mVisitors[v], face) == face) return true;
    return false;
  }

 private:
  static constexpr std::size_t kFewCorners = 8;  // up to here comparing each with each is cheaper

  std::size_t mVertexCount;
  Buffer<std::uint32_t> mVisitors;  // the last face at each vertex; made for the first face of many corners
};

/// A double: where it was met, the face that stays and the one that goes (the same where a face repeats itself). Their
/// order is the one in which they are met.
struct Match {
  std::uint32_t vertex, kept, cleared;
  friend auto operator<=>(const Match&, const Match&) = default;
};

/// Works out which faces go.
class DoubleSearch {
 public:
  DoubleSearch(const MeshStorage& mesh, bool compareAttributes) : mMesh(mesh), mComparison(mesh, compareAttributes) {}

  std::vector<Match> run() {
    KeyClasses classes = findCandidates();
    std::size_t begin = 0;
    for (const std::uint32_t end : classes.ends()) {
      const auto copies = classes.faces().subspan(begin, end - begin);
      if (copies.size() > 1 || !mTwiceVisiting.empty()) resolveCopies(copies);
      begin = end;
    }
    return std::move(mMatches);
  }

 private:
  static constexpr std::size_t kFewCopies = 16;  // compared each with each

  /// The faces that may repeat another or themselves, in classes by their keys. Hole faces are left out.
  KeyClasses findCandidates() {
    const PrimitiveList& faces = mMesh.mFaces;
    const auto faceCount = static_cast<std::uint32_t>(faces.size());
    const std::vector<std::uint32_t> outerOf = mMesh.mHoles.outerOfHoles(faceCount);
    const auto isCompared = [&](std::uint32_t face) {
      return !faces.isCleared(face) && (outerOf.empty() || outerOf[face] == HoleTable::kNone);
    };

    Buffer<std::uint32_t> keys(faceCount);
    RepeatedKeys repeated(faceCount);
    TwiceVisited twiceVisited(mMesh.mVertices.size());
    for (std::uint32_t face = 0; face < faceCount; ++face) {
      if (!isCompared(face)) continue;
      const auto corners = faces.corners(face);
      keys[face] = keyOf(corners);
      if (twiceVisited.anyIn(face, corners)) {
        mTwiceVisiting.push_back(face);
        repeated.addTwice(keys[face]);
      } else {
        repeated.add(keys[face]);
      }
    }

    Buffer<std::uint32_t> candidates;
    for (std::uint32_t face = 0; face < faceCount; ++face)
      if (isCompared(face) && repeated.mayRepeat(keys[face])) candidates.push_back(face);
    return {candidates, keys};
  }

  /// Matches faces of one key, ascending.
  void resolveCopies(std::span<const std::uint32_t> copies) {
    if (copies.size() <= kFewCopies) {
      resolvePlainly(copies);
      return;
    }
    sortByForm(copies);
    for (auto begin = mForms.begin(); begin != mForms.end();) {
      const auto end = std::find_if(begin, mForms.end(), [&](const Form& form) { return *begin < form; });
      mAlike.clear();
      std::transform(begin, end, std::back_inserter(mAlike), [](const Form& form) { return form.face; });
      if (!mComparison.comparesAttributes() || mAlike.size() <= kFewCopies) {
        resolvePlainly(mAlike);
      } else {
        TexCoordTree tree(mMesh, mAlike, kTexCoordTolerance);
        resolve(mAlike, [&](std::size_t copy, auto isDouble) {
          // A face that is not even double to itself has an index beyond the texture coordinates, and so is to none.
          if (mComparison.areDouble(mAlike[copy], mAlike[copy]))
            tree.forEachLater(static_cast<std::uint32_t>(copy),
                              [&](std::uint32_t at) { return mGone[at] || isDouble(at); });
        });
      }
      begin = end;
    }
  }

  /// What is equal for all faces that may be double: the same material and the smallest form of the corners.
  struct Form {
    std::uint32_t face, material;
    std::span<const std::uint32_t> corners;

    bool operator<(const Form& b) const {
      if (material != b.material) return material < b.material;
      return std::ranges::lexicographical_compare(corners, b.corners);
    }
  };

  /// Many faces of one key may also be different ones whose keys were made to be equal, or the turns of one that visits
  /// a vertex many times.
  void sortByForm(std::span<const std::uint32_t> copies) {
    std::size_t corners = 0;
    for (const std::uint32_t face : copies) corners += mMesh.mFaces.cornerCount(face);
    mFormCorners.resize(corners);
    mForms.clear();
    std::uint32_t* next = mFormCorners.data();
    for (const std::uint32_t face : copies) {
      const std::uint32_t count = mMesh.mFaces.cornerCount(face);
      writeSmallestForm(mMesh.mFaces.corners(face), next, mScratch);
      mForms.push_back({face, mComparison.comparesAttributes() ? mComparison.materials().of(face) : 0, {next, count}});
      next += count;
    }
    std::ranges::stable_sort(mForms, std::less());
  }

  void resolvePlainly(std::span<const std::uint32_t> copies) {
    resolve(copies, [&](std::size_t copy, auto use) {
      for (std::size_t later = copy + 1; later < copies.size(); ++later)
        if (!mGone[later]) use(later);
    });
  }

  /// Lets each copy, ascending, match what is left of the later ones; `forEachLater(copy, use)` says which to look at,
  /// and `use` whether they went.
  template <class ForEachLater>
  void resolve(std::span<const std::uint32_t> copies, ForEachLater forEachLater) {
    mGone.assign(copies.size(), 0);
    const auto match = [&](std::uint32_t vertex, std::uint32_t a, std::size_t copy) {
      if (!mComparison.areDouble(a, copies[copy])) return false;
      mMatches.push_back({vertex, a, copies[copy]});
      mGone[copy] = 1;
      return true;
    };
    bool anyLeft = false;
    for (std::size_t copy = 0; copy < copies.size(); ++copy) {
      if (mGone[copy]) continue;
      const std::uint32_t a = copies[copy];
      const std::uint32_t lowest = std::ranges::min(mMesh.mFaces.corners(a));
      if (visitsTwice(a)) {
        if (lowestTwiceVisited(a) == lowest) match(lowest, a, copy);
        if (mGone[copy]) continue;
        anyLeft = true;
      }
      forEachLater(copy, [&](std::size_t later) { return match(lowest, a, later); });
    }
    if (!anyLeft) return;
    for (std::size_t copy = 0; copy < copies.size(); ++copy)
      if (!mGone[copy] && visitsTwice(copies[copy])) match(lowestTwiceVisited(copies[copy]), copies[copy], copy);
  }

  bool visitsTwice(std::uint32_t face) const {
    return !mTwiceVisiting.empty() && std::ranges::binary_search(mTwiceVisiting, face);
  }

  std::uint32_t lowestTwiceVisited(std::uint32_t face) {
    const auto corners = mMesh.mFaces.corners(face);
    mScratch.assign(corners.begin(), corners.end());
    std::ranges::sort(mScratch);
    return *std::ranges::adjacent_find(mScratch);
  }

  const MeshStorage& mMesh;
  FaceComparison mComparison;
  std::vector<std::uint32_t> mTwiceVisiting;  // faces, ascending
  std::vector<Match> mMatches;
  std::vector<std::uint8_t> mGone;  // of the copies at hand
  std::vector<Form> mForms;         // of many faces of one key
  std::vector<std::uint32_t> mFormCorners, mAlike, mScratch;
};

/// Merges tags: indices into a list of sets that grows by the unions it lacks.
class TagMerger {
 public:
  explicit TagMerger(std::vector<std::set<std::uint32_t>>& sets) : mSets(sets), mByContent(ByContent{&sets}) {
    for (std::size_t i = 0; i < sets.size(); ++i) mByContent.insert(i);
  }

  /// The first set that equals the union. A tag without a set counts as one of the empty set.
  std::int32_t merge(std::int32_t a, std::int32_t b) {
    if (a == b || b == -1) return a;
    if (a == -1) return b;
    std::set<std::uint32_t> both = setOf(a);
    both.merge(setOf(b));
    const auto known = mByContent.find(both);
    if (known != mByContent.end()) return static_cast<std::int32_t>(*known);
    mSets.push_back(std::move(both));
    mByContent.insert(mSets.size() - 1);
    return static_cast<std::int32_t>(mSets.size() - 1);
  }

 private:
  struct ByContent {
    using is_transparent = void;
    const std::vector<std::set<std::uint32_t>>* mSets;

    bool operator()(std::size_t a, std::size_t b) const { return (*mSets)[a] < (*mSets)[b]; }
    bool operator()(std::size_t a, const std::set<std::uint32_t>& b) const { return (*mSets)[a] < b; }
    bool operator()(const std::set<std::uint32_t>& a, std::size_t b) const { return a < (*mSets)[b]; }
  };

  std::set<std::uint32_t> setOf(std::int32_t tag) const {
    const auto index = static_cast<std::size_t>(tag);
    return tag >= 0 && index < mSets.size() ? mSets[index] : std::set<std::uint32_t>();
  }

  std::vector<std::set<std::uint32_t>>& mSets;
  std::set<std::size_t, ByContent> mByContent;  // of equal sets only the first
};

void mergeTags(MeshStorage& m, std::vector<Match>& matches) {
  const auto isTagged = [&](const Match& match) {
    return m.mFaces.tag(match.kept) != -1 || m.mFaces.tag(match.cleared) != -1;
  };
  if (std::ranges::none_of(matches, isTagged)) return;
  std::ranges::sort(matches);
  TagMerger merger(m.mTagSets);
  for (const Match& match : matches)
    m.mFaces.setTag(match.kept, merger.merge(m.mFaces.tag(match.kept), m.mFaces.tag(match.cleared)));
}

}  // namespace

std::uint64_t removeFacesDouble(Mesh& mesh, bool compareAttributes) {
  MeshStorage& m = mesh.storage();
  if (m.mFaces.empty()) return 0;
  std::vector<Match> matches = DoubleSearch(m, compareAttributes).run();
  if (matches.empty()) return 0;
  mergeTags(m, matches);
  const std::vector<HoleTable::Group> groups = m.mHoles.groupsByOuter(m.mFaces.size());
  for (const Match& match : matches) clearFaceAndHoles(m.mFaces, match.cleared, groups);
  compactMesh(mesh);
  return matches.size();
}

}  // namespace util
