#include <facetbox/base/Monitor.h>

#include <algorithm>
#include <chrono>

namespace util {
namespace {

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
  if (time - mLastCall < mPause) return;
  mLastCall = time;
  const double done = mTotal == 0 ? 0.0 : std::min(1.0, static_cast<double>(mDone) / static_cast<double>(mTotal));
  mReported = std::max(mReported, mBegin + (mEnd - mBegin) * done);
  mCallback(mReported);
}

Monitor::Part::Part(Monitor* monitor, double begin, double end, std::uint64_t total) : mMonitor(monitor) {
  if (!monitor) return;
  monitor->look();
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

Monitor::Blocks::Blocks(Monitor* monitor, std::size_t count)
    : mMonitor(monitor), mPart(monitor, 0.0, 1.0, count), mCount(static_cast<std::uint32_t>(count)) {}

void Monitor::Blocks::advance() {
  if (mMonitor) mMonitor->tick(mEnd - mBegin);
  mBegin = mEnd;
  mEnd = mMonitor ? mBegin + std::min(static_cast<std::uint32_t>(kBatch), mCount - mBegin) : mCount;
}

}  // namespace util
