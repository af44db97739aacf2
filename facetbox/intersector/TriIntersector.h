#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include <boost/thread/mutex.hpp>

#include <facetbox/commands/CommandQueue.h>
#include <facetbox/commands/Handle.h>
#include <facetbox/intersector/Entry.h>
#include <facetbox/intersector/EntryQueries.h>
#include <facetbox/intersector/Intersector.h>
#include <facetbox/triangles/TriangleMeshCache.h>

namespace util {

/// The intersector: a table of entries, one per handle, on triangles.
///
/// Locks: the query mutex first, then one of the queue's, the handles' or the cache's, never two of these.
class TriIntersector final : public Intersector {
 public:
  TriIntersector();
  ~TriIntersector() override;

  std::size_t createHandle() override;
  void addEntry(std::size_t handle, const Mesh& mesh, const double transform[16], Triangulator& triangulator) override;
  bool setOABBox(std::size_t handle, const Mesh& box, Triangulator& triangulator) override;
  bool relocate(std::size_t handle, double dx, double dy, double dz) override;
  bool dispose(std::size_t handle) override;
  bool testRaster(std::size_t handle, const float matrix[16], const int viewport[4], const std::int32_t* raster,
                  int rasterWidth, int rasterHeight, int offsetX, int offsetY) override;
  bool intersectsFrustum(std::size_t handle, const float matrix[16], bool contained) override;
  bool findNearestInFrustum(std::size_t handle, const float matrix[16], const float eye[3], const float direction[3],
                            float point[3], float corner0[3], float corner1[3], float corner2[3]) override;
  bool intersectsRay(std::size_t handle, const float origin[3], const float direction[3], float* distance,
                     float* normal) override;
  std::uint64_t getPendingCommandCount() override;
  void applyPendingCommands() override;
  void discardPendingCommands() override;

 private:
  class Command;
  class AddEntryCommand;
  class AddPretransEntryCommand;
  class SetOABBoxCommand;
  class RelocateCommand;
  class DisposeCommand;

  /// Reads a handle: its id, or 0, which none has, where it is no handle of ours.
  std::uint64_t idOf(std::size_t handle) const;
  void processCommands();
  template <class Test>
  bool query(std::size_t handle, Test test);

  HandleRegistry<Intersector> mHandles;  // guards itself
  boost::mutex mQueryMutex;              // taken before all others
  CommandQueue<Command> mQueue;          // guards itself
  TriangleMeshCache mCache;              // guards itself

  // Guarded by mQueryMutex; stale until the queue is drained.
  std::unordered_map<std::uint64_t, Entry> mEntries;  // by id
  bool mMeshesMayBeUnused = false;                    // since something was disposed of
  QueryScratch mScratch;
};

}  // namespace util
