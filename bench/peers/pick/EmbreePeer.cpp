#include <cstdint>
#include <limits>
#include <stdexcept>

#include <embree3/rtcore.h>

#include "../TinyIsZero.h"
#include "RayPeers.h"

namespace {

class EmbreeCaster final : public RayCaster {
 public:
  explicit EmbreeCaster(const Triangles& triangles) : mDevice(rtcNewDevice("threads=1")) {
    if (mDevice == nullptr) throw std::runtime_error("Embree has no device");
    mScene = rtcNewScene(mDevice);
    rtcSetSceneFlags(mScene, RTC_SCENE_FLAG_ROBUST);
    RTCGeometry geometry = rtcNewGeometry(mDevice, RTC_GEOMETRY_TYPE_TRIANGLE);
    auto* coordinates = static_cast<float*>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), triangles.coordinates.size() / 3));
    for (const double coordinate : triangles.coordinates) *coordinates++ = static_cast<float>(coordinate);
    auto* indices = static_cast<std::uint32_t*>(rtcSetNewGeometryBuffer(
        geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(std::uint32_t), triangles.count()));
    for (const std::uint32_t index : triangles.indices) *indices++ = index;
    rtcCommitGeometry(geometry);
    rtcAttachGeometry(mScene, geometry);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(mScene);
  }
  ~EmbreeCaster() override {
    rtcReleaseScene(mScene);
    rtcReleaseDevice(mDevice);
  }
  EmbreeCaster(const EmbreeCaster&) = delete;
  EmbreeCaster& operator=(const EmbreeCaster&) = delete;

  void cast(std::span<const Ray> rays, std::span<double> distances) override {
    const TinyIsZero tinyIsZero;
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    for (std::size_t i = 0; i < rays.size(); ++i) {
      RTCRayHit query;
      query.ray.org_x = rays[i].origin[0];
      query.ray.org_y = rays[i].origin[1];
      query.ray.org_z = rays[i].origin[2];
      query.ray.dir_x = rays[i].direction[0];
      query.ray.dir_y = rays[i].direction[1];
      query.ray.dir_z = rays[i].direction[2];
      query.ray.tnear = 0;
      query.ray.tfar = std::numeric_limits<float>::infinity();
      query.ray.time = 0;
      query.ray.mask = ~0u;
      query.ray.flags = 0;
      query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
      query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
      rtcIntersect1(mScene, &context, &query);
      distances[i] = query.hit.geomID == RTC_INVALID_GEOMETRY_ID ? kMiss : double{query.ray.tfar};
    }
  }

 private:
  RTCDevice mDevice;
  RTCScene mScene = nullptr;
};

}  // namespace

std::vector<RayPeer> embreePeers() {
  return {{"Embree robust, single rays", [](const Triangles& t) { return std::make_unique<EmbreeCaster>(t); }}};
}
