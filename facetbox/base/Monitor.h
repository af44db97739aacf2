#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include <facetbox/base/OwnLink.h>

namespace util {

/// Tells somebody how far an operation is, and gives them the occasion to stop it.
///
/// An operation is divided into parts, these into further parts; within a part, work is counted in units of its own.
/// Whoever does work for very long says so with tick(), which costs a few instructions. What is not divided stands
/// still meanwhile, but the callback is called all the same.
class Monitor {
 public:
  /// Gets the part that is done, 0 to 1, never less than before. What it throws ends the operation, which leaves the
  /// mesh in no order: fit to be destroyed or assigned, nothing else.
  using Callback = std::function<void(double fraction)>;

  explicit Monitor(Callback callback) : mCallback(std::move(callback)) {}

  /// Begins an operation, and calls back with 0.
  void start();
  /// Ends it, and calls back with 1.
  void finish();

  /// Counts work. Calls back where the last call was more than 20 ms ago; the clock is looked at each kBatch units. So
  /// a unit should take no more than a microsecond.
  void tick(std::uint64_t work = 1) {
    mDone += work;
    if (mDone >= mNextLook) look();
  }

  /// A part of the part that is current when it is made, which is current again afterwards. None where `monitor` is
  /// null.
  class Part {
   public:
    /// @param begin, end  in the current part, 0 to 1
    /// @param total       the work that is going to be counted; 0: none, or in parts of this one
    Part(Monitor* monitor, double begin, double end, std::uint64_t total = 0);
    ~Part();
    Part(const Part&) = delete;
    Part& operator=(const Part&) = delete;

   private:
    Monitor* const mMonitor;
    double mBegin = 0.0, mEnd = 0.0;
    std::uint64_t mDone = 0, mTotal = 0;
  };

  /// Calls `body(begin, end)` for blocks of consecutive numbers below `count`, which together make the current part; in
  /// one go where `monitor` is null.
  template <class Body>
  static void inBlocks(Monitor* monitor, std::size_t count, Body body) {
    if (!monitor) {
      body(std::size_t{0}, count);
      return;
    }
    const Part part(monitor, 0.0, 1.0, count);
    for (std::size_t begin = 0; begin < count;) {
      const std::size_t end = begin + std::min(kBatch, count - begin);
      body(begin, end);
      monitor->tick(end - begin);
      begin = end;
    }
  }

 private:
  static constexpr std::size_t kBatch = 4096;

  void look();

  Callback mCallback;
  std::int64_t mLastCall = 0;  ///< nanoseconds of the steady clock
  double mReported = 0.0;
  double mBegin = 0.0, mEnd = 1.0;      ///< the current part, of the whole
  std::uint64_t mDone = 0, mTotal = 0;  ///< of it
  std::uint64_t mNextLook = 0;
};

/// A mesh's monitor, or null.
using MonitorLink = OwnLink<Monitor>;

}  // namespace util
