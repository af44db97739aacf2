#include "CheckWorkloads.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <numeric>
#include <stdexcept>

facetbox::PolyMesh polyMeshOf(const Workload& record) {
  facetbox::PolyMesh mesh;
  mesh.points.assign(record.coords.begin(), record.coords.end());
  mesh.counts = record.counts;
  mesh.indices = record.indices;
  mesh.holes = record.holes;
  return mesh;
}

facetbox::PolyMesh soupWithCrossings(std::size_t triangles) {
  std::mt19937_64 random(1);
  const auto side = static_cast<std::size_t>(std::ceil(std::cbrt(static_cast<double>(triangles))));
  std::vector<std::size_t> cells(triangles - triangles / 200);  // one in a hundred: every 200th cell holds two
  std::iota(cells.begin(), cells.end(), std::size_t{0});
  for (std::size_t i = cells.size(); i > 1; --i)
    std::swap(cells[i - 1], cells[static_cast<std::size_t>(uniform(random) * static_cast<double>(i))]);
  facetbox::PolyMesh mesh;
  const auto add = [&](const double(&corners)[9]) {
    for (int i = 0; i < 3; ++i) mesh.indices.push_back(static_cast<std::uint32_t>(mesh.points.size() / 3 + i));
    mesh.points.insert(mesh.points.end(), corners, corners + 9);
    mesh.counts.push_back(3);
  };
  for (const std::size_t cell : cells) {
    double c[9];
    const double corner[3] = {double(cell % side), double(cell / side % side), double(cell / side / side)};
    for (int i = 0; i < 9; ++i) c[i] = corner[i % 3] + 0.9 * uniform(random);
    add(c);
    if (cell % 200 != 0 || mesh.counts.size() == triangles) continue;
    // From the cell's first triangle's middle to two corners of its cell.
    double d[9];
    for (int i = 0; i < 3; ++i) {
      d[i] = (c[i] + c[i + 3] + c[i + 6]) / 3;
      d[i + 3] = corner[i] + (i == 0 ? 0.0 : 0.9);
      d[i + 6] = corner[i] + (i == 1 ? 0.0 : 0.9);
    }
    add(d);
  }
  return mesh;
}

facetbox::PolyMesh sideBySide(const facetbox::PolyMesh& mesh, std::size_t corners) {
  double low = mesh.points[0], high = low;
  for (std::size_t i = 0; i < mesh.points.size(); i += 3) {
    low = std::min(low, mesh.points[i]);
    high = std::max(high, mesh.points[i]);
  }
  facetbox::PolyMesh all = mesh;
  const auto vertices = static_cast<std::uint32_t>(mesh.points.size() / 3);
  for (std::uint32_t copy = 1; all.indices.size() + mesh.indices.size() / 2 < corners; ++copy) {
    for (std::size_t i = 0; i < mesh.points.size(); ++i)
      all.points.push_back(mesh.points[i] + (i % 3 == 0 ? 1.125 * copy * (high - low) : 0.0));
    all.counts.insert(all.counts.end(), mesh.counts.begin(), mesh.counts.end());
    for (const std::uint32_t vertex : mesh.indices) all.indices.push_back(vertex + copy * vertices);
  }
  return all;
}

facetbox::PolyMesh readScan(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string word;
  std::size_t vertices = 0, faces = 0;
  while (file >> word && word != "end_header") {
    if (word == "vertex") file >> vertices;
    if (word == "face") file >> faces;
  }
  file.ignore(1);
  facetbox::PolyMesh mesh;
  std::vector<float> coordinates(3 * vertices);
  file.read(reinterpret_cast<char*>(coordinates.data()),
            static_cast<std::streamsize>(coordinates.size() * sizeof(float)));
  mesh.points.assign(coordinates.begin(), coordinates.end());
  for (std::size_t face = 0; face < faces; ++face) {
    std::uint32_t corners[3];
    if (file.get() != 3 || !file.read(reinterpret_cast<char*>(corners), sizeof corners)) break;
    mesh.counts.push_back(3);
    mesh.indices.insert(mesh.indices.end(), corners, corners + 3);
  }
  if (faces == 0 || mesh.counts.size() != faces) throw std::runtime_error(path + ": not a scan");
  return mesh;
}
