#include <tests/cleanup/AllOperations.h>
#include <tests/support/FailingMemory.h>

namespace {

using namespace support;

// Whichever allocation is the first to fail: std::bad_alloc comes out, nothing stays behind, and the next call works.
TEST(Cleanup, givesEverythingBackWhereMemoryEnds) {
  Record record = busyRecord();
  const Cleanup::MeshData data = record.view();
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.mName);
    const std::string expected = describe(*Result(operation.mRun(data)));
    long allocations = 0;
    for (bool succeeded = false; !succeeded; ++allocations) {
      const long before = gBlocksInUse;
      Result result;
      succeeded = succeedsWith(allocations, [&] { result.reset(operation.mRun(data)); });
      EXPECT_EQ(result != nullptr, succeeded);
      result.reset();
      ASSERT_EQ(gBlocksInUse, before) << allocations;
      result.reset(operation.mRun(data));
      ASSERT_EQ(describe(*result), expected) << allocations;
    }
    EXPECT_GT(allocations, 20);
  }
}

}  // namespace
