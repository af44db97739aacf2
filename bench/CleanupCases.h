#pragma once

#include <functional>
#include <string>
#include <vector>

#include "CleanupWorkloads.h"

/// An exported call on a family of workloads.
struct CleanupCase {
  std::string name;  ///< operation/workload
  std::function<CleanupWorkload(std::size_t corners)> make;
  std::function<const Cleanup::MeshData*(const Cleanup::MeshData&)> call;
  std::size_t corners;  ///< the one size of a worst case; 0: a normal case, for any size
};

std::vector<CleanupCase> cleanupCases();

/// Cases that were made to be expensive, for any size.
std::vector<CleanupCase> craftedCases();

/// The case of this name, which must exist.
CleanupCase cleanupCase(const std::string& name);

/// Bytes of the arrays of a result.
std::size_t bytesOf(const Cleanup::MeshData& data);
