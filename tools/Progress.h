#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tool {

/// Tells on standard error what is going on, once that takes longer than a second; says nothing where standard error is
/// no terminal. The line is wiped when the object goes.
class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  /// What is being done from now on.
  void setStage(std::string stage);

  /// Wipes the line, so that other output can follow.
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
