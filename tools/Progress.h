#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tool {

/// Shows the current stage on standard error once the work takes longer than a second. Shows nothing if standard error
/// is not a terminal. The destructor clears the line.
class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// Sets what is being done from now on.
  void setStage(std::string stage);

  /// Clears the line, so that other output can follow.
  void clearLine();

 private:
  void run();

  const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
  std::mutex mMutex;  // guards all below but the thread
  std::condition_variable mWake;
  std::string mStage;
  bool mIsDone = false;
  bool mLineShown = false;
  std::thread mThread;  // runs only at a terminal
};

}  // namespace tool
