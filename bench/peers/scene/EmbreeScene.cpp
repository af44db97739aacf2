#include "EmbreeScene.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include <embree3/rtcore.h>

#include "../TinyIsZero.h"

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

RTCGeometry geometryOf(RTCDevice device, const Triangles& triangles) {
  RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
  auto* coordinates = static_cast<float*>(rtcSetNewGeometryBuffer(
      geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), triangles.coordinates.size() / 3));
  for (const double coordinate : triangles.coordinates) *coordinates++ = static_cast<float>(coordinate);
  auto* indices = static_cast<std::uint32_t*>(rtcSetNewGeometryBuffer(
      geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(std::uint32_t), triangles.count()));
  std::ranges::copy(triangles.indices, indices);
  rtcCommitGeometry(geometry);
  return geometry;
}

void place(RTCGeometry instance, const double rows[3][4]) {
  float matrix[12];
  for (int column = 0; column < 4; ++column)
    for (int row = 0; row < 3; ++row) matrix[3 * column + row] = static_cast<float>(rows[row][column]);
  rtcSetGeometryTransform(instance, 0, RTC_FORMAT_FLOAT3X4_COLUMN_MAJOR, matrix);
  rtcCommitGeometry(instance);
}

}  // namespace

struct EmbreeScene::Parts {
  Parts() : device(rtcNewDevice("threads=1")) {
    if (device == nullptr) throw std::runtime_error("Embree has no device");
    scene = newScene();
  }
  ~Parts() {
    for (RTCScene mesh : meshes) rtcReleaseScene(mesh);
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);
  }
  Parts(const Parts&) = delete;
  Parts& operator=(const Parts&) = delete;

  RTCScene newScene() const {
    RTCScene made = rtcNewScene(device);
    rtcSetSceneFlags(made, RTC_SCENE_FLAG_ROBUST);
    return made;
  }

  RTCDevice device;
  RTCScene scene = nullptr;
  std::vector<RTCScene> meshes;
  std::vector<RTCGeometry> instances;
  std::vector<RTCRayHit> rays;
  std::vector<RTCRayHit16> packets;
  RTCIntersectContext context{};
};

EmbreeScene::EmbreeScene() : mParts(std::make_unique<Parts>()) {}
EmbreeScene::~EmbreeScene() = default;

void EmbreeScene::add(const Triangles& triangles) {
  RTCGeometry geometry = geometryOf(mParts->device, triangles);
  rtcAttachGeometry(mParts->scene, geometry);
  rtcReleaseGeometry(geometry);
}

void EmbreeScene::addMesh(const Triangles& triangles) {
  RTCScene mesh = mParts->newScene();
  RTCGeometry geometry = geometryOf(mParts->device, triangles);
  rtcAttachGeometry(mesh, geometry);
  rtcReleaseGeometry(geometry);
  rtcCommitScene(mesh);
  mParts->meshes.push_back(mesh);
}

void EmbreeScene::addInstance(std::size_t mesh, const double rows[3][4]) {
  RTCGeometry instance = rtcNewGeometry(mParts->device, RTC_GEOMETRY_TYPE_INSTANCE);
  rtcSetGeometryInstancedScene(instance, mParts->meshes[mesh]);
  rtcSetGeometryTimeStepCount(instance, 1);
  place(instance, rows);
  rtcAttachGeometry(mParts->scene, instance);
  rtcReleaseGeometry(instance);  // the scene keeps it
  mParts->instances.push_back(instance);
}

void EmbreeScene::move(std::size_t instance, const double rows[3][4]) { place(mParts->instances[instance], rows); }

void EmbreeScene::commit() { rtcCommitScene(mParts->scene); }

void EmbreeScene::prepare(std::span<const Ray> rays, Packets packets, bool isCoherent) {
  Parts& parts = *mParts;
  rtcInitIntersectContext(&parts.context);
  parts.context.flags = isCoherent ? RTC_INTERSECT_CONTEXT_FLAG_COHERENT : RTC_INTERSECT_CONTEXT_FLAG_INCOHERENT;
  parts.rays.clear();
  parts.packets.clear();
  if (packets == Packets::none) {
    for (const Ray& ray : rays) {
      RTCRayHit& query = parts.rays.emplace_back();
      query.ray = {ray.origin[0],
                   ray.origin[1],
                   ray.origin[2],
                   0,
                   ray.direction[0],
                   ray.direction[1],
                   ray.direction[2],
                   0,
                   kInfinity,
                   ~0U,
                   0,
                   0};
    }
    return;
  }
  parts.packets.resize(rays.size() / 16);
  for (std::size_t i = 0; i < 16 * parts.packets.size(); ++i) {
    const Ray& ray = rays[i];
    RTCRay16& query = parts.packets[i / 16].ray;
    const std::size_t lane = i % 16;
    query.org_x[lane] = ray.origin[0];
    query.org_y[lane] = ray.origin[1];
    query.org_z[lane] = ray.origin[2];
    query.dir_x[lane] = ray.direction[0];
    query.dir_y[lane] = ray.direction[1];
    query.dir_z[lane] = ray.direction[2];
    query.tnear[lane] = query.time[lane] = 0;
    query.mask[lane] = ~0U;
    query.id[lane] = query.flags[lane] = 0;
  }
}

void EmbreeScene::cast() {
  const TinyIsZero tinyIsZero;
  Parts& parts = *mParts;
  for (RTCRayHit& query : parts.rays) {
    query.ray.tfar = kInfinity;
    query.hit.geomID = query.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
    rtcIntersect1(parts.scene, &parts.context, &query);
  }
  alignas(64) int valid[16];
  std::ranges::fill(valid, -1);
  for (RTCRayHit16& query : parts.packets) {
    std::ranges::fill(query.ray.tfar, kInfinity);
    std::ranges::fill(query.hit.geomID, RTC_INVALID_GEOMETRY_ID);
    std::ranges::fill(query.hit.instID[0], RTC_INVALID_GEOMETRY_ID);
    rtcIntersect16(valid, parts.scene, &parts.context, &query);
  }
}

std::vector<float> EmbreeScene::distances() const {
  std::vector<float> distances;
  const auto add = [&](unsigned geometry, float t) {
    distances.push_back(geometry == RTC_INVALID_GEOMETRY_ID ? kInfinity : t);
  };
  for (const RTCRayHit& query : mParts->rays) add(query.hit.geomID, query.ray.tfar);
  for (const RTCRayHit16& query : mParts->packets)
    for (std::size_t lane = 0; lane < 16; ++lane) add(query.hit.geomID[lane], query.ray.tfar[lane]);
  return distances;
}
