#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include <boost/thread/condition_variable.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>

#if defined(__SANITIZE_ADDRESS__)
#define FACETBOX_LEAKS_ARE_SEARCHED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FACETBOX_LEAKS_ARE_SEARCHED
#endif
#endif
#if defined(FACETBOX_LEAKS_ARE_SEARCHED)
#include <sanitizer/lsan_interface.h>
#endif

namespace util {

/// What becomes of commands that are discarded.
enum class Discarded {
  released,   ///< destroyed without being executed
  abandoned,  ///< neither executed nor destroyed: what they hold stays held
};

/// Commands that wait to be executed, first in, first out.
///
/// Changes to a scene are queued rather than made, so that threads that describe it never wait for one that asks
/// about it. All functions may be called by several threads at once. The mutex is never held while a command executes
/// or is destroyed, and no other lock is taken under it.
template <class Command>
class CommandQueue {
 public:
  /// @param capacity  commands that may wait before push() does; 0 for any number
  explicit CommandQueue(std::size_t capacity = 0) : mCapacity(capacity) {}

  /// Appends a command; waits, without limit, while the queue is full. Allocates before it locks.
  void push(std::unique_ptr<Command> command) {
    Commands one;
    one.push_back(std::move(command));
    boost::unique_lock<boost::mutex> lock(mMutex);
    while (mCapacity != 0 && mCommands.size() >= mCapacity) mChanged.wait(lock);
    mCommands.splice(mCommands.end(), one);
    mCount.store(mCommands.size(), std::memory_order_release);
    mChanged.notify_all();
  }

  /// Number of commands that wait.
  std::uint64_t count() const {
    const boost::unique_lock<boost::mutex> lock(mMutex);
    return mCommands.size();
  }

  /// Takes all commands that wait and calls `execute(command)` for each in turn, destroying it right afterwards. One
  /// thread at a time.
  ///
  /// Where one throws, those behind it stay queued before whatever was pushed meanwhile, and the exception passes on.
  ///
  /// An empty queue costs one atomic read. That is enough: a push that the caller can know to be over, because it made
  /// it itself or synchronised with who did, is seen.
  template <class Execute>
  void drain(Execute execute) {
    if (mCount.load(std::memory_order_acquire) == 0) return;
    Commands batch = takeAll();
    const PutBack rest{*this, batch};
    while (!batch.empty()) {
      // Out of the batch before it runs: one that throws is not put back.
      const std::unique_ptr<Command> command = std::move(batch.front());
      batch.pop_front();
      execute(*command);
    }
  }

  /// Empties the queue without executing anything.
  void discard(Discarded fate) {
    Commands batch = takeAll();
    if (fate == Discarded::released) return;
    for (std::unique_ptr<Command>& command : batch) {
      const Command* const abandoned = command.release();
#if defined(FACETBOX_LEAKS_ARE_SEARCHED)
      __lsan_ignore_object(abandoned);  // on purpose
#else
      static_cast<void>(abandoned);
#endif
    }
  }

 private:
  // A list: moving any number of commands in or out at either end is a few assignments and cannot fail.
  using Commands = std::list<std::unique_ptr<Command>>;

  /// Returns what is left of a batch to the front of the queue.
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
    mChanged.notify_all();
    return batch;
  }

  mutable boost::mutex mMutex;
  boost::condition_variable mChanged;  // after every push, drain and discard
  const std::size_t mCapacity;
  Commands mCommands;                  // guarded by mMutex
  std::atomic<std::size_t> mCount{0};  // of mCommands; written under mMutex
};

}  // namespace util
