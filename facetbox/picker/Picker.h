#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <facetbox/util/Export.h>
#include <facetbox/util/Mesh.h>

/// Tells which objects of a scene of polygon meshes lie in a view volume, and where a ray first hits one of them.
///
/// Objects are kept in sets; a set is known by a handle. Within a set, an object is a list of meshes with a matrix, and
/// has an id that the host chooses. Two objects may share meshes.
///
/// Changes (addEntry, relocate, dispose) are queued, and executed in their order at the start of the next query. So
/// threads that describe the scene never wait for a query; they may call these, createHandle, getPendingCommandCount
/// and discardPendingCommands at any time and in parallel. Queries (pickFrustum, pickRay, applyPendingCommands) may be
/// called by any thread as well, and wait for each other. A query sees every change whose call was over before.
///
/// A handle's value is valid until its disposal has been executed; it is read only while a call that it is passed to
/// comes in. Calls with the handle 0 or one of another picker do nothing. Dispose of every handle before the picker is
/// deleted or not: no call may use it afterwards. Deleting the picker releases everything, pending changes unexecuted.
/// Nothing else may run on the picker then.
///
/// World units are those of the matrices' results. Ids come back as they were passed, in 32 bits. Matrices are
/// column-major: element (row r, column c) at [4 c + r], a translation at [12] to [14].
///
/// Errors pass to the caller as exceptions; std::bad_alloc may come from every call. When a query runs out of memory
/// while it executes changes, those not executed yet stay queued.
///
/// The order of the virtual slots is part of the interface: the destructor, then the functions as they stand here.
class FACETBOX_EXPORT Picker {
 public:
  /// A new picker without sets; the caller deletes it.
  static Picker* createPicker();
  /// Who made a handle. Nothing is checked: the handle must be valid.
  static Picker* getAssociatedPicker(std::size_t handle);

  Picker();
  Picker(const Picker&);             ///< copies nothing
  Picker& operator=(const Picker&);  ///< does nothing
  virtual ~Picker();

  /// A handle for a new, empty set.
  virtual std::size_t createHandle() = 0;

  /// Queues: adds an object. Triangulates those of its meshes that this picker does not know yet, on the calling
  /// thread; a mesh that changes after its first use keeps its first triangles as long as an object has it.
  ///
  /// An id that the set has already is given to the new object: rays find the new one. View volumes find both, and
  /// report the id for each.
  ///
  /// @param id      unique within the set, else see above
  /// @param meshes  in their own coordinates; only used during the call; may be empty
  /// @param matrix  16 doubles: places the meshes in the world, without division by w
  /// @throws std::invalid_argument where a mesh or the matrix is null
  /// @throws std::runtime_error    from the triangulation: a face needs more than 512 combined vertices, or its hole
  ///                               group has no end or names a face that does not exist
  /// Nothing is queued then. O(vertices), besides the triangulation.
  virtual void addEntry(std::size_t handle, std::uint32_t id, const std::vector<const util::Mesh*>& meshes,
                        const double matrix[16]) = 0;

  /// Queues: moves all objects of the set by (dx, dy, dz), in world units. O(objects) when executed.
  virtual void relocate(std::size_t handle, float dx, float dy, float dz) = 0;

  /// Queues: releases the set, its objects, the triangles that no other object uses, and the handle.
  virtual void dispose(std::size_t handle) = 0;

  /// Number of changes that are queued.
  virtual std::uint64_t getPendingCommandCount() = 0;

  /// Releases the queued changes without executing them, and the triangles that no object uses then. A handle whose
  /// disposal is among them stays valid.
  virtual void discardPendingCommands() = 0;

  /// Executes the queued changes now.
  virtual void applyPendingCommands() = 0;

  /// Ids of the objects in a view volume, neither sorted nor free of repetition; the order depends on nothing but the
  /// calls so far.
  ///
  /// Two stages, and an object must pass both. First its world box must meet the volume of `corners`: the box's inner
  /// sphere lies within, or the box shares a point with the volume's surface. Then the object itself is put to
  /// `matrix`: a vertex projects to (x, y, z) / |w|; where |w| is not above 1e-25, see below. An object without
  /// vertices is in no volume.
  ///
  /// @param corners      x, y, z of the volume's eight corners in the world: 0 to 3 along the near face,
  ///                     counter-clockwise seen from outside, corner k + 4 behind corner k on the far face. The order
  ///                     matters: in another, objects deep inside are missed. facetbox::viewVolumeCorners() builds
  ///                     them.
  /// @param matrix       16 floats, the view-projection matrix
  /// @param wholeInside  true: all vertices project into the closed cube from -1 to 1 (one without a |w| stays
  ///                     where the one before it went); false: a projected triangle touches it (a vertex without a |w|
  ///                     goes to the origin)
  /// @param ids          room for `capacity` ids; may be null for 0
  /// @return number of ids written; or, where there are more than `capacity`, the negative of their number, and
  ///         `ids` is untouched
  /// An object that reaches to infinity, or beyond 1e300, may be missed; the others are found all the same.
  /// NaN in corners or matrix makes tests fail, never the call. About O(objects found + objects at the surface).
  virtual std::int64_t pickFrustum(std::size_t handle, const float corners[24], const float matrix[16],
                                   bool wholeInside, std::uint32_t* ids, std::size_t capacity) = 0;

  /// Where a ray first hits the object `id`, both sides of its triangles counting.
  ///
  /// Triangles of a determinant between -1e-5 and 1e-5 are passed over: it is the triangle's doubled area times the
  /// direction's length times the cosine between direction and normal. The limit is absolute, so that small models are
  /// not hit by rays of unit length. Scale the direction up for them, by 1e6, say, and multiply `distance` by as much.
  ///
  /// @param direction  of any length but 0
  /// @param distance   in units of the direction's length; FLT_MAX where the ray misses the object
  /// @param normal     unit normal in the world of the triangle hit, by its winding, not towards the ray; (0, 0, 0)
  ///                   where the ray misses; may be null
  /// @return whether the ray hits. Where the set has no such object, false, and both outputs are untouched.
  /// About O(log triangles) per mesh.
  virtual bool pickRay(std::size_t handle, std::int32_t id, const float origin[3], const float direction[3],
                       float* distance, float* normal) = 0;
};
