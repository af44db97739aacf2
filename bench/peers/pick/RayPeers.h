#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "RayWorkloads.h"

/// Answers rays at one object: our ray test, or a peer's tree.
class RayCaster {
 public:
  virtual ~RayCaster() = default;
  /// One call per ray.
  /// @param distances  per ray, in units of its direction's length; kMiss where nothing is hit
  virtual void cast(std::span<const Ray> rays, std::span<double> distances) = 0;

  static constexpr double kMiss = -1;
};

struct RayPeer {
  std::string name;
  /// The arrays outlive what is made.
  std::function<std::unique_ptr<RayCaster>(const Triangles&)> build;
  bool isSlow = false;  ///< gets every tenth ray where a million are compared
};

std::vector<RayPeer> embreePeers();
std::vector<RayPeer> cgalRayPeers();
std::vector<RayPeer> vtkRayPeers();

/// The peers that were found, Embree first.
inline std::vector<RayPeer> rayPeers() {
  std::vector<RayPeer> peers;
  [[maybe_unused]] const auto add = [&](std::vector<RayPeer> more) {
    peers.insert(peers.end(), more.begin(), more.end());
  };
#ifdef FACETBOX_PEER_EMBREE
  add(embreePeers());
#endif
#ifdef FACETBOX_PEER_CGAL
  add(cgalRayPeers());
#endif
#ifdef FACETBOX_PEER_VTK
  add(vtkRayPeers());
#endif
  return peers;
}
