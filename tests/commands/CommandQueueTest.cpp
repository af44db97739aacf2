#include <facetbox/commands/CommandQueue.h>

#include <memory>
#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;

/// Counts those alive.
struct Counted {
  Counted(int number, int& alive) : mNumber(number), mAlive(alive) { ++mAlive; }
  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;
  ~Counted() { --mAlive; }

  int mNumber;
  int& mAlive;
};

TEST(CommandQueue, aThrowingCommandLeavesThoseBehindItBeforeLaterOnes) {
  int alive = 0;
  util::CommandQueue<Counted> queue;
  const auto push = [&](int number) { queue.push(std::make_unique<Counted>(number, alive)); };
  for (int i = 0; i < 5; ++i) push(i);
  std::vector<int> executed;
  const auto execute = [&](const Counted& command) {
    executed.push_back(command.mNumber);
    if (command.mNumber == 2 && executed.size() == 3) {
      push(9);
      throw std::runtime_error("2");
    }
  };
  EXPECT_THROW(queue.drain(execute), std::runtime_error);
  EXPECT_EQ(queue.count(), 3u);
  EXPECT_EQ(alive, 3);
  queue.drain(execute);
  EXPECT_THAT(executed, ElementsAre(0, 1, 2, 3, 4, 9));
  EXPECT_EQ(alive, 0);
}

TEST(CommandQueue, discardingReleasesOrAbandonsAndTheEndReleases) {
  int alive = 0;
  {
    util::CommandQueue<Counted> queue;
    queue.push(std::make_unique<Counted>(1, alive));
    queue.discard(util::Discarded::released);
    EXPECT_EQ(alive, 0);
    queue.push(std::make_unique<Counted>(2, alive));
    queue.discard(util::Discarded::abandoned);
    EXPECT_EQ(queue.count(), 0u);
    EXPECT_EQ(alive, 1);
    queue.push(std::make_unique<Counted>(3, alive));
  }
  EXPECT_EQ(alive, 1);
}

TEST(CommandQueueConcurrency, keepsTheOrderOfEachProducer) {
  constexpr int kProducers = 3, kEach = 300;
  util::CommandQueue<int> queue;
  std::vector<std::jthread> producers;
  for (int p = 0; p < kProducers; ++p)
    producers.emplace_back([&queue, p] {
      for (int i = 0; i < kEach; ++i) queue.push(std::make_unique<int>(p * kEach + i));
    });
  std::vector<std::vector<int>> seen(kProducers);
  for (int total = 0; total < kProducers * kEach; std::this_thread::yield())
    queue.drain([&](int command) {
      seen[static_cast<std::size_t>(command / kEach)].push_back(command % kEach);
      ++total;
    });
  std::vector<int> all(kEach);
  std::iota(all.begin(), all.end(), 0);
  EXPECT_THAT(seen, testing::Each(all));
  EXPECT_EQ(queue.count(), 0u);
}

}  // namespace
