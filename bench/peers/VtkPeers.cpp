#include <vtkCellArray.h>
#include <vtkCleanPolyData.h>
#include <vtkFloatArray.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataNormals.h>
#include <vtkSmartPointer.h>
#include <vtkStaticCleanPolyData.h>
#include <vtkTypeInt32Array.h>

#include "Peers.h"
#include "VtkThreads.h"

namespace {

struct VtkAnswer : Answer {
  vtkSmartPointer<vtkPolyData> mesh;  // its arrays are flat: points as floats, corners and offsets

  Workload toRecord() const override {
    Workload record;
    for (vtkIdType point = 0; point < mesh->GetNumberOfPoints(); ++point) {
      double xyz[3];
      mesh->GetPoint(point, xyz);
      record.addVertex(xyz[0], xyz[1], xyz[2]);
    }
    vtkCellArray* polys = mesh->GetPolys();
    vtkNew<vtkIdList> corners;
    for (vtkIdType cell = 0; cell < polys->GetNumberOfCells(); ++cell) {
      polys->GetCellAtId(cell, corners);
      record.counts.push_back(static_cast<std::uint32_t>(corners->GetNumberOfIds()));
      for (const vtkIdType corner : *corners) record.indices.push_back(static_cast<std::uint32_t>(corner));
    }
    return record;
  }
};

/// The record's own coordinates and indices; only the offsets have to be made.
vtkSmartPointer<vtkPolyData> wrap(const Workload& record) {
  const auto untouched = 1;  // the arrays stay the record's
  vtkNew<vtkFloatArray> coords;
  coords->SetNumberOfComponents(3);
  coords->SetArray(const_cast<float*>(record.coords.data()), static_cast<vtkIdType>(record.coords.size()), untouched);
  vtkNew<vtkPoints> points;
  points->SetData(coords);
  vtkNew<vtkTypeInt32Array> corners, offsets;
  corners->SetArray(reinterpret_cast<vtkTypeInt32*>(const_cast<std::uint32_t*>(record.indices.data())),
                    static_cast<vtkIdType>(record.indices.size()), untouched);
  offsets->SetNumberOfValues(static_cast<vtkIdType>(record.faces() + 1));
  vtkTypeInt32 *offset = offsets->GetPointer(0), sum = 0;
  for (const std::uint32_t count : record.counts) {
    *offset++ = sum;
    sum += static_cast<vtkTypeInt32>(count);
  }
  *offset = sum;
  vtkNew<vtkCellArray> polys;
  polys->SetData(offsets, corners);
  auto mesh = vtkSmartPointer<vtkPolyData>::New();
  mesh->SetPoints(points);
  mesh->SetPolys(polys);
  return mesh;
}

template <class Filter>
std::unique_ptr<Answer> runFilter(const Workload& record, Filter& filter) {
  filter.SetInputData(wrap(record));
  filter.Update();
  auto answer = std::make_unique<VtkAnswer>();
  answer->mesh = filter.GetOutput();
  return answer;
}

template <class Filter>
std::unique_ptr<Answer> weld(const Workload& record) {
  vtkNew<Filter> filter;
  filter->ToleranceIsAbsoluteOn();
  filter->SetAbsoluteTolerance(kWeldTolerance);
  filter->ConvertPolysToLinesOff();
  filter->ConvertLinesToPointsOff();
  return runFilter(record, *filter.Get());
}

std::unique_ptr<Answer> orient(const Workload& record) {
  vtkNew<vtkPolyDataNormals> filter;
  filter->ConsistencyOn();
  filter->AutoOrientNormalsOn();
  filter->SplittingOff();
  filter->ComputePointNormalsOff();
  filter->ComputeCellNormalsOn();  // without any normals it does nothing
  return runFilter(record, *filter.Get());
}

}  // namespace

std::vector<Peer> vtkPeers() {
  useOneVtkThread();
  std::vector<Peer> peers;
  for (const char* suffix : {"", "/shuffled"})
    for (const char* surface : {"mergeVertices/soup/sphere", "mergeVertices/soup/grid"}) {
      peers.push_back({"VTK static clean", std::string(surface) + suffix, 0.5, weld<vtkStaticCleanPolyData>});
      peers.push_back({"VTK clean", std::string(surface) + suffix, 0, weld<vtkCleanPolyData>});
    }
  for (const char* name : {"conformNormals/sphere", "conformNormals/buildings"})
    peers.push_back({"VTK normals filter", name, 0.6, orient});
  peers.push_back({"VTK normals filter", "conformNormals/sphere/shuffled", 0, orient});
  return peers;
}
