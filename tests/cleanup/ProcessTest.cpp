#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <fstream>

#include <tests/cleanup/AllOperations.h>

// What a clean-up call does to its process. Each test runs in a process of its own, started anew.
namespace {

using namespace support;

bool cleansUp() {
  Record record = busyRecord();
  for (const Operation& operation : kOperations) {
    const Result result(operation.mRun(record.view()));
    if (!result || texturesOf(*result)[1] != "two\xC3\xA9") return false;
  }
  return true;
}

/// Children inherit what the calls of their parent have made, and leave like any program does.
[[noreturn]] void cleanUpAndHaveChildren(int count) {
  constexpr unsigned kPatience = 20;  // seconds, should an end hang
  alarm(kPatience);
  bool isFine = cleansUp();
  for (int i = 0; i < count; ++i)
    if (fork() == 0) {
      alarm(kPatience);
      std::exit(i % 2 == 0 || cleansUp() ? 0 : 1);
    }
  for (int status = 0; wait(&status) > 0;) isFine &= WIFEXITED(status) && WEXITSTATUS(status) == 0;
  std::exit(isFine && cleansUp() ? 0 : 1);
}

/// With no room for a file, no way to open one, and no memory that other processes could share.
[[noreturn]] void cleanUpWithoutFiles() {
  constexpr std::array kLimited{RLIMIT_NOFILE, RLIMIT_FSIZE};
  std::array<rlimit, kLimited.size()> limits{};
  for (std::size_t i = 0; i < kLimited.size(); ++i) {
    getrlimit(kLimited[i], &limits[i]);
    const rlimit none{0, limits[i].rlim_max};
    setrlimit(kLimited[i], &none);
  }
  const bool isFine = cleansUp();
  for (std::size_t i = 0; i < kLimited.size(); ++i) setrlimit(kLimited[i], &limits[i]);
  std::ifstream maps("/proc/self/maps");
  std::string range, access, line;
  bool sharesMemory = false;
  while (maps >> range >> access && std::getline(maps, line)) sharesMemory |= access.back() == 's';
  std::exit(isFine && !range.empty() && !sharesMemory ? 0 : 1);
}

TEST(CleanupProcessDeathTest, endsWellHoweverManyChildrenHaveEnded) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const int children : {1, 3}) EXPECT_EXIT(cleanUpAndHaveChildren(children), testing::ExitedWithCode(0), "");
}

TEST(CleanupProcessDeathTest, needsNoFileAndSharesNoMemory) {
#if defined(FACETBOX_SANITIZED)
  GTEST_SKIP() << "a sanitizer opens files of its own";
#endif
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(cleanUpWithoutFiles(), testing::ExitedWithCode(0), "");
}

}  // namespace
