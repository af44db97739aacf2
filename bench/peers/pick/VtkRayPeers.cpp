#include <vtkCellArray.h>
#include <vtkCellLocator.h>
#include <vtkGenericCell.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkStaticCellLocator.h>

#include "../VtkThreads.h"
#include "RayPeers.h"

namespace {

template <class Locator>
class VtkCaster final : public RayCaster {
 public:
  explicit VtkCaster(const Triangles& triangles) {
    vtkNew<vtkPoints> points;
    points->SetDataTypeToDouble();
    points->SetNumberOfPoints(static_cast<vtkIdType>(triangles.coordinates.size() / 3));
    for (vtkIdType i = 0; i < points->GetNumberOfPoints(); ++i)
      points->SetPoint(i, &triangles.coordinates[3 * static_cast<std::size_t>(i)]);
    vtkNew<vtkCellArray> cells;
    cells->AllocateExact(static_cast<vtkIdType>(triangles.count()), static_cast<vtkIdType>(triangles.indices.size()));
    for (std::size_t i = 0; i < triangles.indices.size(); i += 3)
      cells->InsertNextCell({static_cast<vtkIdType>(triangles.indices[i]),
                             static_cast<vtkIdType>(triangles.indices[i + 1]),
                             static_cast<vtkIdType>(triangles.indices[i + 2])});
    mMesh->SetPoints(points);
    mMesh->SetPolys(cells);
    mLocator->SetDataSet(mMesh);
    mLocator->BuildLocator();
  }

  void cast(std::span<const Ray> rays, std::span<double> distances) override {
    constexpr double kLength = 1000;  // of the lines, well behind the object
    constexpr double kTolerance = 0;
    for (std::size_t i = 0; i < rays.size(); ++i) {
      const double* from = rays[i].exactOrigin;
      double to[3], t, point[3], coordinates[3];
      for (int axis = 0; axis < 3; ++axis) to[axis] = from[axis] + kLength * rays[i].exactDirection[axis];
      int part;
      vtkIdType cell;
      const int hit = mLocator->IntersectWithLine(from, to, kTolerance, t, point, coordinates, part, cell, mCell);
      distances[i] = hit ? kLength * t : kMiss;
    }
  }

 private:
  vtkNew<vtkPolyData> mMesh;
  vtkNew<Locator> mLocator;
  vtkNew<vtkGenericCell> mCell;
};

}  // namespace

std::vector<RayPeer> vtkRayPeers() {
  useOneVtkThread();
  return {
      {"VTK static cell locator",
       [](const Triangles& t) { return std::make_unique<VtkCaster<vtkStaticCellLocator>>(t); }, true},
      {"VTK cell locator", [](const Triangles& t) { return std::make_unique<VtkCaster<vtkCellLocator>>(t); }, true}};
}
