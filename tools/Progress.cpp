#include <tools/Progress.h>

#include <cstdio>

#include <fmt/format.h>
#include <unistd.h>

namespace tool {
namespace {

double& timeOf(Seconds& seconds, Stage stage) {
  return stage == Stage::reading ? seconds.mReading : stage == Stage::writing ? seconds.mWriting : seconds.mWorking;
}

std::string sharesText(const Seconds& seconds) {
  const double total = seconds.total();
  std::string text;
  const auto add = [&](const char* name, double value) {
    if (value > 0 && value < total)
      text += fmt::format("{}{} {:.0f} %", text.empty() ? " (" : ", ", name, 100 * value / total);
  };
  add("reading", seconds.mReading);
  add("writing", seconds.mWriting);
  return text.empty() ? text : text + ")";
}

}  // namespace

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

void Progress::begin(Stage stage, std::string text) {
  const std::lock_guard lock(mMutex);
  const Clock::time_point now = Clock::now();
  mBefore = secondsUntil(now);
  mStageStart = now;
  mStage = stage;
  mText = std::move(text);
}

void Progress::setStage(std::string text) {
  const std::lock_guard lock(mMutex);
  mText = std::move(text);
}

Seconds Progress::seconds() {
  const std::lock_guard lock(mMutex);
  return secondsUntil(Clock::now());
}

Seconds Progress::secondsUntil(Clock::time_point now) const {
  Seconds seconds = mBefore;
  timeOf(seconds, mStage) += std::chrono::duration<double>(now - mStageStart).count();
  return seconds;
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
    const Seconds seconds = secondsUntil(Clock::now());
    std::fputs(fmt::format("\r\033[K{} ... {:.1f} s{}", mText, seconds.total(), sharesText(seconds)).c_str(), stderr);
    std::fflush(stderr);
    mLineShown = true;
  }
}

}  // namespace tool
