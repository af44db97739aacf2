#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include <boost/thread/mutex.hpp>

#include <facetbox/base/ChunkedVector.h>
#include <facetbox/commands/CommandQueue.h>
#include <facetbox/commands/Handle.h>
#include <facetbox/math/Box.h>
#include <facetbox/math/Vec3.h>
#include <facetbox/picker/ObjectIds.h>
#include <facetbox/picker/Picker.h>
#include <facetbox/spatial/BoxSet.h>
#include <facetbox/triangles/RayTest.h>
#include <facetbox/triangles/TriangleMeshCache.h>

/// The picker: per handle a set of boxes with an object each.
///
/// Locks: the tree mutex first, then either the queue's, the handles' or the cache's, never two of these.
class OctreePicker final : public Picker {
 public:
  OctreePicker();
  ~OctreePicker() override;

  std::size_t createHandle() override;
  void addEntry(std::size_t handle, std::uint32_t id, const std::vector<const util::Mesh*>& meshes,
                const double matrix[16]) override;
  void relocate(std::size_t handle, float dx, float dy, float dz) override;
  void dispose(std::size_t handle) override;
  std::uint64_t getPendingCommandCount() override;
  void discardPendingCommands() override;
  void applyPendingCommands() override;
  std::int64_t pickFrustum(std::size_t handle, const float corners[24], const float matrix[16], bool wholeInside,
                           std::uint32_t* ids, std::size_t capacity) override;
  bool pickRay(std::size_t handle, std::int32_t id, const float origin[3], const float direction[3], float* distance,
               float* normal) override;

 private:
  class Command;
  class AddEntryCommand;
  class RelocateCommand;
  class DisposeCommand;

  class ClipPlanes;

  /// One object.
  struct Pickable {
    /// Measures the meshes, and returns the box around them in the world. O(vertices).
    util::Box measure();
    /// Moves the object, and returns the box around it in the world: the very one that measure() would, mostly without
    /// looking at the vertices.
    util::Box move(const util::Vec3& offset);
    bool isInsideClipVolume(const double viewProjection[16], const ClipPlanes* planes, bool wholeInside) const;

    double mMatrix[16];
    util::Box mUntranslated;  // of all vertices by the matrix, before its translation is added
    double mReach;            // the most that a coordinate's terms add up to without the translation; infinite where
                              // the object's clip side cannot be told from its world box
    std::int32_t mId;
    bool mHasTriangles = false;
    bool mIsSmall = true;    // all meshes have few vertices, so that no bounds are worth a look
    bool mIsFinite = true;   // whether all numbers that went into these boxes are
    bool mWasAsked = false;  // by a ray, since the last change
    util::Box mLocalBox;     // of all vertices; empty on all axes where one of them is not finite
    std::vector<std::shared_ptr<util::TriangleMesh>> mMeshes;
    std::vector<util::RayTransform> mPlacements;  // one per mesh, made by the second ray after a change
  };
  using PickablePointer = std::unique_ptr<Pickable>;

  /// Made when something is added. Objects are numbered as they come.
  struct HandleRecord {
    util::BoxSet mBoxes{10.0};
    util::ChunkedVector<PickablePointer> mObjects;
    ObjectIds<Pickable> mById;
  };

  /// Reads a handle: its serial number, or 0, which none has, where it is no handle of ours.
  std::uint64_t serialOf(std::size_t handle) const;
  void drain();
  HandleRecord* find(std::uint64_t serial);

  util::HandleRegistry<Picker> mHandles;  // guards itself
  boost::mutex mTreeMutex;                // taken before all others
  util::CommandQueue<Command> mQueue;     // guards itself
  util::TriangleMeshCache mCache;         // guards itself

  // Guarded by mTreeMutex, and so is every Pickable that has left the queue; stale until the queue is drained.
  std::unordered_map<std::uint64_t, HandleRecord> mRecords;  // by serial number
  bool mMeshesMayBeUnused = false;                           // since something was disposed of
  util::BoxSet::Scratch mScratch;
  std::vector<std::uint32_t> mFoundIds;  // scratch
};
