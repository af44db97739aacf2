#include <tools/Progress.h>

#include <cstdio>

#include <fmt/format.h>
#include <unistd.h>

namespace tool {

Progress::Progress() {
  if (isatty(STDERR_FILENO)) mThread = std::thread(&Progress::run, this);
}

Progress::~Progress() {
  {
    const std::lock_guard lock(mMutex);
    mIsDone = true;
  }
  mWake.notify_one();
  if (mThread.joinable()) mThread.join();
  clearLine();
}

void Progress::setStage(std::string stage) {
  const std::lock_guard lock(mMutex);
  mStage = std::move(stage);
}

void Progress::clearLine() {
  const std::lock_guard lock(mMutex);
  if (mLineShown) std::fputs("\r\033[K", stderr);
  mLineShown = false;
}

void Progress::run() {
  std::unique_lock lock(mMutex);
  auto wait = std::chrono::milliseconds(1000);
  while (!mWake.wait_for(lock, wait, [this] { return mIsDone; })) {
    wait = std::chrono::milliseconds(200);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - mStart;
    std::fputs(fmt::format("\r\033[K{} ... {:.1f} s", mStage, elapsed.count()).c_str(), stderr);
    std::fflush(stderr);
    mLineShown = true;
  }
}

}  // namespace tool
