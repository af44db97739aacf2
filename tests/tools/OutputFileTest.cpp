#include <sys/stat.h>

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

}  // namespace
}  // namespace tool
