#include <algorithm>
#include <atomic>
#include <barrier>
#include <memory>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <facetbox/picker/Picker.h>
#include <tests/support/Meshes.h>
#include <tests/support/Scenes.h>

namespace {

using support::pick;
using support::picked;
using support::rayPicked;
using support::shifted;
using Ids = std::vector<std::uint32_t>;

constexpr int kProducers = 4, kPickers = 2, kRounds = 60;

/// One step of a producer: it adds an object to its handle, moves all of them, or goes on with a new handle. Objects
/// get the ids 0, 1 and so on.
struct Step {
  enum Kind { kAdd, kRelocate, kStartAnew } mKind;
  std::uint32_t mId;
  float mShift;
};

std::vector<Step> stepsOf(unsigned seed) {
  std::mt19937 random(seed);
  std::vector<Step> steps;
  for (std::uint32_t id = 0; id < kRounds; ++id) {
    steps.push_back({Step::kAdd, id, static_cast<float>(pick(random, -9, 9))});
    if (pick(random, 0, 7) == 0) steps.push_back({Step::kRelocate, 0, static_cast<float>(pick(random, -1, 1))});
    if (id == kRounds / 2) steps.push_back({Step::kStartAnew, 0, 0});
  }
  return steps;
}

void carryOut(Picker& picker, std::atomic<std::size_t>& handle, const Step& step, const util::Mesh& mesh) {
  switch (step.mKind) {
    case Step::kAdd:
      picker.addEntry(handle, step.mId, {&mesh}, shifted(step.mShift, 0, 0).data());
      break;
    case Step::kRelocate:
      picker.relocate(handle, step.mShift, 0, 0);
      break;
    case Step::kStartAnew:
      // The old set stays: others may be asking about it.
      handle = picker.createHandle();
      break;
  }
}

TEST(PickerConcurrency, queriesSeePrefixesAndTheEndIsThatOfASerialRun) {
  const std::unique_ptr<Picker> picker(Picker::createPicker()), serial(Picker::createPicker());
  const support::SceneMeshes meshes;
  const support::View view = support::viewOf(support::ortho(500));
  std::array<std::atomic<std::size_t>, kProducers> handles;
  for (auto& handle : handles) handle = picker->createHandle();
  std::barrier start(kProducers + kPickers);
  std::atomic<int> running = kProducers;
  std::vector<std::jthread> threads;
  for (unsigned p = 0; p < kProducers; ++p)
    threads.emplace_back([&, p] {
      start.arrive_and_wait();
      for (const Step& step : stepsOf(p)) {
        carryOut(*picker, handles[p], step, meshes.cube());
        // A short-lived handle with a mesh of its own, so that the cache is pruned while others use it.
        const util::Mesh own = support::meshOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1, 2}});
        const std::size_t brief = picker->createHandle();
        picker->addEntry(brief, 1, {&own, &meshes.cube()}, shifted(0, 0, 0).data());
        picker->dispose(brief);
        EXPECT_LE(picker->getPendingCommandCount(), 9u * kProducers * kRounds);
      }
      --running;
    });
  for (unsigned t = 0; t < kPickers; ++t)
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      std::array<std::size_t, kProducers> lastHandle{}, lastCount{};
      while (running > 0)
        for (unsigned p = 0; p < kProducers; ++p) {
          const std::size_t handle = handles[p];
          Ids ids = picked(*picker, handle, view, t == 1);
          std::ranges::sort(ids);
          // The ids that this handle was given first, and never fewer than before.
          const std::uint32_t first = ids.empty() ? 0 : ids.front();
          EXPECT_TRUE(first == 0 || first == kRounds / 2 + 1) << first;
          for (std::size_t i = 0; i < ids.size(); ++i) EXPECT_EQ(ids[i], first + i);
          if (handle == lastHandle[p]) {
            EXPECT_GE(ids.size(), lastCount[p]);
          }
          lastHandle[p] = handle;
          lastCount[p] = ids.size();
          if (!ids.empty()) {
            // Relocations move it along x, and so along the ray.
            EXPECT_TRUE(
                rayPicked(*picker, handle, static_cast<std::int32_t>(first), {-900, 0.25f, 0.5f}, {1, 0, 0}).mHit);
          }
        }
    });
  threads.clear();

  for (unsigned p = 0; p < kProducers; ++p) {
    std::atomic<std::size_t> handle = serial->createHandle();
    for (const Step& step : stepsOf(p)) carryOut(*serial, handle, step, meshes.cube());
    for (const double size : {500.0, 4.0, 1.0}) {
      const support::View part = support::viewOf(support::ortho(size));
      const Ids expected = picked(*serial, handle, part, false);
      EXPECT_EQ(picked(*picker, handles[p], part, false), expected);
      EXPECT_EQ(size < 500 || expected.size() == kRounds - kRounds / 2 - 1, true);
    }
    for (std::int32_t id = -1; id <= kRounds; ++id)
      EXPECT_EQ(rayPicked(*picker, handles[p], id, {-900, 0.25f, 0.5f}, {1, 0, 0}),
                rayPicked(*serial, handle, id, {-900, 0.25f, 0.5f}, {1, 0, 0}));
  }
}

}  // namespace
