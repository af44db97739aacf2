#include <tools/Steps.h>

#include <limits>

#include "ToolTestSupport.h"

namespace tool {
namespace {

TEST(Steps, tolerancesAreFiniteNumbersFromZeroOn) {
  constexpr float kLargest = std::numeric_limits<float>::max();
  EXPECT_EQ(parseTolerance("0.01", "--x", kLargest), 0.01F);
  EXPECT_EQ(parseTolerance("+1e-3", "--x", kLargest), 1e-3F);
  EXPECT_EQ(parseTolerance("180", "--x", 180), 180);
  for (const char* bad : {"", "+", "nan", "inf", "-1", "1e99", "0,1", "1 ", " 1", "1m", "0x1", "+-1", "--"})
    EXPECT_THROW(parseTolerance(bad, "--x", kLargest), InputError) << bad;
  EXPECT_THROW(parseTolerance("180.1", "--x", 180), InputError);
}

TEST(Steps, presetDerivesAreaAndAngleFromTheLength) {
  const auto presetFor = [](float length, double diagonal) {
    return presetSteps({true, {StepKind::mergeVertices, length}}, diagonal);
  };
  const std::vector<Step> steps = presetFor(0.01F, 24);
  ASSERT_EQ(steps.size(), 7U);
  EXPECT_EQ(steps[2].mKind, StepKind::removeZeroArea);
  EXPECT_NEAR(steps[2].mValue, 1e-4, 1e-9);
  EXPECT_EQ(steps[5].mKind, StepKind::removeCoplanar);
  EXPECT_NEAR(steps[5].mValue, 0.2387, 1e-3);
  // Too short for the collapse of edges, which has an absolute limit; angles stay within their bounds.
  EXPECT_EQ(presetFor(1e-5F, 24).size(), 6U);
  EXPECT_EQ(presetFor(0, 0).back().mValue, 0.01F);
  EXPECT_EQ(presetFor(100, 1).back().mValue, 1);
}

}  // namespace
}  // namespace tool
