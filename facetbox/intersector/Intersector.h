#pragma once

#include <cstddef>
#include <cstdint>

#include <facetbox/util/Export.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>

/// Tells whether objects of polygon meshes are covered by a mask of the screen, lie in a view volume, and where a
/// volume or a ray first meets them. One object per question.
///
/// An object is known by a handle. It has any number of instances, each a mesh with a matrix that places it in the
/// world, and may have a box: a mesh around them, in the world, that answers for them where it can. Instances of one
/// mesh share its triangles.
///
/// Changes (addEntry, setOABBox, relocate, dispose) are queued, and executed in their order at the start of the next
/// query. So threads that describe the scene never wait for a query; they may call these, createHandle,
/// getPendingCommandCount and discardPendingCommands at any time and in parallel. Queries (testRaster,
/// intersectsFrustum, findNearestInFrustum, intersectsRay, applyPendingCommands) may be called by any thread as well,
/// and wait for each other. A query sees every change whose call was over before.
///
/// A handle's value is valid until its disposal has been executed; it is read only while a call that it is passed to
/// comes in. Calls with the handle 0 or one of another intersector do nothing; those that return a bool return false.
/// Queries return false for a handle that nothing has been added to. No call may use a handle after the intersector is
/// deleted. Deleting it releases everything, pending changes unexecuted. Nothing else may run on it then.
///
/// Matrices are column-major: element (row r, column c) at [4 c + r], a translation at [12] to [14]. The view matrices
/// of queries are view-projection matrices: a point (x, y, z) of the world goes to (x, y, z)' / |w| with
///   x' = m[0] x + m[4] y + m[8] z + m[12]  (y' and z' likewise)  and  w = m[3] x + m[7] y + m[11] z + m[15],
/// and is visible in the cube from (-1, -1, -1) to (1, 1, 1), near at -1. It is the absolute value of w on purpose:
/// points behind the eye are mirrored into view instead of rejected, so that an object behind the eye may well count as
/// visible. A host that does not want this leaves such objects out by their position. Only findNearestInFrustum()
/// rejects them. Where |w| is not above 1e-25 there is no projection; each query says what it takes instead.
///
/// Errors pass to the caller as exceptions; std::bad_alloc may come from every call. When a query runs out of memory
/// while it executes changes, those behind the one that failed stay queued.
///
/// The order of the virtual slots is part of the interface: the destructor, then the functions as they stand here.
class FACETBOX_EXPORT Intersector {
 public:
  /// A new intersector without objects; the caller deletes it.
  static Intersector* createIntersector();
  /// Who made a handle. Nothing is checked: the handle must be valid.
  static Intersector* getAssociatedIntersector(std::size_t handle);

  virtual ~Intersector();

  /// A handle for a new object. It exists for queries once something has been added to it or a box has been set.
  virtual std::size_t createHandle() = 0;

  /// Queues: adds an instance of a mesh to the object.
  ///
  /// A mesh of 16 vertices or more is triangulated when this intersector meets it first, by a triangulator of its own,
  /// and its instances share the triangles: a mesh that changes after its first use keeps its first triangles as long
  /// as an object has it. A smaller one is placed first and then triangulated by `triangulator`, once per call.
  ///
  /// @param mesh          in its own coordinates; only used during the call
  /// @param transform     16 doubles: places the mesh in the world
  /// @param triangulator  only used during the call, by this thread alone
  /// @throws std::invalid_argument where the transform is null
  /// @throws std::runtime_error    from the triangulation: a face needs more than 512 combined vertices
  /// Nothing is queued then. O(vertices + corners log corners), besides the triangulation; O(1) for a large mesh that
  /// is known.
  virtual void addEntry(std::size_t handle, const util::Mesh& mesh, const double transform[16],
                        util::Triangulator& triangulator) = 0;

  /// Queues: gives the object a box, in place of one that it may have. It need not be a box: any mesh around the
  /// instances serves, in world coordinates. Nothing is checked: what a wrong one brings, see the queries.
  ///
  /// @param box           only used during the call
  /// @param triangulator  only used during the call, by this thread alone
  /// @return true
  /// @throws as addEntry() does
  virtual bool setOABBox(std::size_t handle, const util::Mesh& box, util::Triangulator& triangulator) = 0;

  /// Queues: moves the object, its box included, by (dx, dy, dz) in the world. Triangles shared with other objects stay
  /// where they are. When executed, O(1) per instance of a mesh of 16 vertices and more,
  /// O(vertices) for the box, O(vertices + triangles log triangles) per other instance.
  /// @return true
  virtual bool relocate(std::size_t handle, double dx, double dy, double dz) = 0;

  /// Queues: releases the object, the triangles that no other object uses, and the handle.
  /// @return true
  virtual bool dispose(std::size_t handle) = 0;

  /// Whether the object shows on set cells of a raster only: every vertex of every instance does, between the near and
  /// the far plane, and every cell of the line between the ends of every triangle's edge is set. What lies between the
  /// edges of a triangle is not looked at. An object without instances passes.
  ///
  /// A box only rejects: where the cells of its vertices all lie beyond one side of the raster, or it has no vertices,
  /// the answer is no.
  ///
  /// In single precision, x' / |w| and y' / |w| are mapped from -1 and 1 to the edges of the viewport; the cell is the
  /// pixel less the offset, rounded to the nearest, halves away from zero. Rows count from the top:
  ///   column = round(width * sx + x - offsetX),   row = round(height - (sy * height + y) - offsetY)
  /// with sx, sy between 0 and 1. A result beyond 32 bits takes the nearest value that they hold, NaN the lowest. A
  /// point without projection is taken to lie in the middle of the view. (A transform with a perspective of its own
  /// divides by its |w| as well; a vertex that it does not project stays where the one before it went, the first at the
  /// world's origin. That holds from 16 vertices on; smaller meshes, and all rays and nearest points, take the first
  /// three rows as they are. Affine transforms make no difference.)
  ///
  /// @param matrix       16 floats, view-projection
  /// @param viewport     x, y, width, height, in pixels; may be empty or negative
  /// @param raster       rasterWidth times rasterHeight cells, row by row; a cell is set when it is not 0. Not read
  ///                     where one of the two is not above 0
  /// @param offsetX, offsetY  the viewport's pixel where the raster's first cell lies
  /// O(vertices + cells on the edges); an edge that triangles share is walked once, in the direction in which the first
  /// of them has it.
  virtual bool testRaster(std::size_t handle, const float matrix[16], const int viewport[4], const std::int32_t* raster,
                          int rasterWidth, int rasterHeight, int offsetX, int offsetY) = 0;

  /// Whether the object lies in the view volume, in part or as a whole.
  ///
  /// contained false: whether a triangle of an instance touches the closed cube, its corners projected (one without
  /// projection goes to the origin). First, however, a triangle of the box must touch it, where there is a box (here
  /// one without projection keeps its world coordinates). So a box that holds the whole view volume deep inside fails,
  /// like one without triangles. Do not set a box for an object that is viewed from within.
  ///
  /// contained true: whether all vertices of all instances project into the closed cube (one without projection goes
  /// where the one before it went, the first to the origin). A box decides first: where all its vertices do, or it has
  /// none, the answer is yes, where none does, no, and no instance is looked at. An object without instances lies in.
  ///
  /// @param matrix  16 floats, view-projection
  /// About O(log triangles) per instance for the first, at most O(vertices + triangles).
  virtual bool intersectsFrustum(std::size_t handle, const float matrix[16], bool contained) = 0;

  /// The object's nearest point in the view volume.
  ///
  /// With a box, a triangle of the box must touch the volume, as in intersectsFrustum(). Then each triangle that
  /// touches it as described there is cut off at the volume's planes, and before the eye (w > 1e-25): here nothing is
  /// mirrored. Of all corners of what is left, the one of the smallest depth (P - eye) . direction is the answer. Of
  /// equal depths that of the earlier instance counts, then that of the earlier triangle, then the earlier corner,
  /// beginning at the triangle's first.
  ///
  /// @param matrix     16 floats, view-projection
  /// @param eye        where depth is 0; not necessarily that of the matrix
  /// @param direction  of any length; depths are in units of its length
  /// @param point      the point, in the world
  /// @param corner0, corner1, corner2  corners of the triangle that it lies on, in the world, in the order of the
  /// triangle
  /// @return whether there is one; if not, the four outputs are untouched
  /// About O(log triangles) per instance while few triangles are as near as the nearest.
  virtual bool findNearestInFrustum(std::size_t handle, const float matrix[16], const float eye[3],
                                    const float direction[3], float point[3], float corner0[3], float corner1[3],
                                    float corner2[3]) = 0;

  /// Where a ray first hits an instance, both sides of its triangles counting; of equal distances the earlier instance
  /// counts. The box takes no part.
  ///
  /// Triangles of a determinant between -1e-5 and 1e-5 are passed over: it is the triangle's doubled area times the
  /// direction's length times the cosine between direction and normal. The limit is absolute, so that small models are
  /// not hit by rays of unit length. Scale the direction up for them, by 1e6, say, and `distance` back up by as much.
  ///
  /// @param direction  of any length but 0
  /// @param distance   in units of the direction's length
  /// @param normal     unit normal in the world of the triangle hit, by its winding, not towards the ray; may be null
  /// @return whether the ray hits; if not, both outputs are untouched
  /// About O(log triangles) per instance.
  virtual bool intersectsRay(std::size_t handle, const float origin[3], const float direction[3], float* distance,
                             float* normal) = 0;

  /// Number of changes that are queued.
  virtual std::uint64_t getPendingCommandCount() = 0;

  /// Executes the queued changes now.
  virtual void applyPendingCommands() = 0;

  /// Drops the queued changes: they are neither executed nor released. What they hold is given up, until the process
  /// ends: the triangles of meshes added, also those that are shared. A handle whose disposal is among them stays
  /// valid.
  virtual void discardPendingCommands() = 0;

 protected:
  Intersector();
  Intersector(const Intersector&);             ///< copies nothing
  Intersector& operator=(const Intersector&);  ///< does nothing
};
