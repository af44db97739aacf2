#pragma once

#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

#include <facetbox/base/LeakMarks.h>

namespace util {

/// What becomes of commands that are discarded.
enum class Discarded {
  released,   ///< destroyed without being executed
  abandoned,  ///< neither executed nor destroyed: what they hold stays held
};

/// A first-in, first-out queue of commands.
///
/// Threads that change a scene queue the change and return: they never wait for a query. The queue has no capacity, so
/// nobody waits for room either, and there is no condition variable to notify.
///
/// Thread-safe. No command is executed or destroyed under the mutex, and no other lock is taken under it.
template <class Command>
class CommandQueue {
 public:
  /// Appends a command. Allocates before it locks.
  void push(std::unique_ptr<Command> command) {
    assert(command);
    Commands one;
    one.push_back(std::move(command));
    const boost::unique_lock<boost::mutex> lock(mMutex);
    mCommands.splice(mCommands.end(), one);
    mCount.store(mCommands.size(), std::memory_order_release);
  }

  /// The number of queued commands.
  std::uint64_t count() const {
    const boost::unique_lock<boost::mutex> lock(mMutex);
    return mCommands.size();
  }

  /// Takes all queued commands, and executes and destroys one after the other. One thread at a time.
  ///
  /// If a command throws, it is destroyed, the commands behind it go back to the front of the queue, and the exception
  /// passes on.
  ///
  /// An empty queue costs one atomic read, without the mutex. A push that happens before the call is seen.
  template <class Execute>
  void drain(Execute execute) {
    if (mCount.load(std::memory_order_acquire) == 0) return;
    Commands batch = takeAll();
    const PutBack rest{*this, batch};
    while (!batch.empty()) {
      // Leaves the batch before it runs, so that a command that throws is not put back.
      const std::unique_ptr<Command> command = std::move(batch.front());
      batch.pop_front();
      execute(*command);
    }
  }

  /// Empties the queue without executing anything.
  void discard(Discarded fate) {
    Commands batch = takeAll();
    if (fate == Discarded::released) return;
    for (std::unique_ptr<Command>& command : batch) markIntendedLeak(command.release());
  }

 private:
  // A list, because splicing a whole one is a few assignments and cannot throw.
  using Commands = std::list<std::unique_ptr<Command>>;

  /// On destruction, returns what is left of a batch to the front of the queue.
  struct PutBack {
    CommandQueue& mQueue;
    Commands& mBatch;

    ~PutBack() {
      if (mBatch.empty()) return;
      const boost::unique_lock<boost::mutex> lock(mQueue.mMutex);
      mQueue.mCommands.splice(mQueue.mCommands.begin(), mBatch);
      mQueue.mCount.store(mQueue.mCommands.size(), std::memory_order_release);
    }
  };

  Commands takeAll() {
    Commands batch;
    const boost::unique_lock<boost::mutex> lock(mMutex);
    batch.swap(mCommands);
    mCount.store(0, std::memory_order_release);
    return batch;
  }

  mutable boost::mutex mMutex;
  Commands mCommands;                  // guarded by mMutex
  std::atomic<std::size_t> mCount{0};  // size of mCommands: written under mMutex, read without it
};

}  // namespace util
