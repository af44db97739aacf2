#include <map>
#include <string>

#include <facetbox/clean.h>
#include "ToolTestSupport.h"

namespace tool {
namespace {

/// Small models that once came out wrong. Each says in its first line what happened; here stands what is right.
TEST(PastFailures, aFlawInAFloorCostsWhatIsAtTheFlaw) {
  const std::map<std::string, std::size_t> facesLeft{{"floor_with_wall_on_inner_edge.obj", 4},
                                                     {"tiny_floor_with_hole_near_rim.obj", 3},
                                                     {"turned_floor_with_t_junction.obj", 2}};
  for (const auto& [name, count] : facesLeft) {
    SCOPED_TRACE(name);
    const Model model = facetbox::readModel(std::string(FACETBOX_TEST_DATA) + "/" + name);
    const facetbox::Step step = facetbox::MergeCoplanar{0.01};
    facetbox::PolyMesh mesh = model.objects.at(0).mesh;
    for (double& c : mesh.points) c = static_cast<float>(c);  // what is a flaw depends on this rounding
    const facetbox::PolyMesh merged = facetbox::clean(mesh, {&step, 1}).mesh;
    EXPECT_TRUE(facetbox::validate(merged).empty());
    EXPECT_EQ(merged.counts.size(), count);
  }
}

}  // namespace
}  // namespace tool
