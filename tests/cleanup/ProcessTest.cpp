#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

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
  for (const auto resource : {RLIMIT_NOFILE, RLIMIT_FSIZE}) {
    rlimit limit{};
    getrlimit(resource, &limit);
    limit.rlim_cur = 0;
    setrlimit(resource, &limit);
  }
  const bool isFine = cleansUp();
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
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
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(cleanUpWithoutFiles(), testing::ExitedWithCode(0), "");
}

}  // namespace
