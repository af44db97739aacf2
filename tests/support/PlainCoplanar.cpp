#include <tests/support/PlainCoplanar.h>

namespace support {
namespace {

using Whole = std::int64_t;
using Point = std::array<Whole, 3>;
using Flat = std::array<Whole, 2>;
using Outline = std::vector<Flat>;

struct Corner {
  std::uint32_t face, number;
  auto operator<=>(const Corner&) const = default;
};
using Loop = std::vector<Corner>;

Point minus(const Point& a, const Point& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
Point times(const Point& a, const Point& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Whole inner(const Point& a, const Point& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
long double size(const Point& a) { return std::sqrt(static_cast<long double>(inner(a, a))); }

/// Twice the area, positive where a, b, c turn left.
Whole turn(const Flat& a, const Flat& b, const Flat& c) {
  return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}
int side(const Flat& a, const Flat& b, const Flat& c) { return (turn(a, b, c) > 0) - (turn(a, b, c) < 0); }
bool isOn(const Flat& p, const Flat& a, const Flat& b) {
  return turn(a, b, p) == 0 && std::min(a[0], b[0]) <= p[0] && p[0] <= std::max(a[0], b[0]) &&
         std::min(a[1], b[1]) <= p[1] && p[1] <= std::max(a[1], b[1]);
}
bool touch(const Flat& a, const Flat& b, const Flat& c, const Flat& d) {
  return isOn(a, c, d) || isOn(b, c, d) || isOn(c, a, b) || isOn(d, a, b) ||
         (side(a, b, c) * side(a, b, d) < 0 && side(c, d, a) * side(c, d, b) < 0);
}
bool outlinesTouch(const Outline& a, const Outline& b) {
  for (std::size_t i = 0; i < a.size(); ++i)
    for (std::size_t j = 0; j < b.size(); ++j)
      if (touch(a[i], a[(i + 1) % a.size()], b[j], b[(j + 1) % b.size()])) return true;
  return false;
}
/// Even-odd; points on an edge are outside.
bool isInside(const Flat& p, const Outline& outline) {
  bool inside = false;
  for (std::size_t i = 0; i < outline.size(); ++i) {
    Flat a = outline[i], b = outline[(i + 1) % outline.size()];
    if (isOn(p, a, b)) return false;
    if (a[1] > b[1]) std::swap(a, b);
    inside ^= a[1] <= p[1] && p[1] < b[1] && turn(a, b, p) > 0;
  }
  return inside;
}
Whole doubleArea(const Outline& outline) {
  Whole sum = 0;
  for (std::size_t i = 1; i + 1 < outline.size(); ++i) sum += turn(outline[0], outline[i], outline[i + 1]);
  return sum;
}

class PlainCoplanar {
 public:
  PlainCoplanar(PlainMesh& mesh, double tolerance, bool compareAttributes, double unit)
      : mMesh(mesh), mInput(mesh), mTolerance(tolerance), mCompareAttributes(compareAttributes), mUnit(unit) {}

  std::uint64_t run() {
    if (!(mTolerance >= 0)) return 0;
    const std::size_t count = mInput.mFaces.size();
    for (const auto& [outer, holes] : mInput.mHoles) mHoles.insert(holes.begin(), holes.end());
    for (std::uint32_t f = 0; f < count; ++f) {
      for (std::uint32_t i = 0; i < cornersOf(f).size(); ++i) mUses[edge({f, i})].push_back({f, i});
      mNormals.push_back(isFinite(f) ? areaVector(pointsOf(f)) : Point{});
      mAreas.push_back(hasPlane(f) ? areaOf(f) : 0);
    }
    Indices seeds;
    for (std::uint32_t f = 0; f < count; ++f)
      if (hasPlane(f)) seeds.push_back(f);
    std::ranges::sort(seeds, [&](auto a, auto b) { return comesBefore(a, b); });
    std::uint64_t merged = 0;
    for (const std::uint32_t seed : seeds) {
      if (mTaken.contains(seed)) continue;
      grow(seed);
      if (mend()) merged += merge();
      mTaken.insert(mRegion.begin(), mRegion.end());
    }
    if (merged == 0) return 0;
    if (mMaterialChanged) writeRuns();
    writeHoles();
    compactPrimitives(mMesh);
    removeUnusedVertices(mMesh);
    return merged;
  }

 private:
  const Indices& cornersOf(std::uint32_t f) const { return mInput.mFaces[f].mCorners; }
  std::uint32_t vertexAt(const Corner& c) const { return cornersOf(c.face)[c.number % cornersOf(c.face).size()]; }
  Edge edge(const Corner& c) const { return {vertexAt(c), vertexAt({c.face, c.number + 1})}; }
  Corner previous(const Corner& c) const {
    return {c.face, (c.number + static_cast<std::uint32_t>(cornersOf(c.face).size()) - 1) %
                        static_cast<std::uint32_t>(cornersOf(c.face).size())};
  }
  bool isFinite(std::uint32_t f) const {
    return std::ranges::all_of(cornersOf(f), [&](std::uint32_t v) {
      return std::isfinite(mInput.mVertices[v].x + mInput.mVertices[v].y + mInput.mVertices[v].z);
    });
  }
  Point pointAt(std::uint32_t v) const {
    const Vec3& p = mInput.mVertices[v];
    return {std::llround(p.x), std::llround(p.y), std::llround(p.z)};
  }
  std::vector<Point> pointsOf(std::uint32_t f) const {
    std::vector<Point> points;
    for (const std::uint32_t v : cornersOf(f)) points.push_back(pointAt(v));
    return points;
  }
  static Point areaVector(const std::vector<Point>& points) {
    Point sum{};
    for (std::size_t i = 1; i + 1 < points.size(); ++i) {
      const Point n = times(minus(points[i], points[0]), minus(points[i + 1], points[0]));
      for (int k = 0; k < 3; ++k) sum[k] += n[k];
    }
    return sum;
  }
  static Vec3 unitNormal(const Point& n) {
    if (n == Point{}) return {0, 1, 0};
    const auto x = static_cast<double>(n[0]), y = static_cast<double>(n[1]), z = static_cast<double>(n[2]);
    const double length = std::sqrt(x * x + y * y + z * z);
    return {x / length, y / length, z / length};
  }
  static int axisOf(const Point& n) {
    const Whole x = std::abs(n[0]), y = std::abs(n[1]), z = std::abs(n[2]);
    if (n == Point{}) return 1;
    return z > std::max(x, y) ? 2 : y > x ? 1 : 0;
  }
  /// The area in doubles decides which of two faces is the larger one: as it is defined, rounding included.
  double areaOf(std::uint32_t f) const {
    const Vec3 n = unitNormal(mNormals[f]);
    const double x = std::fabs(n.x), y = std::fabs(n.y), z = std::fabs(n.z);
    const int axis = x > y && x > z ? 0 : x <= y && y > z ? 1 : 2;
    Outline outline;
    for (const Point& p : pointsOf(f)) outline.push_back({p[(axis + 1) % 3], p[(axis + 2) % 3]});
    const double along = axis == 0 ? n.x : axis == 1 ? n.y : n.z;
    return std::fabs(0.5 * static_cast<double>(doubleArea(outline)) * (1.0 / along));
  }
  bool hasPlane(std::uint32_t f) const { return mNormals[f] != Point{}; }
  bool comesBefore(std::uint32_t a, std::uint32_t b) const {
    return mAreas[a] > mAreas[b] || (mAreas[a] == mAreas[b] && a < b);
  }

  /// The corner of the other face where a clean edge begins; a face of kEnd where there is none.
  Corner twin(const Corner& c) const {
    const Edge e = edge(c);
    const auto back = mUses.find({e.second, e.first});
    if (back == mUses.end() || back->second.size() != 1 || mUses.at(e).size() != 1) return {kEnd, 0};
    const Corner other = back->second[0];
    const bool takesPart = other.face != c.face && !mHoles.contains(c.face) && !mHoles.contains(other.face) &&
                           isFinite(c.face) && isFinite(other.face);
    return takesPart ? other : Corner{kEnd, 0};
  }

  void grow(std::uint32_t seed) {
    mSeed = seed;
    mRegion = {seed};
    for (Indices open{seed}; !open.empty(); open.erase(open.begin()))
      for (std::uint32_t i = 0; i < cornersOf(open[0]).size(); ++i) {
        const Corner here{open[0], i}, there = twin(here);
        if (there.face == kEnd || mRegion.contains(there.face) || mTaken.contains(there.face)) continue;
        if (!accepts(here, there)) continue;
        mRegion.insert(there.face);
        open.push_back(there.face);
      }
  }

  bool accepts(const Corner& here, const Corner& there) const {
    constexpr long double kDegree = 57.295779513082320876798L;
    const std::uint32_t f = there.face;
    const long double limit = std::min(mTolerance, 89.0) + 1e-6L;
    const Point& n = mNormals[mSeed];
    if (hasPlane(f)) {
      if (!comesBefore(mSeed, f)) return false;
      if (std::atan2(size(times(n, mNormals[f])), static_cast<long double>(inner(n, mNormals[f]))) * kDegree > limit)
        return false;
    }
    for (const Point& p : pointsOf(f)) {
      const Point d = minus(p, pointAt(vertexAt(here)));
      if (!hasPlane(f) && std::abs(inner(d, n)) > std::sin(limit / kDegree) * size(d) * size(n)) return false;
    }
    const PlainFace &a = mInput.mFaces[mSeed], &b = mInput.mFaces[f];
    const auto setsOf = [](const PlainFace& face) {
      std::set<int> sets;
      for (const auto& [set, indices] : face.mSets) sets.insert(set);
      return sets;
    };
    if (setsOf(a) != setsOf(b) || a.mNormalIndices.empty() != b.mNormalIndices.empty() ||
        a.mPerVertexNormals != b.mPerVertexNormals)
      return false;
    if (!mCompareAttributes) return true;
    if (materialAt(mSeed).first != materialAt(f).first) return false;
    for (const auto& [set, indices] : b.mSets) {
      if (set >= 10) continue;
      const Corner ourEnd{here.face, here.number + 1}, theirEnd{f, there.number + 1};
      if (!areClose(pairAt(here, set), pairAt(theirEnd, set)) || !areClose(pairAt(ourEnd, set), pairAt(there, set)))
        return false;
      for (std::uint32_t i = 0; i < indices.size(); ++i)
        if (!areClose(mappedAt(set, vertexAt({f, i})), pairAt({f, i}, set))) return false;
    }
    return true;
  }

  std::optional<Vec2> pairAt(const Corner& c, int set) const {
    const Indices& indices = mInput.mFaces[c.face].mSets.at(set);
    const std::uint32_t index = indices[c.number % indices.size()];
    const auto pairs = mInput.mTexCoords.find(set);
    if (pairs == mInput.mTexCoords.end() || index >= pairs->second.size()) return {};
    return pairs->second[index];
  }
  static bool areClose(const std::optional<Vec2>& a, const std::optional<Vec2>& b) {
    return a && b && std::hypot(a->x - b->x, a->y - b->y) < 0.001;
  }
  /// What the map through the seed's three corners of largest area gives for a vertex, by barycentric coordinates.
  std::optional<Vec2> mappedAt(int set, std::uint32_t vertex) const {
    const auto points = pointsOf(mSeed);
    std::array<std::uint32_t, 3> best{};
    Point normal{};
    for (std::uint32_t i = 0; i < points.size(); ++i)
      for (std::uint32_t j = i + 1; j < points.size(); ++j)
        for (std::uint32_t k = j + 1; k < points.size(); ++k) {
          const Point n = times(minus(points[j], points[i]), minus(points[k], points[i]));
          if (inner(n, n) > inner(normal, normal)) best = {i, j, k}, normal = n;
        }
    Vec2 result{0, 0};
    for (int turns = 0; turns < 3; ++turns) {
      const Point &b = points[best[(turns + 1) % 3]], &c = points[best[(turns + 2) % 3]];
      const long double share = static_cast<long double>(inner(times(minus(c, b), minus(pointAt(vertex), b)), normal)) /
                                inner(normal, normal);
      const auto pair = pairAt({mSeed, best[turns]}, set);
      if (!pair) return {};
      result.x += static_cast<double>(share * pair->x);
      result.y += static_cast<double>(share * pair->y);
    }
    return result;
  }

  std::size_t runAt(std::size_t face) const {
    std::size_t run = 0;
    while (run < mInput.mRunStarts.size() && mInput.mRunStarts[run] <= face) ++run;
    return run == 0 ? 0 : run - 1;
  }
  const util::MaterialPair& materialAt(std::uint32_t face) const {
    return mInput.mRunStarts.empty() ? mInput.mDefaultMaterial : mInput.mRunMaterials[runAt(face)];
  }

  bool isInnerEdge(const Corner& c) const { return mRegion.contains(twin(c).face); }

  std::vector<Corner> border() const {
    std::vector<Corner> corners;
    for (const std::uint32_t f : mRegion)
      for (std::uint32_t i = 0; i < cornersOf(f).size(); ++i)
        if (!isInnerEdge({f, i})) corners.push_back({f, i});
    std::ranges::stable_sort(corners, {}, [&](const Corner& c) { return vertexAt(c); });
    return corners;
  }

  /// The faces from that of a border edge around the vertex that it leaves, to the next border edge.
  std::set<std::uint32_t> fanAt(Corner leaving) const {
    std::set<std::uint32_t> fan{leaving.face};
    while (isInnerEdge(previous(leaving))) {
      leaving = twin(previous(leaving));
      fan.insert(leaving.face);
    }
    return fan;
  }

  void keepPartOfSeed() {
    std::set<std::uint32_t> part{mSeed};
    for (Indices open{mSeed}; !open.empty(); open.erase(open.begin()))
      for (std::uint32_t i = 0; i < cornersOf(open[0]).size(); ++i)
        if (isInnerEdge({open[0], i}) && part.insert(twin({open[0], i}).face).second)
          open.push_back(twin({open[0], i}).face);
    mRegion = part;
  }

  /// False where the seed would have to go.
  bool resolvePinches() {
    while (true) {
      const auto corners = border();
      const auto pinch = std::ranges::adjacent_find(corners, {}, [&](const Corner& c) { return vertexAt(c); });
      if (pinch == corners.end()) return true;
      std::vector<std::set<std::uint32_t>> fans;
      for (const Corner& c : corners)
        if (vertexAt(c) == vertexAt(*pinch)) fans.push_back(fanAt(c));
      const auto rank = [&](const std::set<std::uint32_t>& fan) {
        double area = 0;
        for (const std::uint32_t f : fan) area += mAreas[f];
        return std::tuple(fan.contains(mSeed), area, -static_cast<double>(*fan.begin()));
      };
      const auto kept = std::ranges::max_element(fans, {}, rank);
      for (auto fan = fans.begin(); fan != fans.end(); ++fan) {
        if (fan == kept) continue;
        if (fan->contains(mSeed)) return false;
        for (const std::uint32_t f : *fan) mRegion.erase(f);
      }
      keepPartOfSeed();
    }
  }

  std::vector<Loop> loops() const {
    std::vector<Corner> left = border();
    std::vector<Loop> result;
    while (!left.empty()) {
      Loop& loop = result.emplace_back();
      for (auto next = left.begin(); next != left.end();
           next = std::ranges::find(left, edge(loop.back()).second, [&](const Corner& c) { return vertexAt(c); })) {
        loop.push_back(*next);
        left.erase(next);
      }
    }
    return result;
  }

  /// Whether a walk from the seed, breadth first, comes by `a` first.
  bool isNearer(std::uint32_t a, std::uint32_t b) const {
    Indices walk{mSeed};
    for (std::size_t next = 0; next < walk.size(); ++next)
      for (std::uint32_t i = 0; i < cornersOf(walk[next]).size(); ++i) {
        const Corner c{walk[next], i};
        if (isInnerEdge(c) && !std::ranges::count(walk, twin(c).face)) walk.push_back(twin(c).face);
      }
    return std::ranges::find(walk, a) < std::ranges::find(walk, b);
  }

  std::vector<Point> pointsOf(const Loop& loop) const {
    std::vector<Point> points;
    for (const Corner& c : loop) points.push_back(pointAt(vertexAt(c)));
    return points;
  }
  /// Seen along an axis, from its far end.
  static Outline seen(const std::vector<Point>& points, int axis) {
    Outline outline;
    for (const Point& p : points) outline.push_back({p[(axis + 1) % 3], p[(axis + 2) % 3]});
    return outline;
  }

  /// Until the border is sound; keeps the seed alone where it cannot be made so.
  bool mend() {
    for (int round = 0; resolvePinches(); ++round) {
      if (mRegion.size() < 2) return false;
      const std::set<std::uint32_t> out = findFlaws(round);
      if (mIsSound) return true;
      if (out.empty()) break;
      for (const std::uint32_t f : out) mRegion.erase(f);
      keepPartOfSeed();
    }
    mRegion = {mSeed};
    return false;
  }

  /// What has to go; mOuter and mInner where the border is sound.
  std::set<std::uint32_t> findFlaws(int round) {
    std::set<std::uint32_t> out;
    const auto mark = [&](Loop corners) {
      mIsSound = false;
      std::ranges::sort(corners, {}, [&](const Corner& c) { return vertexAt(c); });
      for (const Corner& c : corners) {
        std::set<std::uint32_t> fan = fanAt(c);
        fan.erase(mSeed);
        if (fan.empty()) continue;
        if (round < 8)
          out.insert(*std::ranges::max_element(fan, [&](auto a, auto b) { return comesBefore(a, b); }));
        else
          out.insert(fan.begin(), fan.end());
        return;
      }
    };
    mIsSound = true;
    const int axis = axisOf(mNormals[mSeed]);
    const Whole sign = mNormals[mSeed][axis] > 0 ? 1 : -1;
    std::vector<Loop> outers;
    mInner.clear();
    const auto sizeOf = [&](const Loop& loop) { return sign * doubleArea(seen(pointsOf(loop), axis)); };
    for (const Loop& loop : loops()) {
      if (loop.size() < 3 || sizeOf(loop) == 0) {
        mark(loop);
        continue;
      }
      (sizeOf(loop) > 0 ? outers : mInner).push_back(loop);
      // Edges without length are passed over.
      const Outline whole = seen(pointsOf(loop), axis);
      Loop proper;
      for (std::size_t i = 0; i < loop.size(); ++i)
        if (whole[i] != whole[(i + 1) % loop.size()]) proper.push_back(loop[i]);
      const Outline outline = seen(pointsOf(proper), axis);
      const std::size_t n = proper.size();
      for (std::size_t i = 0; i < n; ++i) {
        const auto touches = [&](std::size_t j) {
          const Flat &a = outline[i], &b = outline[(i + 1) % n], &c = outline[j], &d = outline[(j + 1) % n];
          if (j == (i + 1) % n) return isOn(a, c, d) || isOn(d, a, b);
          if (i == (j + 1) % n) return isOn(c, a, b) || isOn(b, c, d);
          return i != j && touch(a, b, c, d);
        };
        for (std::size_t j = 0; j < n; ++j) {
          if (!touches(j)) continue;
          mIsSound = false;
          if (!isNearer(proper[i].face, proper[j].face) && proper[i].face != mSeed) out.insert(proper[i].face);
        }
      }
    }
    if (outers.empty()) outers.swap(mInner);
    if (outers.size() != 1) mIsSound = false;
    const auto largest = std::ranges::max_element(outers, {}, sizeOf);
    for (auto loop = outers.begin(); loop != outers.end(); ++loop)
      if (loop != largest) mark(*loop);
    if (mIsSound) {
      mOuter = outers[0];
      findHolesThatWouldGo(mark, out);
    }
    if (round > 8) {
      std::set<std::uint32_t> ring = out;
      for (std::uint64_t step = 0; step < std::uint64_t{1} << 2 * (round - 9) && !ring.empty(); ++step) {
        std::set<std::uint32_t> beyond;
        for (const std::uint32_t f : ring)
          for (std::uint32_t i = 0; i < cornersOf(f).size(); ++i)
            if (isInnerEdge({f, i}) && twin({f, i}).face != mSeed && out.insert(twin({f, i}).face).second)
              beyond.insert(twin({f, i}).face);
        ring = beyond;
      }
    }
    return out;
  }

  template <class Mark>
  void findHolesThatWouldGo(Mark mark, std::set<std::uint32_t>& out) {
    std::vector<std::vector<Point>> kept;
    const auto outer = pointsOf(mOuter);
    const auto stays = [&](const std::vector<Point>& hole) {
      const auto anyInside = [](const std::vector<Point>& points, const std::vector<Point>& polygon, int axis) {
        const Outline outline = seen(polygon, axis);
        return std::ranges::any_of(seen(points, axis), [&](const Flat& p) { return isInside(p, outline); });
      };
      const int axis = axisOf(areaVector(outer)), holeAxis = axisOf(areaVector(hole));
      const Outline outline = seen(outer, axis);
      if (anyInside(outer, hole, holeAxis) || outlinesTouch(outline, seen(hole, axis))) return false;
      for (const Flat& p : seen(hole, axis))
        if (!isInside(p, outline)) return false;
      for (const Point& p : hole)
        for (const Point& q : outer)
          if (static_cast<double>(inner(minus(p, q), minus(p, q))) * mUnit * mUnit < 6.4e-7) return false;
      for (const auto& earlier : kept) {
        const int earlierAxis = axisOf(areaVector(earlier));
        if (anyInside(hole, earlier, earlierAxis) || anyInside(earlier, hole, holeAxis) ||
            outlinesTouch(seen(earlier, earlierAxis), seen(hole, earlierAxis)))
          return false;
      }
      kept.push_back(hole);
      return true;
    };
    for (const std::uint32_t f : mRegion) {
      if (!mInput.mHoles.contains(f)) continue;
      for (const std::uint32_t hole : mInput.mHoles.at(f)) {
        if (stays(pointsOf(hole))) continue;
        mIsSound = false;
        if (f != mSeed) out.insert(f);
      }
    }
    for (const Loop& loop : mInner)
      if (!stays(pointsOf(loop))) mark(loop);
  }

  void write(std::uint32_t f, const Loop& loop) {
    PlainFace& face = mMesh.mFaces[f];
    const PlainFace& like = mInput.mFaces[mSeed];
    face.mCorners.clear();
    face.mNormalIndices.clear();
    face.mSets.clear();
    face.mPerVertexNormals = like.mPerVertexNormals;
    for (const Corner& c : loop) {
      const PlainFace& from = mInput.mFaces[c.face];
      face.mCorners.push_back(from.mCorners[c.number]);
      if (!from.mNormalIndices.empty()) face.mNormalIndices.push_back(from.mNormalIndices[c.number]);
      for (const auto& [set, indices] : from.mSets) face.mSets[set].push_back(indices[c.number]);
    }
    face.mNormal = unitNormal(areaVector(pointsOf(loop)));
  }

  std::uint64_t merge() {
    const Indices members(mRegion.begin(), mRegion.end());
    for (const std::uint32_t f : members) {
      mSurvivors[f] = members[0];
      mMesh.mFaces[f].clear();
    }
    write(members[0], mOuter);
    mMesh.mFaces[members[0]].mTag = mInput.mFaces[mSeed].mTag;
    setMaterial(members[0]);
    for (std::size_t i = 0; i < mInner.size(); ++i) {
      const bool isAppended = i + 1 >= members.size();
      const auto face = isAppended ? static_cast<std::uint32_t>(mMesh.mFaces.size()) : members[i + 1];
      if (isAppended) mMesh.mFaces.emplace_back();
      write(face, mInner[i]);
      mMesh.mFaces[face].mTag = -1;
      if (isAppended) setMaterial(face);
      mNewHoles.emplace_back(members[0], face);
    }
    return members.size() - 1;
  }

  void setMaterial(std::uint32_t face) {
    if (mInput.mRunStarts.empty()) return;
    mMaterials[face] = materialAt(mSeed);
    mMaterialChanged = mMaterialChanged || materialAt(face) != materialAt(mSeed);
  }

  void writeRuns() {
    mMesh.mRunStarts.clear();
    mMesh.mRunMaterials.clear();
    for (std::uint32_t f = 0; f < mMesh.mFaces.size(); ++f) {
      const auto changed = mMaterials.find(f);
      const auto material = changed != mMaterials.end() ? changed->second : materialAt(f);
      if (!mMesh.mRunMaterials.empty() && mMesh.mRunMaterials.back() == material) continue;
      mMesh.mRunStarts.push_back(f);
      mMesh.mRunMaterials.push_back(material);
    }
  }

  void writeHoles() {
    mMesh.mHoles.clear();
    for (const auto& [outer, holes] : mInput.mHoles) {
      Indices& list = mMesh.mHoles[mSurvivors.contains(outer) ? mSurvivors[outer] : outer];
      list.insert(list.end(), holes.begin(), holes.end());
    }
    for (const auto& [outer, hole] : mNewHoles) mMesh.mHoles[outer].push_back(hole);
  }

  PlainMesh& mMesh;
  const PlainMesh mInput;
  const double mTolerance;
  const bool mCompareAttributes;
  const double mUnit;
  std::map<Edge, std::vector<Corner>> mUses;
  std::vector<Point> mNormals;  // twice the area vectors
  std::vector<double> mAreas;
  std::set<std::uint32_t> mHoles, mTaken;
  // The current region.
  std::uint32_t mSeed = 0;
  std::set<std::uint32_t> mRegion;
  bool mIsSound = true;
  Loop mOuter;
  std::vector<Loop> mInner;
  // The result.
  std::map<std::uint32_t, std::uint32_t> mSurvivors;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> mNewHoles;
  std::map<std::uint32_t, util::MaterialPair> mMaterials;
  bool mMaterialChanged = false;
};

}  // namespace

std::uint64_t removeEdgesCoplanar(PlainMesh& mesh, double toleranceDegrees, bool compareAttributes, double unit) {
  return PlainCoplanar(mesh, toleranceDegrees, compareAttributes, unit).run();
}

}  // namespace support
