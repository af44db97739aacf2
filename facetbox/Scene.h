#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include <facetbox/Cancelled.h>
#include <facetbox/PolyMesh.h>
#include <facetbox/util/Export.h>

namespace facetbox {

/// An affine placement: (x, y, z) goes to rows[i][0] x + rows[i][1] y + rows[i][2] z + rows[i][3]. It may mirror, shear
/// and flatten.
struct Transform {
  double rows[3][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}};

  friend bool operator==(const Transform&, const Transform&) = default;
};

/// 4 x 4, column-major: element (row r, column c) at [4 c + r].
using Matrix = std::array<double, 16>;

/// An object of a scene. A scene numbers its objects from 0 on and gives no number twice; kNone is none.
using Id = std::uint32_t;

/// What each of n rays hits. `uv`, `normal` and `triangle` belong to the triangle that is hit, one of those that
/// triangulate() cuts the object's mesh into: with its corners A, B and C, the hit lies at A + u (B - A) + v (C - A).
struct Hits {
  std::vector<double> t;                ///< n: the hit lies at origin + t direction; infinity: there is none
  std::vector<Id> id;                   ///< n: the object; kNone without a hit
  std::vector<std::uint32_t> face;      ///< n: the face of the object's mesh; kNone without a hit
  std::vector<std::uint32_t> triangle;  ///< n: number in Triangulation::triangles; kNone without a hit
  std::vector<double> uv;      ///< 2 n: barycentric coordinates of the second and third corner; 0 without a hit
  std::vector<double> normal;  ///< 3 n: unit normal of the placed triangle, by its winding, so it need not face the
                               ///< ray; 0 without a hit

  friend bool operator==(const Hits&, const Hits&) = default;
};

/// One hit of a ray: as in Hits.
struct Hit {
  double t = std::numeric_limits<double>::infinity();
  Id id = kNone;
  std::uint32_t face = kNone, triangle = kNone;
  double uv[2] = {}, normal[3] = {};

  friend bool operator==(const Hit&, const Hit&) = default;
};

struct RayOptions {
  /// A bound per ray: what it hits beyond this t does not count. None: as far as doubles reach. A bound that is NaN or
  /// negative leaves no hit.
  std::span<const double> limits = {};
  /// How many threads work at most; 0, or more than the machine has: as many as that. The answers are the same.
  unsigned threads = 0;
  /// Asked on the thread of the call, at least every 0.1 s or so: true ends it with Cancelled.
  std::function<bool()> isCancelled = {};
};

/// Which objects a view selects.
enum class Select : std::uint8_t {
  touching,  ///< a triangle has a point in the view volume
  inside,    ///< all corners of all faces lie in it
  visible,   ///< a ray from the near plane to a corner, or to the middle of the largest triangle of a face, in the
             ///< volume, meets no other object before: an object of which only other parts are seen is not selected
};

/// The point of a scene's surface that is closest to a point.
struct Nearest {
  Id id = kNone;
  std::uint32_t face = kNone, triangle = kNone;  ///< as in Hits
  std::array<double, 3> point = {};
  double distance = 0;

  friend bool operator==(const Nearest&, const Nearest&) = default;
};

/// Objects that are asked about together: shared meshes, each placed by a transform, under a number.
///
/// Directions may have any length, meshes any size. There are no absolute limits: a scene that is scaled by a power of
/// two gives the same hits. Rays meet both sides of a triangle, and do not slip through between triangles that share an
/// edge. Of equally near hits that of the lowest id counts, within an object that of the earliest triangle.
///
/// A ray is taken into each object's own coordinates, by the inverse of its transform in doubles, and meets its
/// triangles there. (An object with a transform of which there is no good inverse, because it flattens, has a copy of
/// its mesh with placed corners instead: adding and moving it costs as much as a new mesh.) A triangle is hit where the
/// ray's projection, along its own direction, lies in the triangle or on its outline: three signs, exact for the
/// projected corners; after Woop, Benthin and Wald, Watertight Ray/Triangle Intersection, 2013. A triangle that the ray
/// sees edge-on is not hit. Answers have the same bits on any number of threads and any processor.
///
/// Any thread may call anything at any time. Changes (add, move, remove) are queued: they never wait for a query. The
/// next query executes them before it answers, once those that are running have ended; it sees each change whose call
/// returned before. Queries of several threads run side by side.
class FACETBOX_EXPORT Scene {
 public:
  Scene();
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  /// Adds an object, and returns its number. The mesh must not change as long as the scene has it; objects that share
  /// it share its triangles as well. The first time it is cut into triangles, on the calling thread. Faces without
  /// triangles (see triangulate()) are not there.
  /// @throws InvalidMesh            where validate() finds a fatal problem
  /// @throws std::invalid_argument  where the mesh is null, or a number of the transform is not finite, or places are
  ///                                beyond 1e150
  /// @throws std::length_error      where there would be 2^32 - 1 objects in the scene's life
  Id add(std::shared_ptr<const PolyMesh> mesh, const Transform& transform = {});
  /// Places an object anew. O(log objects) when executed, whatever its mesh. Nothing where it is removed already.
  /// @throws std::invalid_argument  as add(), and where the scene has never had this object
  void move(Id id, const Transform& transform);
  /// Removes an object. Nothing where it is removed already.
  /// @throws std::invalid_argument  where the scene has never had this object
  void remove(Id id);

  /// The number of objects.
  std::size_t size() const;
  /// The box around all objects, as min x, min y, min z, max x, max y, max z. It may be somewhat larger than needed:
  /// that of an object is made of the corners of its mesh's box. None where there are no triangles.
  std::optional<std::array<double, 6>> box() const;

  /// The nearest hits of n rays over all objects. A ray that is not finite, or whose direction is zero, hits nothing.
  /// @param origins, directions  3 n: x, y, z per ray; directions of any length
  /// @throws std::invalid_argument  where the sizes do not fit together
  /// @throws Cancelled              when options.isCancelled says so
  /// Rays that follow each other and run alike are fastest, as those of an image are, row by row. O(log triangles) a
  /// ray, mostly.
  Hits castRays(std::span<const double> origins, std::span<const double> directions,
                const RayOptions& options = {}) const;

  /// Whether each ray hits anything, from its origin to its bound: 1 or 0 per ray. As castRays(), and faster.
  std::vector<std::uint8_t> anyHit(std::span<const double> origins, std::span<const double> directions,
                                   const RayOptions& options = {}) const;

  /// All hits of a ray up to the bound, in the order of t, then id, then triangle. Where triangles share the edge or
  /// the corner that is hit, each is listed.
  /// @param origin, direction  x, y, z
  /// @param hits               receives as many as it has room for, the first ones
  /// @return how many hits there are
  /// @throws std::invalid_argument  where origin or direction does not have three numbers
  std::size_t allHits(std::span<const double> origin, std::span<const double> direction, std::span<Hit> hits,
                      double limit = std::numeric_limits<double>::infinity()) const;

  /// The objects in a view volume, ascending: of points that the matrix takes to (x, y, z, w), those with w > 0 and x,
  /// y and z from -w to w. Nothing where the matrix is not finite. Objects without triangles are in no volume.
  std::vector<Id> select(const Matrix& viewProjection, Select which) const;

  /// The closest points of the surface to m points: of equally near ones that of the lowest id, within an object that
  /// of the earliest triangle. None for a point that is not finite, and where there are no triangles.
  /// @param points  3 m: x, y, z per point
  /// @throws std::invalid_argument  where the size is no multiple of three
  std::vector<std::optional<Nearest>> nearest(std::span<const double> points) const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> mImplementation;
};

}  // namespace facetbox
