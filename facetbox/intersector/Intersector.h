#pragma once

#include <cstddef>
#include <cstdint>

#include <facetbox/util/Export.h>
#include <facetbox/util/Mesh.h>
#include <facetbox/util/Triangulator.h>

/// Tests one object at a time: whether a screen mask covers it, whether it lies in a view volume, which of its points
/// in a view volume is nearest, and where a ray first hits it.
///
/// A handle stands for an object. An object has any number of instances: each is a mesh with a matrix that places it in
/// the world. It may also have a box: a mesh around the instances, in world coordinates. Queries test the box first and
/// skip the instances when it settles the answer. Instances of one mesh share its triangles.
///
/// Changes (addEntry, setOABBox, relocate, dispose) are queued. The next query executes them in order before it
/// answers, so threads that describe the scene never wait for a query. They may make changes and call createHandle,
/// getPendingCommandCount and discardPendingCommands at any time and in parallel. Queries (testRaster,
/// intersectsFrustum, findNearestInFrustum, intersectsRay, applyPendingCommands) may come from any thread as well, but
/// run one after another. A query sees every change whose call returned before the query was called.
///
/// A handle is valid until its disposal has been executed. A call reads the handle only on entry, so a later disposal
/// does not disturb it. Calls with the handle 0 or a handle of another intersector do nothing and return false, if they
/// return anything. Queries return false for a handle without instances and box. Deleting the intersector releases
/// everything, without executing pending changes. No other call may run on it then, and no call may use its handles
/// afterwards.
///
/// Matrices are column-major: element (row r, column c) at [4 c + r], the translation at [12] to [14]. The matrices of
/// queries are view-projection matrices. They project a point (x, y, z) of the world to (x', y', z') / |w|, with
///   x' = m[0] x + m[4] y + m[8] z + m[12]  (y' and z' likewise)  and  w = m[3] x + m[7] y + m[11] z + m[15].
/// The point is visible if it lands in the cube from (-1, -1, -1) to (1, 1, 1); the near plane is at -1. The absolute
/// value of w is intended: points behind the eye are mirrored into view instead of rejected, so an object behind the
/// eye may count as visible. If you do not want that, exclude such objects by their position. Only
/// findNearestInFrustum() rejects them. A point with |w| not above 1e-25 has no projection; each query defines what it
/// uses instead.
///
/// Errors reach the caller as exceptions; any call may throw std::bad_alloc. When a query runs out of memory while it
/// executes changes, the changes after the one that failed stay queued.
///
/// The order of the virtual slots is part of the interface: the destructor, then the functions in the order below.
class FACETBOX_EXPORT Intersector {
 public:
  /// Creates an intersector without objects. The caller deletes it.
  static Intersector* createIntersector();
  /// Returns the intersector that created a handle. Unchecked: the handle must be valid.
  static Intersector* getAssociatedIntersector(std::size_t handle);

  virtual ~Intersector();

  /// Creates a handle for a new object. Queries see the object once it has an instance or a box.
  virtual std::size_t createHandle() = 0;

  /// Queues an instance of a mesh to be added to the object.
  ///
  /// A mesh of 16 or more vertices is triangulated once per intersector, by a triangulator of the intersector's own,
  /// and its instances share the triangles. If it changes after its first use, it keeps its first triangles for as long
  /// as an object uses it. A smaller mesh is placed first and then triangulated by `triangulator`, once per call.
  ///
  /// @param mesh          in its own coordinates; used only during the call
  /// @param transform     16 doubles: places the mesh in the world
  /// @param triangulator  used only during the call, by this thread alone
  /// @throws std::invalid_argument where the transform is null
  /// @throws std::runtime_error    from the triangulation: a face needs more than 512 combined vertices
  /// When it throws, nothing is queued. O(vertices + corners log corners), plus the triangulation; O(1) for a mesh of
  /// 16 or more vertices that is already known.
  virtual void addEntry(std::size_t handle, const util::Mesh& mesh, const double transform[16],
                        util::Triangulator& triangulator) = 0;

  /// Queues a box for the object; it replaces any earlier one. It need not be a box: any mesh around the instances will
  /// do, in world coordinates. Nothing checks that it encloses the instances; each query says what happens otherwise.
  ///
  /// @param box           used only during the call
  /// @param triangulator  used only during the call, by this thread alone
  /// @return true
  /// @throws like addEntry()
  virtual bool setOABBox(std::size_t handle, const util::Mesh& box, util::Triangulator& triangulator) = 0;

  /// Queues a move of the object and its box by (dx, dy, dz) in the world. Triangles that it shares with other objects
  /// stay in place. When executed, O(1) per instance of a mesh of 16 or more vertices, O(vertices) for the box and
  /// O(vertices + triangles log triangles) per other instance.
  /// @return true
  virtual bool relocate(std::size_t handle, double dx, double dy, double dz) = 0;

  /// Queues the release of the object, the triangles that no other object uses, and the handle.
  /// @return true
  virtual bool dispose(std::size_t handle) = 0;

  /// Tests whether the object covers only set cells of a raster. Every vertex of every instance must fall on a set cell
  /// and lie between the near and the far plane. Every cell on the line along every triangle edge must be set. The
  /// cells inside a triangle are not tested. An object without instances passes.
  ///
  /// A box can only reject: if all its vertices fall beyond the same side of the raster, or if it has none, the answer
  /// is no.
  ///
  /// In single precision, x' / |w| and y' / |w| are mapped from [-1, 1] to the viewport. The cell is the viewport pixel
  /// minus the offset, rounded to nearest with halves away from zero. Rows count from the top:
  ///   column = round(width * sx + x - offsetX),   row = round(height - (sy * height + y) - offsetY)
  /// with sx and sy in [0, 1]. A result beyond 32 bits takes the nearest 32-bit value, NaN the lowest one. A point
  /// without projection lies at the center of the view.
  ///
  /// A transform whose last row is not (0, 0, 0, 1) matters only for meshes of 16 or more vertices: positions are
  /// divided by its |w|, and a vertex that it cannot project takes the position of the previous one, the first vertex
  /// the origin. Smaller meshes, rays and nearest points use the first three rows only.
  ///
  /// @param matrix       16 floats, view-projection
  /// @param viewport     x, y, width, height, in pixels; may be empty or negative
  /// @param raster       rasterWidth times rasterHeight cells, row by row; a cell is set when it is not 0. Not read
  ///                     unless both are above 0
  /// @param offsetX, offsetY  the viewport pixel of the raster's first cell
  /// O(vertices + cells on the edges). An edge that triangles share is walked once, in the direction that it has in the
  /// first of them.
  virtual bool testRaster(std::size_t handle, const float matrix[16], const int viewport[4], const std::int32_t* raster,
                          int rasterWidth, int rasterHeight, int offsetX, int offsetY) = 0;

  /// Tests whether the object touches the view volume, or lies in it completely.
  ///
  /// contained false: whether a projected triangle of an instance touches the closed cube. A vertex without projection
  /// lies at the origin. If there is a box, one of its triangles must touch the cube first; there a vertex without
  /// projection keeps its world coordinates. So the answer is no for a box without triangles, and for a box that
  /// surrounds the whole view volume: set no box for an object that the camera can enter.
  ///
  /// contained true: whether all vertices of all instances project into the closed cube. A vertex without projection
  /// takes the position of the previous one, the first vertex the origin. A box decides first: the answer is yes if all
  /// its vertices project into the cube or it has none, and no if none of them does. Only when it has vertices both
  /// inside and outside are the instances tested. Without instances the answer is yes.
  ///
  /// @param matrix  16 floats, view-projection
  /// About O(log triangles) per instance for contained false, at most O(vertices + triangles).
  virtual bool intersectsFrustum(std::size_t handle, const float matrix[16], bool contained) = 0;

  /// Finds the object's nearest point in the view volume.
  ///
  /// If there is a box, one of its triangles must touch the volume, as in intersectsFrustum(). Each triangle that
  /// touches the volume as described there is clipped to the volume's planes and to w > 1e-25, so nothing behind the
  /// eye counts. Among the corners of the clipped triangles, the answer is the one with the least depth (P - eye) .
  /// direction. Of equal depths the earlier instance wins, then the earlier triangle, then the earlier corner, counted
  /// from the triangle's first.
  ///
  /// @param matrix     16 floats, view-projection
  /// @param eye        the point of depth 0; it need not be the camera's
  /// @param direction  of any length; depths are in units of its length
  /// @param point      the point, in the world
  /// @param corner0, corner1, corner2  corners of the triangle that it lies on, in the world, in the triangle's order
  /// @return whether there is one; if not, the four outputs are untouched
  /// About O(log triangles) per instance while few triangles are as near as the nearest.
  virtual bool findNearestInFrustum(std::size_t handle, const float matrix[16], const float eye[3],
                                    const float direction[3], float point[3], float corner0[3], float corner1[3],
                                    float corner2[3]) = 0;

  /// Finds the first hit of a ray on an instance. Both sides of a triangle can be hit. Of equal distances the earlier
  /// instance wins. The box is ignored.
  ///
  /// A triangle is skipped when its determinant lies between -1e-5 and 1e-5. The determinant is twice the triangle's
  /// area, times the length of the direction, times the cosine between direction and normal. The limit is absolute, so
  /// rays of unit length miss very small models. For such models, scale the direction up, for example by 1e6, and
  /// multiply `distance` by the same factor.
  ///
  /// @param direction  of any length but 0
  /// @param distance   in units of the direction's length
  /// @param normal     unit normal of the triangle in the world. It follows the winding and need not face the ray; may
  ///                   be null
  /// @return whether the ray hits; if not, both outputs are untouched
  /// About O(log triangles) per instance.
  virtual bool intersectsRay(std::size_t handle, const float origin[3], const float direction[3], float* distance,
                             float* normal) = 0;

  /// Returns the number of queued changes.
  virtual std::uint64_t getPendingCommandCount() = 0;

  /// Executes the queued changes now.
  virtual void applyPendingCommands() = 0;

  /// Drops the queued changes: they are neither executed nor released. The triangles of added meshes, shared ones
  /// included, stay in memory until the process ends. A handle whose disposal was among the changes stays valid.
  virtual void discardPendingCommands() = 0;

 protected:
  Intersector();
  Intersector(const Intersector&);             ///< copies nothing
  Intersector& operator=(const Intersector&);  ///< does nothing
};
