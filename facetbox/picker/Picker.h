#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/util/Export.h>
#include <facetbox/util/Mesh.h>

/// Finds the objects of a scene of polygon meshes that lie in a view volume, and the first hit of a ray on an object.
///
/// Objects are kept in sets. A handle stands for a set. Within a set, an object is a list of meshes with a matrix,
/// under an id that the host chooses. Objects may share meshes.
///
/// Changes (addEntry, relocate, dispose) are queued. The next query executes them in order before it answers, so
/// threads that describe the scene never wait for a query. They may make changes and call createHandle,
/// getPendingCommandCount and discardPendingCommands at any time and in parallel. Queries (pickFrustum, pickRay,
/// applyPendingCommands) may come from any thread as well, but run one after another. A query sees every change whose
/// call returned before the query was called.
///
/// A handle is valid until its disposal has been executed. A call reads the handle only on entry, so a later disposal
/// does not disturb it. Calls with the handle 0 or a handle of another picker do nothing. Deleting the picker releases
/// everything, without executing pending changes. No other call may run on the picker then, and no call may use its
/// handles afterwards, whether you disposed of them or not.
///
/// World units are those of the matrices' results. Ids are 32 bits and come back as they were passed. Matrices are
/// column-major: element (row r, column c) at [4 c + r], the translation at [12] to [14].
///
/// Errors reach the caller as exceptions; any call may throw std::bad_alloc. When a query runs out of memory while it
/// executes changes, the changes that it has not executed yet stay queued.
///
/// The order of the virtual slots is part of the interface: the destructor, then the functions in the order below.
class FACETBOX_EXPORT Picker {
 public:
  /// Creates a picker without sets. The caller deletes it.
  static Picker* createPicker();
  /// Returns the picker that created a handle. Unchecked: the handle must be valid.
  static Picker* getAssociatedPicker(std::size_t handle);

  Picker();
  Picker(const Picker&);             ///< copies nothing
  Picker& operator=(const Picker&);  ///< does nothing
  virtual ~Picker();

  /// Creates an empty set and returns its handle.
  virtual std::size_t createHandle() = 0;

  /// Queues an object to be added. Meshes that this picker does not know yet are triangulated on the calling thread. A
  /// mesh that changes after its first use keeps its first triangles for as long as an object uses it.
  ///
  /// If the set already has the id, the new object takes it over: rays find the new object only. View volumes find both
  /// and report the id once for each.
  ///
  /// @param id      unique within the set, otherwise see above
  /// @param meshes  in their own coordinates; used only during the call; may be empty
  /// @param matrix  16 doubles: places the meshes in the world, without division by w
  /// @throws std::invalid_argument where a mesh or the matrix is null
  /// @throws std::runtime_error    from the triangulation: a face needs more than 512 combined vertices, or its hole
  ///                               group has no end or names a face that does not exist
  /// When it throws, nothing is queued. O(vertices), plus the triangulation.
  virtual void addEntry(std::size_t handle, std::uint32_t id, const std::vector<const util::Mesh*>& meshes,
                        const double matrix[16]) = 0;

  /// Queues a move of all objects of the set by (dx, dy, dz), in world units. O(objects) when executed.
  virtual void relocate(std::size_t handle, float dx, float dy, float dz) = 0;

  /// Queues the release of the set, its objects, the triangles that no other object uses, and the handle.
  virtual void dispose(std::size_t handle) = 0;

  /// Returns the number of queued changes.
  virtual std::uint64_t getPendingCommandCount() = 0;

  /// Releases the queued changes without executing them, and the triangles that no object uses after that. A handle
  /// whose disposal was among them stays valid.
  virtual void discardPendingCommands() = 0;

  /// Executes the queued changes now.
  virtual void applyPendingCommands() = 0;

  /// Finds the objects in a view volume. The ids are not sorted and may repeat; their order depends only on the calls
  /// made so far.
  ///
  /// An object must pass two tests. The first tests its world box against the volume of `corners`: the box's inscribed
  /// sphere lies in the volume, or the box shares a point with the volume's surface. The second tests the object itself
  /// with `matrix`: a vertex projects to (x, y, z) / |w|; for |w| not above 1e-25 see `wholeInside`. An object without
  /// vertices lies in no volume.
  ///
  /// @param corners      x, y, z of the volume's eight corners in the world: 0 to 3 along the near face,
  ///                     counter-clockwise seen from outside, corner k + 4 behind corner k on the far face. In any
  ///                     other order, objects deep inside are missed. facetbox::viewVolumeCorners() computes them.
  /// @param matrix       16 floats, the view-projection matrix
  /// @param wholeInside  true: all vertices must project into the closed cube from -1 to 1; a vertex without projection
  ///                     takes the position of the previous one. false: a projected triangle must touch the cube; a
  ///                     vertex without projection lies at the origin
  /// @param ids          room for `capacity` ids; may be null when `capacity` is 0
  /// @return number of ids written; if there are more than `capacity`, the negative of their number, and `ids` is
  ///         untouched
  /// An object that reaches to infinity, or beyond 1e300, may be missed; all others are still found. NaN in corners or
  /// matrix makes tests fail but causes no error. About O(objects found + objects at the surface).
  virtual std::int64_t pickFrustum(std::size_t handle, const float corners[24], const float matrix[16],
                                   bool wholeInside, std::uint32_t* ids, std::size_t capacity) = 0;

  /// Finds the first hit of a ray on the object `id`. Both sides of a triangle can be hit.
  ///
  /// A triangle is skipped when its determinant lies between -1e-5 and 1e-5. The determinant is twice the triangle's
  /// area, times the length of the direction, times the cosine between direction and normal. The limit is absolute, so
  /// rays of unit length miss very small models. For such models, scale the direction up, for example by 1e6, and
  /// multiply `distance` by the same factor.
  ///
  /// @param direction  of any length but 0
  /// @param distance   in units of the direction's length; FLT_MAX where the ray misses the object
  /// @param normal     unit normal of the triangle in the world. It follows the winding and need not face the ray;
  ///                   (0, 0, 0) where the ray misses; may be null
  /// @return whether the ray hits. If the set has no such object: false, and both outputs are untouched
  /// About O(log triangles) per mesh.
  virtual bool pickRay(std::size_t handle, std::int32_t id, const float origin[3], const float direction[3],
                       float* distance, float* normal) = 0;
};
