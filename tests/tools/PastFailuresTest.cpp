#include <map>
#include <string>

#include <tests/support/RecordCheck.h>
#include <tools/ModelReader.h>
#include <tools/Steps.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

/// Small models that once came out wrong. Each says in its first line what happened; here stands what is right.
TEST(PastFailures, aFlawInAFloorCostsWhatIsAtTheFlaw) {
  const std::map<std::string, int> facesLeft{{"floor_with_wall_on_inner_edge.obj", 4},
                                             {"tiny_floor_with_hole_near_rim.obj", 3},
                                             {"turned_floor_with_t_junction.obj", 2}};
  for (const auto& [name, count] : facesLeft) {
    SCOPED_TRACE(name);
    const auto objects = makeRecords(readModel(std::string(FACETBOX_TEST_DATA) + "/" + name));
    ASSERT_EQ(objects.size(), 1u);
    const RecordPtr result = runStep({StepKind::removeCoplanar, 0.01F}, objects[0].view());
    ASSERT_TRUE(result);
    EXPECT_EQ(support::findRecordProblem(*result), "");
    EXPECT_EQ(result->mCountCount, count);
  }
}

}  // namespace
}  // namespace tool
