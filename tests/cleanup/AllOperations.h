#pragma once

#include <tests/support/Meshes.h>

namespace support {

/// An exported operation with fixed arguments; one with a flag comes with both of its values.
struct Operation {
  const char* mName;
  const Cleanup::MeshData* (*mRun)(const Cleanup::MeshData&);
};

using Data = Cleanup::MeshData;
inline constexpr Operation kOperations[] = {
    {"mergeVertices", [](const Data& data) { return Cleanup::mergeVertices(1.1f, data); }},
    {"removeVerticesColinear", [](const Data& data) { return Cleanup::removeVerticesColinear(1, false, data); }},
    {"removeVerticesColinear, flag", [](const Data& data) { return Cleanup::removeVerticesColinear(1, true, data); }},
    {"removeEdgesCoplanar", [](const Data& data) { return Cleanup::removeEdgesCoplanar(1, false, data); }},
    {"removeEdgesCoplanar, flag", [](const Data& data) { return Cleanup::removeEdgesCoplanar(1, true, data); }},
    {"removeFacesDouble", [](const Data& data) { return Cleanup::removeFacesDouble(false, data); }},
    {"removeFacesDouble, flag", [](const Data& data) { return Cleanup::removeFacesDouble(true, data); }},
    {"removeFacesZero", [](const Data& data) { return Cleanup::removeFacesZero(0.6f, data); }},
    {"removeEdgesZero", [](const Data& data) { return Cleanup::removeEdgesZero(1.1f, data); }},
    {"conformNormals", [](const Data& data) { return Cleanup::conformNormals(data); }},
};

/// A record in which every operation finds something to do, flat in the plane y = 0, all but two faces looking up:
///
///     4---------3    12----11    15           22--21--24   28--27--30        an illegal face, a hole outside of its
///     |  8-7    |     | 4 / |    | \       18  |   |   |    |   |   |        outer face, and an unused vertex
///     |  5-6    |     |  /  |    |5,\      /\  | 8 | 9 |    |10 |11 |
///     0----1----2     9----10   13-14,6  16-17 19--20--23   25--26--29
///
/// Face 0 has the hole 1, and at corner 1 a texture coordinate off the line. Face 5 repeats face 4's corners and
/// texture coordinates, face 6 its corners alone, reversed. Face 9 is of another material than 8, and face 11 runs
/// against face 10. Elsewhere a corner's pair has the number of its vertex, whatever becomes of the vertex.
inline Record busyRecord() {
  std::vector<Vec3> points;
  for (const auto& [x, z] : std::vector<std::pair<double, double>>{
           {0, 0},    {4.5, 0}, {9, 0},  {9, 9},  {0, 9},  {2, 2},  {4, 2},  {4, 4},  {2, 4},
           {12, 0},   {20, 0},  {20, 9}, {12, 9}, {30, 0}, {35, 0}, {30, 5}, {40, 0}, {41, 0},
           {40.5, 1}, {50, 0},  {55, 0}, {55, 5}, {50, 5}, {60, 0}, {60, 5}, {70, 0}, {75, 0},
           {75, 5},   {70, 5},  {80, 0}, {80, 5}, {90, 0}, {95, 0}, {95, 9}, {99, 9}})
    points.push_back({x, 0, -z});
  Record record = recordOf(points, {{0, 1, 2, 3, 4},
                                    {0, 1},
                                    {8, 7, 6, 5},
                                    {9, 10, 11},
                                    {9, 11, 12},
                                    {13, 14, 15},
                                    {13, 14, 15},
                                    {15, 14, 13},
                                    {16, 17, 18},
                                    {19, 20, 21, 22},
                                    {20, 23, 24, 21},
                                    {25, 26, 27, 28},
                                    {26, 27, 30, 29},
                                    {31, 32, 33}});
  record.mName = "busy";
  for (const Vec3& p : points) record.mTexCoords.insert(record.mTexCoords.end(), {float(p.x / 8), float(p.z / 8)});
  record.mTexCoordIndices = record.mIndices;
  record.mTexCoordIndices[1] = 31;
  record.mTexCoordIndices[7 + 4 + 3 * 4] = 31;  // the first corner of the reversed face
  record.mTextures = {"one", "two\xE9", std::nullopt};
  record.mStarts = {0, 10, 11};
  record.mHoles = {0, 2, kEnd, 3, 13, kEnd};
  return record;
}

}  // namespace support
