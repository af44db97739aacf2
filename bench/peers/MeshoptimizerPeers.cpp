#include <meshoptimizer.h>

#include "Peers.h"

namespace {

std::unique_ptr<Answer> weldExactly(const Workload& record) {
  constexpr std::size_t kVertexBytes = 3 * sizeof(float);
  std::vector<std::uint32_t> remap(record.vertices());
  const std::size_t count = meshopt_generateVertexRemap(remap.data(), record.indices.data(), record.corners(),
                                                        record.coords.data(), record.vertices(), kVertexBytes);
  auto answer = std::make_unique<RecordAnswer>();
  answer->record.coords.resize(3 * count);
  answer->record.indices.resize(record.corners());
  meshopt_remapVertexBuffer(answer->record.coords.data(), record.coords.data(), record.vertices(), kVertexBytes,
                            remap.data());
  meshopt_remapIndexBuffer(answer->record.indices.data(), record.indices.data(), record.corners(), remap.data());
  answer->record.counts = record.counts;
  return answer;
}

}  // namespace

std::vector<Peer> meshoptimizerPeers() {
  return {{"meshoptimizer exact remap", "mergeVertices/soup/sphere", 0, weldExactly}};
}
