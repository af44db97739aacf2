// Orientation through the front door.

#include <facetbox/clean.h>
#include <facetbox/operations/PieceMeasure.h>

#include <tests/support/Meshes.h>
#include <tests/support/PolyMeshes.h>

namespace {

using namespace support;
using facetbox::kNone;
using facetbox::PolyMesh;

const std::vector<facetbox::Step> kConform = {facetbox::ConformNormals{}};
constexpr double kPi = 3.14159265358979;

struct Surfaces {
  std::vector<Vec3> points;
  Faces faces;
  std::map<std::uint32_t, std::uint32_t> outerOf;  ///< by hole

  std::uint32_t vertex(const Vec3& p) {
    points.push_back(p);
    return static_cast<std::uint32_t>(points.size() - 1);
  }
  /// A square that looks up.
  Indices square(double x, double y, double size, double z) {
    return {vertex({x, y, z}), vertex({x + size, y, z}), vertex({x + size, y + size, z}), vertex({x, y + size, z})};
  }
  /// That look outward.
  void addWalls(const Indices& low, const Indices& high) {
    for (const std::size_t i : {0, 1, 2, 3}) faces.push_back({low[i], low[(i + 1) % 4], high[(i + 1) % 4], high[i]});
  }
  PolyMesh mesh() const {
    PolyMesh mesh = polyMeshOf(points, faces);
    std::map<std::uint32_t, Indices> groups;
    for (const auto& [hole, outer] : outerOf) groups[outer].push_back(hole);
    for (const auto& [outer, holes] : groups) {
      mesh.holes.push_back(outer);
      mesh.holes.insert(mesh.holes.end(), holes.begin(), holes.end());
      mesh.holes.push_back(kNone);
    }
    return mesh;
  }
  Surfaces turned(const std::set<std::uint32_t>& which) const {
    Surfaces result = *this;
    for (const std::uint32_t f : which) {
      std::reverse(result.faces[f].begin(), result.faces[f].begin() + 2);
      std::reverse(result.faces[f].begin() + 2, result.faces[f].end());
    }
    return result;
  }
  std::set<std::uint32_t> all() const {
    std::set<std::uint32_t> numbers;
    for (std::uint32_t f = 0; f < faces.size(); ++f) numbers.insert(f);
    return numbers;
  }
};

/// The faces that the step turns. Fails where it does anything else, and where a second run turns something.
std::set<std::uint32_t> turnedBy(const Surfaces& given) {
  const facetbox::Cleaned once = clean(given.mesh(), kConform);
  EXPECT_TRUE(once.droppedHoles.empty());
  std::set<std::uint32_t> turned;
  std::size_t first = 0;
  for (std::uint32_t f = 0; f < given.faces.size(); first += given.faces[f++].size())
    if (!std::equal(given.faces[f].begin(), given.faces[f].end(), &once.mesh.indices[first])) turned.insert(f);
  EXPECT_TRUE(once.mesh == given.turned(turned).mesh());
  const facetbox::Cleaned twice = clean(once.mesh, kConform);
  EXPECT_EQ(twice.steps[0].facesTurned, 0u);
  EXPECT_TRUE(twice.mesh == once.mesh);
  return turned;
}

/// The slow twin.
class Twin {
 public:
  explicit Twin(const Surfaces& surfaces) : mSurfaces(surfaces) {
    for (std::uint32_t f = 0; f < surfaces.faces.size(); ++f) {
      mPieces.push_back(f);
      mSigns.push_back(1);
    }
    for (const auto& [hole, outer] : surfaces.outerOf) join(hole, outer, 1);
    collectUses();
    for (const auto& [edge, uses] : mUses)
      if (uses.size() == 2 && surfaceOf(uses[0].face) != surfaceOf(uses[1].face))
        join(uses[0].face, uses[1].face, -uses[0].direction * uses[1].direction);
  }

  std::set<std::uint32_t> turned() {
    std::set<std::uint32_t> result;
    for (std::uint32_t lowest = 0; lowest < mPieces.size(); ++lowest) {
      Indices faces;
      for (std::uint32_t f = 0; f < mPieces.size(); ++f)
        if (mPieces[f] == lowest) faces.push_back(f);
      if (std::ranges::all_of(faces, [&](auto f) { return surfaceOf(f) == surfaceOf(lowest); })) continue;
      const int outward = outwardSign(faces);
      for (const std::uint32_t f : faces)
        if (mSigns[f] != outward) result.insert(f);
    }
    return result;
  }
  /// Whether some piece was so close to a limit that rounding or the choice of formula decides.
  bool isUnsure() const { return mIsUnsure; }
  std::size_t closedCount = 0, clearCount = 0, unclearCount = 0;

 private:
  struct Use {
    std::uint32_t face;
    int direction;
  };

  std::uint32_t surfaceOf(std::uint32_t f) const {
    const auto found = mSurfaces.outerOf.find(f);
    return found == mSurfaces.outerOf.end() ? f : found->second;
  }
  const Vec3& at(std::uint32_t vertex) const { return mSurfaces.points[vertex]; }
  /// Triangles around the mean of the corners.
  std::vector<std::array<Vec3, 3>> trianglesOf(std::uint32_t f) const {
    Vec3 mean{0, 0, 0};
    for (const std::uint32_t v : mSurfaces.faces[f])
      mean = mean + at(v) / static_cast<double>(mSurfaces.faces[f].size());
    std::vector<std::array<Vec3, 3>> triangles;
    for (const auto& [a, b] : edgesOf(mSurfaces.faces[f])) triangles.push_back({mean, at(a), at(b)});
    return triangles;
  }
  static Vec3 areaOf(const std::array<Vec3, 3>& t) { return 0.5 * cross(t[1] - t[0], t[2] - t[0]); }
  Vec3 areaOf(std::uint32_t f) const {
    Vec3 sum{0, 0, 0};
    for (const auto& triangle : trianglesOf(f)) sum = sum + areaOf(triangle);
    return sum;
  }
  /// 1, or -1 for a hole that is wound like its face.
  int rimSign(std::uint32_t f) const { return surfaceOf(f) != f && dot(areaOf(f), areaOf(surfaceOf(f))) > 0 ? -1 : 1; }

  void collectUses() {
    for (std::uint32_t f = 0; f < mSurfaces.faces.size(); ++f)
      for (const auto& [a, b] : edgesOf(mSurfaces.faces[f]))
        if (a != b) mUses[std::minmax(a, b)].push_back({f, (a < b ? 1 : -1) * rimSign(f)});
  }
  /// Lets two pieces become one, in which these two faces are turned alike or not.
  void join(std::uint32_t a, std::uint32_t b, int relation) {
    const std::uint32_t low = std::min(mPieces[a], mPieces[b]), high = std::max(mPieces[a], mPieces[b]);
    if (low == high) return;
    const int factor = mSigns[a] * mSigns[b] * relation;
    for (std::uint32_t f = 0; f < mPieces.size(); ++f)
      if (mPieces[f] == high) {
        mPieces[f] = low;
        mSigns[f] *= factor;
      }
  }
  bool isClosed(std::uint32_t piece) const {
    return std::ranges::all_of(mUses, [&](const auto& uses) {
      int sum = 0;
      for (const Use& use : uses.second) sum += mPieces[use.face] == piece ? use.direction * mSigns[use.face] : 0;
      return sum == 0;
    });
  }
  int outwardSign(const Indices& faces) {
    double area = 0, majority = 0, square = 0, volume = 0;
    Vec3 moment{0, 0, 0}, vectorArea{0, 0, 0};
    for (const std::uint32_t f : faces) {
      const Vec3 n = areaOf(f);
      const double size = length(n) < 1e-11 ? 0 : length(n), part = surfaceOf(f) == f ? 1 : -1;
      area += part * size;
      majority += part * size * mSigns[f];
      vectorArea = vectorArea + mSigns[f] * rimSign(f) * n;
      for (const auto& [a, b, c] : trianglesOf(f)) {
        const double share = size > 0 ? part * dot(areaOf({a, b, c}), n) / size : 0;
        moment = moment + share * ((a + b + c) / 3);
        square += share * (lengthSq(a + b) + lengthSq(b + c) + lengthSq(c + a)) / 12;
      }
    }
    const Vec3 center = moment / area;
    for (const std::uint32_t f : faces)
      for (const auto& [a, b, c] : trianglesOf(f))
        volume += mSigns[f] * rimSign(f) * dot(a - center, cross(b - center, c - center)) / 6;
    const double radius = std::sqrt(std::max(0.0, square / area - lengthSq(center)));
    const double limit = radius * std::max(0.6 * length(vectorArea), 1e-5 * area) / 3;
    if (isClosed(mPieces[faces[0]])) {
      ++closedCount;
      if (std::fabs(volume) > 1e-11) return volume > 0 ? 1 : -1;
    } else {
      mIsUnsure = mIsUnsure || std::fabs(std::fabs(volume) - limit) < 0.02 * limit;
      ++(std::fabs(volume) > limit ? clearCount : unclearCount);
      if (std::fabs(volume) > limit) return volume > 0 ? 1 : -1;
    }
    // The lowest face has the sign 1.
    return majority >= -1e-9 * area ? 1 : -1;
  }

  const Surfaces& mSurfaces;
  Indices mPieces;
  std::vector<int> mSigns;  // beside the lowest face of the piece
  std::map<Edge, std::vector<Use>> mUses;
  bool mIsUnsure = false;
};

/// A block with shafts through it and pockets from above and below: the two large faces have holes. Some
/// walls may be missing.
Surfaces blockWithHoles(std::mt19937& random) {
  Surfaces block;
  const auto turn = [](Indices face) {
    std::ranges::reverse(face);
    return face;
  };
  const Indices bottom = block.square(0, 0, 9, 0), top = block.square(0, 0, 9, 3);
  block.faces = {turn(bottom), top};
  const bool isOpen = oneIn(random, 2);
  if (!isOpen) block.addWalls(bottom, top);
  for (int cell = 0; cell < 9; ++cell) {
    const int kind = pick(random, 0, 4);
    if (kind > 2) continue;
    const double x = 3 * (cell % 3) + 0.5, y = 3 * (cell / 3) + 1, size = pick(random, 2, 6) * 0.25;
    const Indices low = block.square(x, y, size, kind == 1 ? 1 : 0), high = block.square(x, y, size, kind == 2 ? 2 : 3);
    if (!isOpen || !oneIn(random, 3)) block.addWalls(high, low);
    for (const bool isTop : {false, true}) {
      const Indices& face = isTop ? high : low;
      if (kind == (isTop ? 2 : 1)) {  // the ground of a pocket
        block.faces.push_back(isTop ? turn(face) : face);
        continue;
      }
      block.outerOf[static_cast<std::uint32_t>(block.faces.size())] = isTop ? 1 : 0;
      block.faces.push_back(face);
    }
  }
  return block;
}

/// A band, a torus, a Moebius band or a Klein bottle, in squares or triangles.
Surfaces ring(std::mt19937& random) {
  const auto length = static_cast<std::uint32_t>(pick(random, 3, 12)),
             width = static_cast<std::uint32_t>(pick(random, 1, 5));
  const bool isTwisted = oneIn(random, 2), isTube = width > 2 && oneIn(random, 2);
  const std::uint32_t rows = isTube ? width : width + 1;
  Surfaces ring;
  for (std::uint32_t i = 0; i < length; ++i)
    for (std::uint32_t j = 0; j < rows; ++j) {
      const double around = 2 * kPi * i / length, across = isTube ? 2 * kPi * j / rows : around / 2;
      const double reach = isTube ? 1 : 1.0 * j / width - 0.5;
      const double r = 2 + reach * std::cos(across);
      ring.vertex({r * std::cos(around), r * std::sin(around), reach * std::sin(across)});
    }
  const auto number = [&](std::uint32_t i, std::uint32_t j) {
    j %= rows;
    return i < length ? i * rows + j : isTwisted ? (isTube ? rows - j : width - j) % rows : j;
  };
  for (std::uint32_t i = 0; i < length; ++i)
    for (std::uint32_t j = 0; j < width; ++j) {
      const Indices square{number(i, j), number(i + 1, j), number(i + 1, j + 1), number(i, j + 1)};
      if (oneIn(random, 2)) {
        ring.faces.push_back({square[0], square[1], square[2]});
        ring.faces.push_back({square[0], square[2], square[3]});
      } else {
        ring.faces.push_back(square);
      }
    }
  return ring;
}

/// Cubes with faces missing; triangles of any corners, some the same; or one of the above.
Surfaces anySurfaces(std::mt19937& random) {
  const int kind = pick(random, 0, 3);
  if (kind == 0) return blockWithHoles(random);
  if (kind == 1) return ring(random);
  Surfaces result;
  if (kind == 2) {
    std::set<std::array<int, 3>> cubes;
    for (int i = pick(random, 1, 8); i > 0; --i)
      cubes.insert({pick(random, 0, 2), pick(random, 0, 2), pick(random, 0, 1)});
    const Surface pile = surfaceOf(cubes, 1);
    result = {pile.mPoints, pile.mFaces, {}};
    const int rare = oneIn(random, 2) ? 1000 : 6;
    std::erase_if(result.faces, [&](const Indices&) { return oneIn(random, rare); });
  } else {
    for (std::uint32_t v = pick(random, 4, 12); v > 0; --v)
      result.vertex({1.0 * pick(random, 0, 9), 1.0 * pick(random, 0, 9), 1.0 * pick(random, 0, 9)});
    for (int f = pick(random, 2, 30); f > 0; --f)
      result.faces.push_back(randomIndices(random, 3, result.points.size()));
  }
  return result;
}

/// With further corners on some edges, so that the corners of a face tell little of its middle.
Surfaces withStraightCorners(Surfaces surfaces, std::mt19937& random) {
  std::map<Edge, std::uint32_t> middles;
  for (Indices& face : surfaces.faces) {
    Indices corners;
    for (const Edge& edge : edgesOf(face)) {
      corners.push_back(edge.first);
      const auto [a, b] = std::minmax(edge.first, edge.second);
      if (!middles.contains({a, b}))
        middles[{a, b}] = oneIn(random, 3)
                              ? surfaces.vertex(surfaces.points[a] + 0.25 * (surfaces.points[b] - surfaces.points[a]))
                              : kNone;
      if (middles[{a, b}] != kNone) corners.push_back(middles[{a, b}]);
    }
    face = corners;
  }
  return surfaces;
}

/// In another order, with other vertex numbers, faces turned now and then, off by a little.
Surfaces shuffled(const Surfaces& given, std::mt19937& random) {
  Surfaces result;
  std::vector<std::uint32_t> vertices(given.points.size()), faces(given.faces.size());
  std::iota(vertices.begin(), vertices.end(), 0u);
  std::iota(faces.begin(), faces.end(), 0u);
  if (oneIn(random, 2)) std::shuffle(vertices.begin(), vertices.end(), random);
  if (oneIn(random, 2)) std::shuffle(faces.begin(), faces.end(), random);
  const int often = pick(random, 1, 8);
  const double jitter = oneIn(random, 2) ? 0 : 1e-3;
  result.points.resize(given.points.size());
  result.faces.resize(given.faces.size());
  for (std::size_t v = 0; v < vertices.size(); ++v)
    result.points[vertices[v]] =
        given.points[v] + jitter * Vec3{pick(random, -9, 9) / 9.0, pick(random, -9, 9) / 9.0, 0};
  for (std::size_t f = 0; f < faces.size(); ++f) {
    Indices face = given.faces[f];
    for (std::uint32_t& v : face) v = vertices[v];
    std::rotate(face.begin(), face.begin() + below(random, face.size()), face.end());
    if (oneIn(random, often)) std::ranges::reverse(face);
    result.faces[faces[f]] = face;
  }
  for (const auto& [hole, outer] : given.outerOf) result.outerOf[faces[hole]] = faces[outer];
  return result;
}

/// Turned in space, any way.
Surfaces rotated(Surfaces surfaces, std::mt19937& random) {
  double q[4], square = 0;
  for (double& c : q) {
    c = pick(random, -999, 999) / 999.0 + 1e-4;
    square += c * c;
  }
  const Vec3 axis{q[0], q[1], q[2]};
  for (Vec3& p : surfaces.points) p = p + (2 / square) * (q[3] * cross(axis, p) + cross(axis, cross(axis, p)));
  return surfaces;
}

TEST(ConformSurfaces, equalsItsSlowTwinInAnyFrameAndASecondRunTurnsNothing) {
  std::size_t closed = 0, clear = 0, unclear = 0, unsure = 0, turnedCount = 0;
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const Surfaces plain = anySurfaces(random);
    const Surfaces surfaces = shuffled(oneIn(random, 2) ? plain : withStraightCorners(plain, random), random);
    Twin twin(surfaces);
    const std::set<std::uint32_t> expected = twin.turned();
    unsure += twin.isUnsure();
    if (twin.isUnsure()) continue;
    closed += twin.closedCount;
    clear += twin.clearCount;
    unclear += twin.unclearCount;
    turnedCount += expected.size();
    EXPECT_EQ(turnedBy(surfaces), expected);

    EXPECT_EQ(turnedBy(rotated(surfaces, random)), expected);
    Surfaces scaled = surfaces, mirrored = surfaces;
    const double unit = std::ldexp(1.0, pick(random, -300, 300));
    for (Vec3& p : scaled.points) p = {unit * p.y, unit * p.z, unit * p.x};
    EXPECT_EQ(turnedBy(scaled), expected);
    for (Vec3& p : mirrored.points) p.x = -p.x;
    EXPECT_EQ(turnedBy(mirrored), Twin(mirrored).turned());
  }
  EXPECT_LT(unsure, 60u);
  EXPECT_GT(std::min({closed, clear, unclear}), 800u);
  EXPECT_GT(turnedCount, 10000u);
}

TEST(ConformSurfaces, aSecondRunTurnsNothingWhateverTheFaces) {
  for (unsigned seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    Surfaces surfaces;
    // Few vertices: faces visit some again and again, and share edges in every way.
    for (int v = pick(random, 3, 12); v > 0; --v)
      surfaces.vertex({pick(random, -99, 99) / 7.0, pick(random, -99, 99) / 7.0, pick(random, -3, 3) * 1e-9});
    for (int f = pick(random, 2, 20); f > 0; --f)
      surfaces.faces.push_back(randomIndices(random, pick(random, 3, 8), surfaces.points.size()));
    turnedBy(surfaces);
  }
}

const Surfaces kCube = {{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}},
                        {{4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}, {3, 2, 1, 0}},
                        {}};

TEST(ConformSurfaces, anOpenPieceIsTurnedWhereItGoesAroundSomething) {
  Surfaces house = kCube;
  house.faces.pop_back();
  EXPECT_EQ(turnedBy(house.turned(house.all())), house.all());
  Surfaces tube = house;  // a long one
  tube.faces.erase(tube.faces.begin());
  for (std::size_t v = 4; v < 8; ++v) tube.points[v].z = 1000;
  EXPECT_EQ(turnedBy(tube.turned(tube.all())), tube.all());
  // A dish that opens upward looks upward: turned where it is deep.
  for (const double depth : {0.0, 0.1, 0.5, 0.8, 3.0}) {
    Surfaces dish;
    for (int i = 0; i < 16; ++i) dish.vertex({std::cos(i * kPi / 8), std::sin(i * kPi / 8), depth});
    const std::uint32_t ground = dish.vertex({0, 0, 0});
    for (std::uint32_t i = 0; i < 16; ++i) dish.faces.push_back({i, (i + 1) % 16, ground});
    EXPECT_EQ(turnedBy(dish), depth > 0.6 ? dish.all() : std::set<std::uint32_t>{}) << depth;
  }
}

// A frame that looks up and a lid on one of its sides that looks down: without the hole the frame would be larger.
TEST(ConformSurfaces, holesCountAgainstTheirFaces) {
  Surfaces frame;
  const Indices rim = frame.square(0, 0, 4, 0), hole = frame.square(0.25, 0.25, 3.5, 0);
  frame.faces = {rim, hole, {rim[2], rim[3], frame.vertex({0, 6, 0}), frame.vertex({4, 6, 0})}};
  frame.outerOf = {{1, 0}};
  EXPECT_EQ(turnedBy(frame), (std::set<std::uint32_t>{0, 1}));
}

}  // namespace
