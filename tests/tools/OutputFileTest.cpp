#include <tools/OutputFile.h>

#include <chrono>
#include <thread>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ToolTestSupport.h"

namespace tool {
namespace {

using testing::UnorderedElementsAre;

TEST(OutputFile, keepsModeAndLinkOfTheFileThatItReplaces) {
  const TestFolder folder;
  folder.write("real.obj", "old");
  chmod(folder.path("real.obj").c_str(), 0640);
  fs::create_symlink("real.obj", folder.path("link.obj"));
  writeFile(folder.path("link.obj"), "new");
  EXPECT_EQ(readText(folder.path("real.obj")), "new");
  EXPECT_TRUE(fs::is_symlink(folder.path("link.obj")));
  EXPECT_EQ(fs::status(folder.path("real.obj")).permissions(), fs::perms(0640));
  EXPECT_THAT(folder.files(), UnorderedElementsAre("real.obj", "link.obj"));
}

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

TEST(OutputFile, tellsWhyItCannotWrite) {
  const TestFolder folder;
  const std::pair<std::string, const char*> cases[] = {
      {folder.path("missing/out.obj"), "missing/out.obj: cannot be written: No such file"},
      {folder.path(""), "Is a directory"},
      {"/dev/full", "/dev/full: cannot be written: No space left"}};
  for (const auto& [path, message] : cases)
    EXPECT_THAT(([&name = path] { checkWritable(name), writeFile(name, "text"); }),
                testing::ThrowsMessage<RunError>(HasSubstr(message)));
  EXPECT_THAT(folder.files(), IsEmpty());
}

TEST(OutputFile, beingTerminatedWhileWritingLeavesNothingBehind) {
  const TestFolder folder;
  const std::string text(std::size_t{1} << 28, 'x');
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    writeFile(folder.path("out.obj"), text);
    _exit(0);
  }
  while (folder.files().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  kill(child, SIGTERM);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) {
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_THAT(folder.files(), IsEmpty());
  } else {  // it was done before the signal came
    EXPECT_THAT(folder.files(), ElementsAre("out.obj"));
  }
}

}  // namespace
}  // namespace tool
