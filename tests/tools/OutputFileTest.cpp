#include <csignal>
#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

#include "ToolTestSupport.h"

namespace tool {
namespace {

using testing::UnorderedElementsAre;

TEST(OutputFile, failureLeavesNothingBehindAndTheOldFileAsItWas) {
  const TestFolder folder;
  folder.write("out.obj", "old");
  std::string text;
  for (int i = 0; i < 200; ++i) text += kTetrahedron;
  const std::string model = folder.write("in.obj", text);
  // Files may not grow beyond a block: the report fits, the model does not.
  const RunResult run =
      runProgram("clean " + quoted(model) + " -o " + quoted(folder.path("out.obj")), "trap '' XFSZ; ulimit -f 2; ");
  EXPECT_THAT(run.mErr, HasSubstr("out.obj: cannot be written: File too large"));
  EXPECT_EQ(run.mExitCode, kExitFailure);
  EXPECT_EQ(readText(folder.path("out.obj")), "old");
  EXPECT_THAT(folder.files(), UnorderedElementsAre("in.obj", "out.obj"));
}

TEST(OutputFile, aSignalLeavesNothingBehind) {
  const TestFolder folder;
  std::string text;
  for (int i = 0; i < 40000; ++i) text += kTetrahedron;
  const std::string model = folder.write("in.obj", text);
  const pid_t child = fork();
  if (child == 0) {
    if (!std::freopen("/dev/null", "w", stdout) || !std::freopen("/dev/null", "w", stderr)) _exit(1);
    execl(FACETBOX_PROGRAM, "facetbox", "clean", model.c_str(), "-o", folder.path("out.obj").c_str(), nullptr);
    _exit(1);
  }
  // The file that is being written has a name of its own.
  while (folder.files().size() == 1 && waitpid(child, nullptr, WNOHANG) == 0) usleep(100);
  EXPECT_EQ(kill(child, SIGTERM), 0) << "it was done before it could be stopped";
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_THAT(folder.files(), ElementsAre("in.obj"));
}

}  // namespace
}  // namespace tool
