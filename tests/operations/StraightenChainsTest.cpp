#include <facetbox/operations/RemoveVerticesColinear.h>

#include <facetbox/mesh/MeshHistory.h>
#include <tests/support/PlainMesh.h>

namespace {

using namespace support;

std::uint64_t straighten(Mesh& mesh, double tolerance, bool keepMapping) {
  return util::removeVerticesColinear(mesh, tolerance, keepMapping, util::StraightAgainst::kept);
}

// The slow twin: the words of the headers over sets and maps, with recursion.

/// What the random input has reached.
struct Coverage {
  unsigned calls = 0, removed = 0, open = 0, rings = 0, corners = 0, back = 0, offTexture = 0, third = 0, joined = 0,
           keptOne = 0;
};

class Twin {
 public:
  Twin(PlainMesh& mesh, double tolerance, bool keepMapping, Coverage& coverage)
      : mMesh(mesh), mTolerance(tolerance), mKeepMapping(keepMapping), mSeen(coverage) {}

  std::size_t run() {
    ++mSeen.calls;
    std::size_t removed = 0;
    if (!(mTolerance >= 0)) return 0;
    while (runOnce(removed)) ++mSeen.joined;
    mSeen.removed += removed;
    if (removed != 0) removeUnusedVertices(mMesh);
    return removed;
  }

 private:
  bool runOnce(std::size_t& removed) {
    findInside();
    mKept.clear();
    std::vector<Indices> chains;
    std::set<std::uint32_t> found;
    for (const std::uint32_t v : mInside)
      if (!found.contains(v)) {
        chains.push_back(chainOf(v));
        found.insert(chains.back().begin(), chains.back().end());
      }
    for (const Indices& chain : chains) keepOf(chain, false);
    const bool isJoined = settleBundles(chains);
    for (PlainFace& face : mMesh.mFaces)
      for (std::size_t i = face.mCorners.size(); i-- > 0;) {
        if (!mInside.contains(face.mCorners[i]) || mKept.contains(face.mCorners[i])) continue;
        face.mCorners.erase(face.mCorners.begin() + static_cast<long>(i));
        if (!face.mNormalIndices.empty()) face.mNormalIndices.erase(face.mNormalIndices.begin() + static_cast<long>(i));
        for (auto& [set, indices] : face.mSets) indices.erase(indices.begin() + static_cast<long>(i));
        ++removed;
      }
    return isJoined;
  }

  void findInside() {
    std::map<std::uint32_t, std::set<std::uint32_t>> neighbors;
    std::set<std::uint32_t> blocked;
    for (const PlainFace& face : mMesh.mFaces)
      for (std::size_t i = 0, n = face.mCorners.size(); i < n; ++i) {
        const std::uint32_t own = face.mCorners[i], before = face.mCorners[(i + n - 1) % n],
                            after = face.mCorners[(i + 1) % n];
        neighbors[own].insert({before, after});
        if (before == after || before == own || own == after) blocked.insert(own);
        if (face.mSets.contains(11) && face.mSets.at(11)[i] != kEnd) blocked.insert(own);
        if (face.mSets.contains(10) && face.mSets.at(10)[i] != face.mSets.at(10)[(i + n - 1) % n]) blocked.insert(own);
      }
    mInside.clear();
    for (const auto& [v, others] : neighbors)
      if (others.size() == 2 && !blocked.contains(v)) mInside.insert(v);
    mNeighbors = neighbors;
  }

  Indices chainOf(std::uint32_t start) const {
    Indices chain{start};
    const auto grow = [&] {
      while (mInside.contains(chain.back()) && (chain.size() == 1 || chain.back() != start)) {
        std::set<std::uint32_t> next = mNeighbors.at(chain.back());
        next.erase(chain.size() > 1 ? chain[chain.size() - 2] : *next.begin());
        chain.push_back(*next.begin());
      }
    };
    grow();
    if (chain.back() == start) {  // a loop
      chain.pop_back();
      const auto height = [&](std::uint32_t v) {
        const Vec3& p = mMesh.mVertices[v];
        const double up = p.x * 0.48729 + p.y * 0.69613 + p.z * 0.52721;
        return std::isnan(up) ? kInfinity : up;
      };
      std::size_t top = 0;
      for (std::size_t i = 1; i < chain.size(); ++i)
        if (height(chain[i]) > height(chain[top]) || (height(chain[i]) == height(chain[top]) && chain[i] < chain[top]))
          top = i;
      std::rotate(chain.begin(), chain.begin() + static_cast<long>(top), chain.end());
      chain.push_back(chain.front());
      return orientedRing(chain);
    }
    std::ranges::reverse(chain);
    start = chain.front();
    // What was walked is on one side of the vertex in the middle; go on from there on the other side.
    grow();
    if (chain.front() > chain.back()) std::ranges::reverse(chain);
    return chain.front() == chain.back() ? orientedRing(chain) : chain;
  }

  /// As the lowest face runs.
  Indices orientedRing(Indices ring) const {
    for (const PlainFace& face : mMesh.mFaces) {
      const auto at = std::ranges::find(face.mCorners, ring[1]);
      if (at == face.mCorners.end()) continue;
      if ((at + 1 == face.mCorners.end() ? face.mCorners.front() : at[1]) != ring[2]) std::ranges::reverse(ring);
      break;
    }
    return ring;
  }

  const Vec3& at(std::size_t i) const { return mMesh.mVertices[mChain[i]]; }
  double deficiency(std::size_t a, std::size_t i, std::size_t b) const {
    const Vec3 u = at(a) - at(i), v = at(b) - at(i);
    if (length(u) == 0 || length(v) == 0) return 0;
    return std::atan2(length(cross(u, v)), -dot(u, v)) * 57.29577951308232;
  }
  double detour(std::size_t a, std::size_t i, std::size_t b) const {
    const Vec3 u = at(a) - at(i), v = at(b) - at(i);
    const double inner = dot(u, v), product = length(u) * length(v), way = length(u) + length(v) + length(v - u);
    if (way == 0) return 0;
    return 2 * (inner < 0 ? lengthSq(cross(u, v)) / (product - inner) : product + inner) / way;
  }
  /// The greatest value; of equal ones, that of the lower vertex.
  template <class Value, class Counts>
  std::optional<std::size_t> best(std::size_t a, std::size_t b, Value value, Counts counts) const {
    std::optional<std::size_t> found;
    const auto valueOf = [&](std::size_t i) { return std::isnan(value(i)) ? kInfinity : value(i); };
    for (std::size_t i = a + 1; i < b; ++i)
      if (counts(i) &&
          (!found || valueOf(i) > valueOf(*found) || (valueOf(i) == valueOf(*found) && mChain[i] < mChain[*found])))
        found = i;
    return found;
  }

  void keepOf(const Indices& chain, bool atLeastOne) {
    mChain = chain;
    const std::size_t end = chain.size() - 1;
    const auto any = [](std::size_t) { return true; };
    if (chain.front() != chain.back()) {
      ++mSeen.open;
      if (!atLeastOne) return divide(0, end, 0);
      const std::size_t middle = *best(
          0, end, [&](std::size_t i) { return detour(0, i, end); }, any);
      mKept.insert(chain[middle]);
      divide(0, middle, 1);
      return divide(middle, end, 1);
    }
    ++mSeen.rings;
    mKept.insert(chain.front());
    const std::size_t opposite = *best(
        0, end, [&](std::size_t i) { return lengthSq(at(i) - at(0)); }, any);
    mKept.insert(chain[opposite]);
    divide(0, opposite, 0);
    divide(opposite, end, 0);
    if (std::ranges::count_if(chain.begin() + 1, chain.end() - 1, [&](auto v) { return mKept.contains(v); }) > 1)
      return;
    ++mSeen.third;
    const std::size_t third = *best(
        0, end, [&](std::size_t i) { return detour(0, i, opposite); }, [&](std::size_t i) { return i != opposite; });
    mKept.insert(chain[third]);
    divide(0, std::min(third, opposite), 1);
    divide(std::min(third, opposite), std::max(third, opposite), 1);
    divide(std::max(third, opposite), end, 1);
  }

  void divide(std::size_t a, std::size_t b, int depth) {
    if (b - a < 2) return;
    std::set<std::size_t> kept;
    if (mTolerance < 180) {
      const auto corner = best(
          a, b, [&](std::size_t i) { return detour(a, i, b); },
          [&](std::size_t i) { return !(deficiency(a, i, b) <= mTolerance); });
      if (corner) {
        ++mSeen.corners;
        kept.insert(*corner);
      } else {
        kept = whereItGoesBack(a, b);
        mSeen.back += !kept.empty();
      }
    }
    if (kept.empty() && mKeepMapping) {
      const auto off = best(
          a, b, [&](std::size_t i) { return offTexture(a, i, b); },
          [&](std::size_t i) { return !(offTexture(a, i, b) < 0.001); });
      if (off) kept.insert(*off);
      mSeen.offTexture += off.has_value();
    }
    if (kept.empty()) return;
    if (depth >= 200) ADD_FAILURE() << "deeper than this twin goes";
    for (const std::size_t i : kept) mKept.insert(mChain[i]);
    divide(a, *kept.begin(), depth + 1);
    if (kept.size() > 1) divide(*kept.begin(), *kept.rbegin(), depth + 1);
    divide(*kept.rbegin(), b, depth + 1);
  }

  std::set<std::size_t> whereItGoesBack(std::size_t a, std::size_t b) const {
    const double edge = length(at(b) - at(a));
    double most = edge / 2 * std::tan(mTolerance / 2 / 57.29577951308232);
    std::set<std::size_t> found;
    const auto along = [&](std::size_t i) { return dot(at(i) - at(a), at(b) - at(a)) / edge; };
    for (std::size_t i = a + 1; i < b; ++i)
      for (std::size_t j = i + 1; j < b; ++j)
        if (along(i) - along(j) > most) {
          most = along(i) - along(j);
          found = {i, j};
        }
    return found;
  }

  /// Calls `use(face, positions of the chain's vertices in it)` for each time that a face runs along the chain.
  template <class Use>
  void forEachRun(Use use) const {
    for (std::uint32_t f = 0; f < mMesh.mFaces.size(); ++f) {
      const Indices& corners = mMesh.mFaces[f].mCorners;
      const std::size_t n = corners.size();
      for (std::size_t start = 0; start < n; ++start)
        for (const bool isForward : {true, false}) {
          std::vector<std::size_t> positions;
          while (positions.size() < mChain.size()) {
            const std::size_t i = positions.size() % n, p = isForward ? (start + i) % n : (start + n - i) % n;
            if (corners[p] != mChain[positions.size()]) break;
            positions.push_back(p);
          }
          if (positions.size() == mChain.size()) use(f, positions, isForward);
        }
    }
  }

  double offTexture(std::size_t a, std::size_t i, std::size_t b) const {
    double most = 0;
    forEachRun([&](std::uint32_t f, const std::vector<std::size_t>& positions, bool) {
      for (const auto& [set, indices] : mMesh.mFaces[f].mSets) {
        if (set > 9) continue;
        const auto& pairs = mMesh.mTexCoords.at(set);
        const auto pairAt = [&, &indices = indices](std::size_t k) {
          const std::uint32_t index = indices[positions[k]];
          return index < pairs.size() ? pairs[index] : Vec2{kNaN, kNaN};
        };
        const double fromA = length(at(i) - at(a)), toB = length(at(b) - at(i)), all = fromA + toB;
        const double s = all > 0 ? toB / all : 0.5, t = all > 0 ? fromA / all : 0.5;
        const double x = pairAt(i).x - (s * pairAt(a).x + t * pairAt(b).x);
        const double y = pairAt(i).y - (s * pairAt(a).y + t * pairAt(b).y);
        const double off = std::sqrt(x * x + y * y);
        most = std::max(most, std::isnan(off) ? kInfinity : off);
      }
    });
    return most;
  }

  /// Sees to chains that are to become edges. Returns whether open ones become one.
  bool settleBundles(const std::vector<Indices>& chains) {
    struct Use {
      std::uint32_t face;
      bool isUpward;
    };
    struct Bundle {
      std::vector<Indices> chains;
      bool hasEdge = false;
      std::vector<Use> uses;
    };
    std::map<Edge, Bundle> bundles;
    for (const Indices& chain : chains) {
      if (chain.front() == chain.back() ||
          std::ranges::any_of(chain.begin() + 1, chain.end() - 1, [&](auto v) { return mKept.contains(v); }))
        continue;
      Bundle& bundle = bundles[{chain.front(), chain.back()}];
      bundle.chains.push_back(chain);
      mChain = chain;
      forEachRun([&](std::uint32_t f, const auto&, bool isForward) { bundle.uses.push_back({f, isForward}); });
    }
    std::set<Indices> toKeep;
    for (std::uint32_t f = 0; f < mMesh.mFaces.size(); ++f) {
      std::size_t left = 0;
      for (const std::uint32_t v : mMesh.mFaces[f].mCorners) left += !mInside.contains(v) || mKept.contains(v);
      for (const auto& [a, b] : support::edgesOf(mMesh.mFaces[f].mCorners)) {
        const auto bundle = bundles.find(std::minmax(a, b));
        if (bundle == bundles.end()) continue;
        bundle->second.hasEdge = true;
        bundle->second.uses.push_back({f, a < b});
      }
      for (const auto& [ends, bundle] : bundles)
        for (const Indices& chain : bundle.chains)
          if (left < 3 && std::ranges::count(mMesh.mFaces[f].mCorners, chain[1]) != 0) toKeep.insert(chain);
    }
    bool isJoined = false;
    for (const auto& [ends, bundle] : bundles) {
      if (bundle.chains.size() + bundle.hasEdge < 2) continue;
      const auto& uses = bundle.uses;
      if (uses.size() == 2 && uses[0].face != uses[1].face && uses[0].isUpward != uses[1].isUpward)
        isJoined = true;
      else
        toKeep.insert(bundle.chains.begin(), bundle.chains.end());
    }
    for (const Indices& chain : toKeep) keepOf(chain, true);
    mSeen.keptOne += toKeep.size();
    return isJoined;
  }

  PlainMesh& mMesh;
  const double mTolerance;
  const bool mKeepMapping;
  Coverage& mSeen;
  std::map<std::uint32_t, std::set<std::uint32_t>> mNeighbors;
  std::set<std::uint32_t> mInside, mKept;
  Indices mChain;
};

// Input: a jittered net of cells, with lines of all kinds between them.

/// The vertices of a line between two points, both without.
std::vector<Vec3> randomLine(std::mt19937& random, const Vec3& a, const Vec3& b) {
  const int count = oneIn(random, 4) ? 0 : oneIn(random, 5) ? pick(random, 10, 40) : pick(random, 1, 6);
  const Vec3 along = b - a, aside = {-along.y, along.x, 0.3 * along.x};
  const auto unit = [&] { return pick(random, -100000, 100000) / 100000.0; };
  const double bulge = oneIn(random, 2) ? 0.2 * unit() : 0, rough = std::array{1e-7, 1e-3, 0.02, 0.2}[below(random, 4)];
  const double step = oneIn(random, 3) ? 1.0 : 0.0;
  std::vector<double> ways;
  for (int i = 1; i <= count; ++i) ways.push_back((i + step * 2 * unit()) / (count + 1));
  if (oneIn(random, 3)) std::ranges::sort(ways);
  std::vector<Vec3> line;
  for (const double t : ways) {
    const double off = bulge * 4 * t * (1 - t) + rough * unit();
    line.push_back(a + t * along + off * aside + Vec3{0, 0, 1e-3 * rough * unit()});
    if (oneIn(random, 40)) line.back() = oneIn(random, 3) ? a : line.front();
  }
  return line;
}

/// @param isClean  without anything that runs along others without being one with them
PlainMesh randomNet(std::mt19937& random, bool isClean) {
  const int columns = pick(random, 1, 3), rows = pick(random, 1, 3);
  PlainMesh mesh;
  const auto add = [&](const Vec3& p) {
    mesh.mVertices.push_back(p);
    return static_cast<std::uint32_t>(mesh.mVertices.size() - 1);
  };
  std::map<std::pair<int, int>, std::uint32_t> nodes;
  for (int x = 0; x <= columns; ++x)
    for (int y = 0; y <= rows; ++y)
      nodes[{x, y}] = add({x + pick(random, -1000, 1000) / 4321.0, y + pick(random, -1000, 1000) / 4321.0,
                           pick(random, -1000, 1000) / 54321.0});
  std::map<Edge, Indices> lines;
  const auto lineOf = [&](std::uint32_t a, std::uint32_t b) {
    const Edge ends = std::minmax(a, b);
    const auto [found, isNew] = lines.try_emplace(ends);
    // Another line beside the first one, of which one may be an edge.
    if (isNew || (!isClean && oneIn(random, 12))) {
      found->second.clear();
      for (const Vec3& p : randomLine(random, mesh.mVertices[ends.first], mesh.mVertices[ends.second]))
        found->second.push_back(add(p));
      if (!isClean && oneIn(random, 8)) found->second.clear();
    }
    Indices line = found->second;
    if (a > b) std::ranges::reverse(line);
    return line;
  };
  for (int x = 0; x < columns; ++x)
    for (int y = 0; y < rows; ++y) {
      if (oneIn(random, 4)) continue;
      Indices ring;
      const std::array ends{nodes[{x, y}], nodes[{x + 1, y}], nodes[{x + 1, y + 1}], nodes[{x, y + 1}]};
      for (std::size_t i = 0; i < 4; ++i) {
        ring.push_back(ends[i]);
        const Indices line = lineOf(ends[i], ends[(i + 1) % 4]);
        ring.insert(ring.end(), line.begin(), line.end());
        if (!isClean && !line.empty() && oneIn(random, 12)) {  // a lens, a slit to and fro, or three faces at an edge
          Indices other{ends[i]};
          other.insert(other.end(), line.begin(), line.end());
          other.push_back(ends[(i + 1) % 4]);
          const Indices back =
              oneIn(random, 2) ? lineOf(ends[(i + 1) % 4], ends[i]) : Indices(line.rbegin(), line.rend());
          other.insert(other.end(), back.begin(), back.end());
          if (other.size() > 2) mesh.mFaces.push_back({other});
        }
      }
      std::rotate(ring.begin(), ring.begin() + below(random, ring.size()), ring.end());
      if (!isClean && oneIn(random, 6)) std::ranges::reverse(ring);
      if (!isClean && oneIn(random, 6)) {  // a second visit
        const std::uint32_t v = ring[below(random, ring.size())];
        ring.insert(ring.begin() + below(random, ring.size()), v);
      }
      mesh.mFaces.push_back({ring});
    }
  // Other numbers.
  Indices numbers(mesh.mVertices.size());
  std::iota(numbers.begin(), numbers.end(), 0u);
  if (oneIn(random, 2)) std::ranges::shuffle(numbers, random);
  const std::vector<Vec3> points = mesh.mVertices;
  for (std::size_t v = 0; v < points.size(); ++v) mesh.mVertices[numbers[v]] = points[v];
  for (PlainFace& face : mesh.mFaces)
    for (std::uint32_t& v : face.mCorners) v = numbers[v];
  return mesh;
}

void decorate(std::mt19937& random, PlainMesh& mesh) {
  const std::array textured{oneIn(random, 2), oneIn(random, 4)};
  const bool seams = oneIn(random, 6);
  for (PlainFace& face : mesh.mFaces) {
    if (oneIn(random, 3)) face.mNormalIndices = randomIndices(random, face.mCorners.size(), 100);
    for (const int set : {0, 1}) {
      if (!textured[set] || oneIn(random, 6)) continue;
      const double kink = oneIn(random, 2) ? 0.02 : 0;
      for (const std::uint32_t v : face.mCorners) {
        const Vec3& p = mesh.mVertices[v];
        face.mSets[set].push_back(static_cast<std::uint32_t>(mesh.mTexCoords[set].size()) +
                                  (oneIn(random, 300) ? 1000 : 0));
        mesh.mTexCoords[set].push_back({0.3 * p.x + kink * p.x * p.y, 0.2 * p.y});
      }
    }
    if (!seams) continue;
    for (std::size_t i = 0; i < face.mCorners.size(); ++i) {
      face.mSets[10].push_back(i == 0 || oneIn(random, 9) ? below(random, 3) : face.mSets[10].back());
      face.mSets[11].push_back(oneIn(random, 20) ? 4 : kEnd);
    }
  }
}

const double kTolerances[] = {0.01, 0.5, 2.0, 10.0, 45.0, 80.0, 100.0, 170.0, 180.0, 400.0};

TEST(StraightenChains, equalsItsSlowTwinAndASecondRunChangesNothing) {
  Coverage seen;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh twin = randomNet(random, oneIn(random, 3));
    decorate(random, twin);
    Mesh mesh = buildMesh(twin);
    warmCache(mesh);
    const double tolerance = kTolerances[below(random, std::size(kTolerances))];
    const bool keepMapping = !oneIn(random, 3);
    const std::size_t expected = Twin(twin, tolerance, keepMapping, seen).run();
    ASSERT_EQ(straighten(mesh, tolerance, keepMapping), expected) << tolerance;
    expectSame(mesh, twin);
    ASSERT_EQ(straighten(mesh, tolerance, keepMapping), 0u);
    expectSame(mesh, twin);
    if (HasFailure()) return;
  }
  EXPECT_GT(seen.removed, 10 * seen.calls);
  for (const unsigned count : {seen.open, seen.corners, seen.offTexture}) EXPECT_GT(count, seen.calls);
  for (const unsigned count : {seen.rings, seen.back, seen.keptOne}) EXPECT_GT(count, seen.calls / 4);
  for (const unsigned count : {seen.third, seen.joined}) EXPECT_GT(count, seen.calls / 100);
}

// What a user is promised, measured on the result.

double distanceToSegment(const Vec3& p, const Vec3& a, const Vec3& b) {
  const double t = lengthSq(b - a) > 0 ? std::clamp(dot(p - a, b - a) / lengthSq(b - a), 0.0, 1.0) : 0;
  return length(p - (a + t * (b - a)));
}

/// Faces in old numbers, and what happened to them.
struct Straightened {
  PlainMesh before;
  Faces old, now;

  Straightened(const PlainMesh& mesh, double tolerance) : before(mesh) {
    for (const PlainFace& face : mesh.mFaces) old.push_back(face.mCorners);
    Mesh changed = buildMesh(mesh);
    util::MeshHistory history(mesh.mVertices.size(), mesh.mFaces.size());
    changed.storage().mHistory.set(&history);
    straighten(changed, tolerance, true);
    now = facesOf(changed);
    for (Indices& face : now)
      for (std::uint32_t& v : face) v = history.vertices.sources()[v];
  }

  /// Calls `use(face, positions)` for each old part of a boundary that is an edge now; the face goes once round.
  template <class Use>
  void forEachEdge(Use use) const {
    for (std::uint32_t f = 0; f < old.size(); ++f) {
      const std::set<std::uint32_t> kept(now[f].begin(), now[f].end());
      std::vector<std::size_t> positions;
      for (std::size_t i = 0, n = old[f].size(); i <= 2 * n; ++i) {
        positions.push_back(i % n);
        if (!kept.contains(old[f][i % n])) continue;
        if (kept.contains(old[f][positions.front()]) && i >= n) use(f, positions);
        positions = {i % n};
      }
    }
  }
  const Vec3& at(std::uint32_t f, std::size_t position) const { return before.mVertices[old[f][position]]; }
};

void expectNearOldBoundary(const Straightened& result, double tolerance) {
  result.forEachEdge([&](std::uint32_t f, const std::vector<std::size_t>& part) {
    const Vec3 a = result.at(f, part.front()), b = result.at(f, part.back());
    const double reach = length(b - a) / 2 * std::tan(tolerance / 2 / 57.29577951308232) + 1e-12;
    for (std::size_t i = 1; i < part.size(); ++i) {
      EXPECT_LE(distanceToSegment(result.at(f, part[i]), a, b), reach);
      EXPECT_LE(distanceToSegment(0.5 * (result.at(f, part[i - 1]) + result.at(f, part[i])), a, b), reach);
    }
  });
}

TEST(StraightenChains, staysCloseToTheOldBoundary) {
  for (unsigned seed = 0; seed < 600; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    PlainMesh mesh = randomNet(random, true);
    decorate(random, mesh);
    const double tolerance = kTolerances[below(random, 6)];
    expectNearOldBoundary(Straightened(mesh, tolerance), tolerance);
    if (HasFailure()) return;
  }
}

PlainMesh loopOf(const std::vector<Vec3>& points) {
  PlainMesh mesh;
  mesh.mVertices = points;
  mesh.mDefaultMaterial = materialOf("");
  mesh.mFaces = {{Indices(points.size())}};
  std::iota(mesh.mFaces[0].mCorners.begin(), mesh.mFaces[0].mCorners.end(), 0u);
  return mesh;
}

// Two corners on a circle see each other's arc under half of it: edges over twice the tolerance are too long, and those
// over half of that are never divided.
TEST(StraightenChains, circlesLoseCornersAndStayRound) {
  for (const int n : {10, 100, 1000, 10'000})
    for (const double tolerance : {0.01, 0.1, 1.0, 7.0, 30.0, 60.0}) {
      SCOPED_TRACE(testing::Message() << n << ' ' << tolerance);
      std::vector<Vec3> points;
      for (int i = 0; i < n; ++i)
        points.push_back({std::cos(6.283185307179586 * i / n), std::sin(6.283185307179586 * i / n), 2});
      const Straightened result(loopOf(points), tolerance);
      const auto kept = static_cast<double>(result.now[0].size());
      EXPECT_GE(kept, std::min<double>(n, std::max(3.0, 180 / tolerance)));
      EXPECT_LE(kept, std::min<double>(n, 4 * 180 / tolerance));
      expectNearOldBoundary(result, tolerance);
    }
}

TEST(StraightenChains, rectanglesOfManyCornersEndWithFour) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double angle = seed % 3 == 0 ? 0.785398163397448 * pick(random, 0, 7) : 1e-4 * pick(random, 0, 63000);
    const Vec3 across{std::cos(angle), std::sin(angle), 0}, up{-std::sin(angle), std::cos(angle), 0};
    const Vec3 origin{100.1 * pick(random, -3, 3), 77.7, 0.3};
    std::vector<Vec3> points;
    for (const auto& [x, y, dx, dy] : {std::array{0, 0, 3, 0}, {3, 0, 0, 1}, {3, 1, -3, 0}, {0, 1, 0, -1}})
      for (int i = 0, n = pick(random, 1, 30); i < n; ++i)
        points.push_back(origin + (x + 1.0 * dx * i / n) * across + (y + 1.0 * dy * i / n) * up);
    std::rotate(points.begin(), points.begin() + below(random, points.size()), points.end());
    if (oneIn(random, 2)) std::ranges::reverse(points);
    EXPECT_EQ(Straightened(loopOf(points), 0.01).now[0].size(), 4u);
  }
}

// Dividing these at their corners takes a step per corner: n^2 in all, if each step looked at all that is left.
TEST(StraightenChains, isNotQuadraticInTheNumberOfTurns) {
  constexpr int kTurns = 5000;
  std::vector<Vec3> stairs, comb, spiral;
  for (int i = 0; i < kTurns; ++i) {
    const double x = i, angle = 0.5 * i;
    for (const auto& [dx, dy] : {std::pair(0.0, 0.0), {0.5, 0.0}, {1.0, 0.0}, {1.0, 0.5}})
      stairs.push_back({x + dx, x + dy, 0});
    for (const auto& [dx, dy] : {std::pair(0.0, 0.0), {0.0, 0.5}, {0.0, 1.0}, {0.2, 1.0}, {0.4, 1.0}, {0.4, 0.0}})
      comb.push_back({x + dx, dy, 0});
    spiral.push_back({angle * std::cos(angle), angle * std::sin(angle), 0});
  }
  for (const auto* const shape : {&stairs, &comb, &spiral})
    for (const double tolerance : {0.01, 1.0, 40.0}) {
      const std::vector<Vec3>& points = *shape;
      const Straightened result(loopOf(points), tolerance);
      // Two thirds of the comb's corners are corners; now and then one more is kept.
      if (shape == &comb) {
        EXPECT_LT(result.now[0].size(), 4.6 * kTurns);
      }
      expectNearOldBoundary(result, tolerance);
      PlainMesh again = loopOf({});
      for (const std::uint32_t v : result.now[0]) again.mVertices.push_back(points[v]);
      again = loopOf(again.mVertices);
      EXPECT_EQ(Straightened(again, tolerance).now[0].size(), result.now[0].size());
    }
}

//   3-----------2
//   |           |     4 lies on one side only. With it the sides of the gap become one edge, of two faces; where a
//   0-----4-----1     third face runs along it, it would be an edge of three.
//   0-----------1
//   |           |
//   5-----------6
TEST(StraightenChains, closesGapsButNeverJoinsMore) {
  const std::vector<Vec3> points{{0, 0, 0}, {4, 0, 0}, {4, 3, 0}, {0, 3, 0}, {2, 1e-4, 0}, {0, -3, 1}, {4, -3, 1}};
  Faces faces{{0, 4, 1, 2, 3}, {1, 0, 5, 6}};
  Mesh two = meshOf(points, faces);
  EXPECT_EQ(straighten(two, 1, true), 1u);
  EXPECT_EQ(facesOf(two), (Faces{{0, 1, 2, 3}, {1, 0, 4, 5}}));
  faces.push_back({0, 1, 6});
  Mesh three = meshOf(points, faces);
  EXPECT_EQ(straighten(three, 1, true), 0u);
}

}  // namespace
