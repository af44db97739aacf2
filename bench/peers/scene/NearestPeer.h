#pragma once

#include <array>
#include <memory>

#include "../pick/RayWorkloads.h"

/// Closest points by another library.
class NearestPeer {
 public:
  virtual ~NearestPeer() = default;
  /// The distance.
  virtual double find(const std::array<double, 3>& point) = 0;
};

std::unique_ptr<NearestPeer> cgalNearest(const Triangles& triangles);
