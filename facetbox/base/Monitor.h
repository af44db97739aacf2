#pragma once

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

  /// @param pause  nanoseconds that pass between two calls at least
  explicit Monitor(Callback callback, std::int64_t pause = 20'000'000)
      : mCallback(std::move(callback)), mPause(pause) {}

  /// Begins an operation, and calls back with 0.
  void start();
  /// Ends it, and calls back with 1.
  void finish();

  /// Counts work. Calls back where the last call is longer ago than the pause; the clock is looked at each kBatch
  /// units. So a unit should take no more than a microsecond.
  void tick(std::uint64_t work = 1) {
    mDone += work;
    if (mDone >= mNextLook) look();
  }

  /// Calls back where the last call is longer ago than the pause: for between two pieces of work of a millisecond or
  /// more.
  void look();

  /// A part of the part that is current when it is made, which is current again afterwards. None where `monitor` is
  /// null. Making one looks at the clock.
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

  /// Loops over the numbers below `count` in blocks, which together make the current part; one block where `monitor` is
  /// null:
  ///
  ///     for (Monitor::Blocks blocks(monitor, count); blocks.next();)
  ///       for (std::uint32_t i = blocks.begin(), end = blocks.end(); i < end; ++i) ...
  class Blocks {
   public:
    Blocks(Monitor* monitor, std::size_t count);

    /// Goes to the next block; false behind the last.
    bool next() {
      if (mEnd == mCount) return false;
      advance();
      return true;
    }
    std::uint32_t begin() const { return mBegin; }
    std::uint32_t end() const { return mEnd; }

   private:
    void advance();

    Monitor* const mMonitor;
    const Part mPart;
    const std::uint32_t mCount;
    std::uint32_t mBegin = 0, mEnd = 0;
  };

 private:
  static constexpr std::size_t kBatch = 4096;

  const Callback mCallback;
  const std::int64_t mPause;
  std::int64_t mLastCall = 0;  ///< nanoseconds of the steady clock
  double mReported = 0.0;
  double mBegin = 0.0, mEnd = 1.0;      ///< the current part, of the whole
  std::uint64_t mDone = 0, mTotal = 0;  ///< of it
  std::uint64_t mNextLook = 0;
};

/// A mesh's monitor, or null.
using MonitorLink = OwnLink<Monitor>;

}  // namespace util
