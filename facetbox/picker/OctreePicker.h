#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include <boost/thread/mutex.hpp>

#include <facetbox/base/ChunkedVector.h>
#include <facetbox/commands/CommandQueue.h>
#include <facetbox/commands/Handle.h>
#include <facetbox/picker/ObjectIds.h>
#include <facetbox/picker/Pickable.h>
#include <facetbox/picker/PickableSummaries.h>
#include <facetbox/picker/Picker.h>
#include <facetbox/spatial/BoxSet.h>
#include <facetbox/spatial/Frustum.h>
#include <facetbox/triangles/TriangleMeshCache.h>

namespace util {

/// The picker: per handle a set of objects, their boxes in the order of an octree.
///
/// Lock order: the tree mutex first, then the mutex of the queue, the handles or the cache, never two of these.
class OctreePicker final : public Picker {
 public:
  OctreePicker();
  ~OctreePicker() override;

  std::size_t createHandle() override;
  void addEntry(std::size_t handle, std::uint32_t id, const std::vector<const Mesh*>& meshes,
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
  // In OctreePickerCommands.h.
  class Command;
  class AddEntryCommand;
  class RelocateCommand;
  class DisposeCommand;

  using PickablePointer = std::unique_ptr<Pickable>;

  /// An object, and what its summary takes from it: pickables lie anywhere in memory.
  struct Object {
    PickablePointer pickable;
    double magnitude;
    std::uint32_t id;
    bool hasTriangles;
  };

  /// The objects of one handle, numbered in the order of their addition. Made when the first one is added.
  struct HandleRecord {
    BoxSet mBoxes{10.0};
    ChunkedVector<Object> mObjects;
    ObjectIds<Pickable> mById;
    std::unique_ptr<PickableSummaries> mSummaries;  // made once the boxes are ranked
  };

  /// Pickables lie anywhere in memory: fetch one that will be looked at soon.
  static void prefetch(const Pickable* pickable) {
    const char* bytes = reinterpret_cast<const char*>(pickable);
    for (std::size_t line = 0; line < sizeof(Pickable); line += 64) __builtin_prefetch(bytes + line);
  }
  static constexpr std::size_t kAhead = 8;  // objects

  std::uint64_t serialOf(std::size_t handle) const;
  void drain();
  HandleRecord* find(std::uint64_t serial);
  PickableSummaries& summariesOf(HandleRecord& record);
  static PickableSummary summarize(const HandleRecord& record, std::uint32_t number);
  static void prefetchAhead(const HandleRecord& record, const PickableSummaries& summaries,
                            std::span<const BoxSet::Candidate> candidates, std::size_t i);
  void findIds(HandleRecord& record, const Frustum& volume, const double viewProjection[16], bool wholeInside);

  HandleRegistry<Picker> mHandles;  // has its own mutex
  CommandQueue<Command> mQueue;     // has its own mutex
  TriangleMeshCache mCache;         // has its own mutexes

  boost::mutex mTreeMutex;  // guards all below, and every Pickable that has left the queue
  std::unordered_map<std::uint64_t, HandleRecord> mRecords;  // by serial number; up to date once the queue is drained
  bool mMeshesMayBeUnused = false;                           // since a handle was disposed of
  BoxSet::Scratch mScratch;
  PickableSummaries mNoSummaries;        // of sets that are not ranked
  std::vector<std::uint32_t> mFoundIds;  // scratch
};

}  // namespace util
