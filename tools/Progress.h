#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace tool {

/// Where the time goes.
enum class Stage { reading, working, writing };

struct Seconds {
  double mReading = 0, mWorking = 0, mWriting = 0;
  double total() const { return mReading + mWorking + mWriting; }
};

/// Shows what is being done on standard error once the work takes longer than a second, and what shares of the time
/// reading and writing have. Shows nothing if standard error is not a terminal. The destructor clears the line.
class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// From now on the time counts for that stage. Before the first call, it counts as work.
  void begin(Stage stage, std::string text);

  /// Sets what is being done from now on.
  void setStage(std::string text);

  /// The time of each stage until now.
  Seconds seconds();

  /// Clears the line, so that other output can follow.
  void clearLine();

 private:
  using Clock = std::chrono::steady_clock;

  void run();
  Seconds secondsUntil(Clock::time_point now) const;

  std::mutex mMutex;  // guards all below but the thread
  std::condition_variable mWake;
  Clock::time_point mStageStart = Clock::now();
  Stage mStage = Stage::working;
  Seconds mBefore;  // of the stages that have ended
  std::string mText;
  bool mIsDone = false;
  bool mLineShown = false;
  std::thread mThread;  // runs only at a terminal
};

}  // namespace tool
