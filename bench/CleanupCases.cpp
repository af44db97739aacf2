#include "CleanupCases.h"
#include "CraftedWorkloads.h"

#include <algorithm>
#include <stdexcept>

namespace {

using Data = Cleanup::MeshData;

const Data* weld(const Data& data) { return Cleanup::mergeVertices(kWeldTolerance, data); }
const Data* doubles(const Data& data) { return Cleanup::removeFacesDouble(false, data); }
const Data* doublesWithAttributes(const Data& data) { return Cleanup::removeFacesDouble(true, data); }
const Data* orient(const Data& data) { return Cleanup::conformNormals(data); }
const Data* coplanar(const Data& data) { return Cleanup::removeEdgesCoplanar(kAngleTolerance, false, data); }
const Data* coplanarWithAttributes(const Data& data) {
  return Cleanup::removeEdgesCoplanar(kAngleTolerance, true, data);
}
const Data* colinear(const Data& data) { return Cleanup::removeVerticesColinear(kAngleTolerance, false, data); }
const Data* colinearWithTexture(const Data& data) {
  return Cleanup::removeVerticesColinear(kAngleTolerance, true, data);
}
const Data* zeroFaces(const Data& data) { return Cleanup::removeFacesZero(kAreaThreshold, data); }
const Data* zeroEdges(const Data& data) { return Cleanup::removeEdgesZero(kLengthThreshold, data); }

constexpr auto kSequential = FaceOrder::sequential;
constexpr auto kShuffled = FaceOrder::shuffled;

template <class Make, class... Args>
auto with(Make make, Args... args) {
  return [=](std::size_t corners) { return make(corners, args...); };
}

std::vector<CleanupCase> normalCases() {
  return {
      {"mergeVertices/soup/sphere", with(soupOfSphere, kSequential, Texture::none), weld, 0},
      {"mergeVertices/soup/sphere/shuffled", with(soupOfSphere, kShuffled, Texture::none), weld, 0},
      {"mergeVertices/soup/sphere/texture", with(soupOfSphere, kSequential, Texture::mapped), weld, 0},
      {"mergeVertices/soup/grid", with(soupOfGrid, kSequential, Texture::none), weld, 0},
      {"mergeVertices/soup/grid/shuffled", with(soupOfGrid, kShuffled, Texture::none), weld, 0},
      {"mergeVertices/quadsWithHoles", quadsWithHoles, weld, 0},
      {"removeFacesDouble/triangles", with(doubledTriangles, kSequential, Texture::none), doubles, 0},
      {"removeFacesDouble/triangles/shuffled", with(doubledTriangles, kShuffled, Texture::none), doubles, 0},
      {"removeFacesDouble/triangles/attributes", with(doubledTriangles, kSequential, Texture::mapped),
       doublesWithAttributes, 0},
      {"removeFacesDouble/hexagons", with(doubledHexagons, kSequential, Texture::none), doubles, 0},
      {"removeFacesDouble/hexagons/shuffled", with(doubledHexagons, kShuffled, Texture::none), doubles, 0},
      {"removeFacesDouble/hexagons/attributes", with(doubledHexagons, kSequential, Texture::mapped),
       doublesWithAttributes, 0},
      {"removeFacesDouble/quadsWithHoles", quadsWithHoles, doubles, 0},
      {"conformNormals/sphere", with(flippedSphere, kSequential), orient, 0},
      {"conformNormals/sphere/shuffled", with(flippedSphere, kShuffled), orient, 0},
      {"conformNormals/buildings", flippedBuildings, orient, 0},
      {"conformNormals/quadsWithHoles", quadsWithHoles, orient, 0},
      {"removeEdgesCoplanar/city", with(city, Texture::none), coplanar, 0},
      {"removeEdgesCoplanar/city/attributes", with(city, Texture::mapped), coplanarWithAttributes, 0},
      {"removeEdgesCoplanar/griddedBoxes", griddedBoxes, coplanar, 0},
      {"removeEdgesCoplanar/quadsWithHoles", quadsWithHoles, coplanar, 0},
      {"removeVerticesColinear/midpoints", with(quadsWithMidpoints, Texture::none), colinear, 0},
      {"removeVerticesColinear/midpoints/texture", with(quadsWithMidpoints, Texture::mapped), colinearWithTexture, 0},
      {"removeVerticesColinear/quadsWithHoles", quadsWithHoles, colinear, 0},
      {"removeFacesZero/needles", sphereWithNeedles, zeroFaces, 0},
      {"removeFacesZero/quadsWithHoles", quadsWithHoles, zeroFaces, 0},
      {"removeEdgesZero/shortEdges", with(quadsWithShortEdges, Texture::none), zeroEdges, 0},
      {"removeEdgesZero/shortEdges/texture", with(quadsWithShortEdges, Texture::mapped), zeroEdges, 0},
      {"removeEdgesZero/quadsWithHoles", quadsWithHoles, zeroEdges, 0},
  };
}

std::vector<CleanupCase> worstCases() {
  constexpr std::size_t kFan = 300'000, kHoles = 80'000, kFacesWithHole = 160'000;
  return {
      {"mergeVertices/tenClusters", tenClusters, weld, 1'000'000},
      {"mergeVertices/line", verticesInLine, weld, 1'000'000},
      {"mergeVertices/crowd", crowd, weld, 1'000'000},
      {"mergeVertices/fan", with(fan, false), weld, kFan},
      {"mergeVertices/holesInOneFace", holesInOneFace, weld, kHoles},
      {"mergeVertices/facesWithHole", quadsWithHoles, weld, kFacesWithHole},
      {"removeFacesDouble/fan", with(fan, false), doubles, kFan},
      {"removeFacesDouble/holesInOneFace", holesInOneFace, doubles, kHoles},
      {"conformNormals/fan", with(fan, true), orient, kFan},
      {"conformNormals/holesInOneFace", holesInOneFace, orient, kHoles},
      {"removeEdgesCoplanar/flatGrid", flatGrid, coplanar, 4'000'000},
      {"removeEdgesCoplanar/flatGridWithGaps", flatGridWithGaps, coplanar, 12 * 20'000},
      {"removeEdgesCoplanar/fan", with(fan, false), coplanar, kFan},
      {"removeEdgesCoplanar/holesInOneFace", holesInOneFace, coplanar, kHoles},
      {"removeVerticesColinear/outline", straightOutline, colinear, 100'000},
      {"removeVerticesColinear/fan", with(fan, false), colinear, kFan},
      {"removeVerticesColinear/holesInOneFace", holesInOneFace, colinear, kHoles},
      {"removeFacesZero/everySecond/holes", needlesAmongHoles, zeroFaces, 14 * 50'000},
      {"removeFacesZero/holesInOneFace", holesInOneFace, zeroFaces, kHoles},
      {"removeFacesZero/facesWithHole", quadsWithHoles, zeroFaces, kFacesWithHole},
      {"removeEdgesZero/fan", with(fan, false), zeroEdges, kFan},
      {"removeEdgesZero/holesInOneFace", holesInOneFace, zeroEdges, kHoles},
  };
}

}  // namespace

std::vector<CleanupCase> cleanupCases() {
  std::vector<CleanupCase> cases = normalCases();
  std::ranges::move(worstCases(), std::back_inserter(cases));
  return cases;
}

std::vector<CleanupCase> craftedCases() {
  return {
      {"crafted/holes/slits", slits, zeroFaces, 0},
      {"crafted/holes/nestedCs", nestedCs, zeroFaces, 0},
      {"crafted/holes/crossedSlits", crossedSlits, zeroFaces, 0},
      {"crafted/mergeVertices/chainOfPinches", chainOfPinches, weld, 0},
      {"crafted/removeFacesDouble/texturedCopies", copiesWithTexture, doublesWithAttributes, 0},
      {"crafted/removeFacesDouble/apartAtOneCorner", copiesApartAtOneCorner, doublesWithAttributes, 0},
      {"crafted/removeFacesDouble/reorderedLoops", reorderedLoops, doubles, 0},
  };
}

CleanupCase cleanupCase(const std::string& name) {
  for (CleanupCase& candidate : cleanupCases())
    if (candidate.name == name) return candidate;
  throw std::invalid_argument("no case " + name);
}

std::size_t bytesOf(const Cleanup::MeshData& data) {
  const auto words = static_cast<std::size_t>(data.mVCCount) + static_cast<std::size_t>(data.mIndexCount) +
                     static_cast<std::size_t>(data.mTCCount) + static_cast<std::size_t>(data.mTCIndexCount) +
                     static_cast<std::size_t>(data.mCountCount) + static_cast<std::size_t>(data.mHolesCount) +
                     static_cast<std::size_t>(data.mTexturesStartFacesCount);
  return 4 * words;
}
