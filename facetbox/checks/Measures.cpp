#include <facetbox/checks/Measures.h>

#include <algorithm>
#include <cmath>

namespace util {
namespace {

constexpr double kZeroFacePart = 1e-12;  // of the squared diagonal

/// A sum whose error does not grow with the number of terms: A. Neumaier, Rundungsfehleranalyse einiger Verfahren zur
/// Summation endlicher Summen, 1974.
class Sum {
 public:
  void add(double v) {
    const double next = mSum + v;
    mRest += std::fabs(mSum) >= std::fabs(v) ? (mSum - next) + v : (v - next) + mSum;
    mSum = next;
  }
  double value() const { return mSum + mRest; }

 private:
  double mSum = 0, mRest = 0;
};

void findZeroEdges(const CheckedMesh& mesh, std::uint32_t face, double lengthSq, facetbox::Defects& defects) {
  const auto corners = mesh.corners(face);
  const auto count = static_cast<std::uint32_t>(corners.size());
  for (std::uint32_t corner = 0; corner < count; ++corner) {
    const std::uint32_t a = corners[corner], b = corners[corner + 1 < count ? corner + 1 : 0];
    // Local places of different vertices may be rounded together: only up to a length that was asked for.
    const bool isZero = a == b || (util::lengthSq(mesh.local(b) - mesh.local(a)) <= lengthSq &&
                                   (lengthSq > 0 || mesh.point(a) == mesh.point(b)));
    if (isZero) defects.zeroEdges.push_back({face, corner});
  }
}

void writeBox(const CheckedMesh& mesh, facetbox::Defects& defects) {
  const Box& box = mesh.box();
  if (box == Box()) return;
  defects.boxMin = {box.min.x, box.min.y, box.min.z};
  defects.boxMax = {box.max.x, box.max.y, box.max.z};
}

}  // namespace

void measure(const CheckedMesh& mesh, const facetbox::CheckOptions& options, facetbox::Defects& defects) {
  writeBox(mesh, defects);
  for (std::uint32_t vertex = 0; vertex < mesh.vertexCount(); ++vertex)
    if (!mesh.isUsed(vertex)) defects.unusedVertices.push_back(vertex);

  const double zeroEdge = mesh.toLocal(std::max(0.0, options.zeroEdgeLength));
  const double diagonalSq = mesh.localDiagonal() * mesh.localDiagonal();
  const double zeroArea = options.zeroFaceArea ? mesh.toLocal(mesh.toLocal(std::max(0.0, *options.zeroFaceArea)))
                                               : kZeroFacePart * diagonalSq;
  Sum area, volume;
  const auto addFace = [&](std::uint32_t face) {
    if (mesh.isLeftOut(face)) return defects.leftOutFaces.push_back(face);
    findZeroEdges(mesh, face, zeroEdge * zeroEdge, defects);
    const Vec3 doubleArea = mesh.doubleAreaOf(face);
    const double faceArea = 0.5 * length(doubleArea);
    if (faceArea <= zeroArea) defects.zeroFaces.push_back(face);
    // Six times the pyramid over the face, with its top at the low corner of the box.
    const double pyramid = dot(mesh.local(mesh.corners(face)[0]), doubleArea);
    const bool isHole = mesh.isHole(face);
    area.add(isHole ? -faceArea : faceArea);
    volume.add(isHole && mesh.isRimReversed(face) ? -pyramid : pyramid);
  };
  for (Monitor::Blocks blocks(mesh.monitor(), mesh.faceCount()); blocks.next();)
    for (std::uint32_t face = blocks.begin(), end = blocks.end(); face < end; ++face) addFace(face);
  defects.area = mesh.fromLocal(area.value(), 2);
  defects.volume = mesh.fromLocal(volume.value() / 6, 3);
}

}  // namespace util
