#include <facetbox/base/Monitor.h>

#include <chrono>

namespace util {
namespace {

constexpr std::int64_t kPause = 20'000'000;  // nanoseconds between two calls

std::int64_t now() { return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count(); }

}  // namespace

void Monitor::start() {
  mBegin = mReported = 0.0;
  mEnd = 1.0;
  mDone = mTotal = mNextLook = 0;
  mLastCall = now();
  mCallback(0.0);
}

void Monitor::finish() {
  mReported = 1.0;
  mCallback(1.0);
}

void Monitor::look() {
  mNextLook = mDone + kBatch;
  const std::int64_t time = now();
  if (time - mLastCall < kPause) return;
  mLastCall = time;
  const double done = mTotal == 0 ? 0.0 : std::min(1.0, static_cast<double>(mDone) / static_cast<double>(mTotal));
  mReported = std::max(mReported, mBegin + (mEnd - mBegin) * done);
  mCallback(mReported);
}

Monitor::Part::Part(Monitor* monitor, double begin, double end, std::uint64_t total) : mMonitor(monitor) {
  if (!monitor) return;
  mBegin = monitor->mBegin;
  mEnd = monitor->mEnd;
  mDone = monitor->mDone;
  mTotal = monitor->mTotal;
  const double size = mEnd - mBegin;
  monitor->mBegin = mBegin + size * begin;
  monitor->mEnd = mBegin + size * end;
  monitor->mTotal = total;
  monitor->mDone = 0;
  monitor->mNextLook = 0;
}

Monitor::Part::~Part() {
  if (!mMonitor) return;
  mMonitor->mBegin = mBegin;
  mMonitor->mEnd = mEnd;
  mMonitor->mDone = mDone;
  mMonitor->mTotal = mTotal;
  mMonitor->mNextLook = 0;
}

}  // namespace util
