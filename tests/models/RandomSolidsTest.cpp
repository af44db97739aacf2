#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include <facetbox/check.h>
#include "CleanFaults.h"
#include "RandomSolid.h"

namespace {

using namespace facetbox;

TEST(RandomSolids, comeOutClosedWithTheVolumeThatTheyHave) {
  std::size_t merged = 0, holes = 0;
  for (unsigned seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const double jitter = seed % 3 == 0 ? 0 : seed % 3 == 1 ? 1e-7 : 1e-4;
    const support::RandomSolid solid = support::randomSolid(random, jitter);
    const double tolerance = 1e-3 * solid.unit, diagonal = support::diagonalOf(solid.mesh);
    const std::vector<Step> steps = allSteps(tolerance, diagonal);
    const Cleaned once = clean(solid.mesh, steps);
    EXPECT_EQ(support::countOpenEdges(once.mesh), 0u);
    EXPECT_TRUE(support::isBalanced(once.mesh));
    const double slack = 10 * jitter + 1e-9;
    EXPECT_NEAR(support::volumeOf(once.mesh) / solid.volume, 1, 3 * slack);
    EXPECT_NEAR(support::areaOf(once.mesh) / solid.area, 1, slack);
    EXPECT_TRUE(clean(once.mesh, steps).mesh == once.mesh) << "a second run changes something";
    for (const std::string& fault : support::faultsOfChain(solid.mesh, once, 4 * tolerance)) ADD_FAILURE() << fault;
    for (const std::string& fault : support::faultsOfTriangles(once.mesh)) ADD_FAILURE() << fault;
    merged += solid.mesh.counts.size() - once.mesh.counts.size();
    holes += once.mesh.holes.size();
  }
  EXPECT_GT(merged, 10000u);
  EXPECT_GT(holes, 100u);
}

}  // namespace
