// The clean-up calls compared with other libraries on the same records, in turns within one process.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <malloc.h>

#include "../CleanupCases.h"
#include "CpuTime.h"
#include "Peers.h"

namespace {

/// Something to be timed; what it returns is released outside the time.
template <class Run>
double secondsOf(Run run) {
  const double begin = cpuSeconds();
  const auto result = run();
  return cpuSeconds() - begin;
}

/// One side of a comparison: seconds of one run, on how many corners.
struct Side {
  std::string name;
  std::size_t corners;
  std::function<double()> run;
};

/// Runs both sides in turns, each as often first as second, after one round that does not count.
void compare(const std::string& what, const Side& ours, const Side& other, double bar, std::size_t pairs,
             const std::string& verdict) {
  std::vector<double> ourTimes, otherTimes, ratios;
  for (std::size_t pair = 0; pair <= pairs; ++pair) {
    double our = 0, their = 0;
    if (pair % 2) our = ours.run();
    their = other.run();
    if (pair % 2 == 0) our = ours.run();
    if (pair == 0) continue;
    ourTimes.push_back(1e9 * our / static_cast<double>(ours.corners));
    otherTimes.push_back(1e9 * their / static_cast<double>(other.corners));
    ratios.push_back(ourTimes.back() / otherTimes.back());
  }
  const double ratio = median(ratios);
  std::printf("%-40s %8.1f  %-34s %8.1f %7.3f ", what.c_str(), median(ourTimes), other.name.c_str(), median(otherTimes),
              ratio);
  if (bar > 0)
    std::printf("%5.2f %-6s", bar, ratio <= bar ? "met" : "MISSED");
  else
    std::printf("%5s %-6s", "-", "");
  std::printf(" %s\n", verdict.c_str());
  std::fflush(stdout);
}

struct ResultDeleter {
  void operator()(const Cleanup::MeshData* data) const { Cleanup::freeMeshDataAndHoles(data); }
};
using ResultPtr = std::unique_ptr<const Cleanup::MeshData, ResultDeleter>;

std::string verdictOn(const Cleanup::MeshData* result, const Expected& expected) {
  const std::string fault = faultOf(result, expected);
  return fault.empty() ? "right" : "wrong: " + fault;
}

/// A case of ours on a record of its own, checked.
struct OurSide {
  CleanupCase tested;
  CleanupWorkload work;
  Cleanup::MeshData data{};

  OurSide(const std::string& name, std::size_t corners)
      : tested(cleanupCase(name)),
        work(tested.make(tested.corners ? tested.corners : corners)),
        data(work.input.view()) {
    const ResultPtr result(tested.call(data));
    const std::string fault = faultOf(result.get(), work.expected);
    if (!fault.empty()) std::printf("%s: OUR RESULT IS WRONG: %s\n", name.c_str(), fault.c_str());
  }
  Side side() {
    return {tested.name, work.input.corners(),
            [this] { return secondsOf([this] { return ResultPtr(tested.call(data)); }); }};
  }
};

/// Two cases of ours: one may cost at most a given multiple of the other.
struct OwnBar {
  const char* name;
  const char* against;
  double bar;
};

constexpr OwnBar kOwnBars[] = {
    {"mergeVertices/tenClusters", "mergeVertices/soup/sphere", 3},
    {"mergeVertices/line", "mergeVertices/soup/sphere", 3},
    {"mergeVertices/crowd", "mergeVertices/soup/sphere", 3},
    {"removeFacesDouble/triangles/attributes", "removeFacesDouble/triangles", 2},
    {"removeFacesDouble/hexagons/attributes", "removeFacesDouble/hexagons", 2},
    {"removeVerticesColinear/midpoints", "removeEdgesCoplanar/city", 1},
    {"removeEdgesZero/shortEdges", "removeEdgesCoplanar/city", 1},
};

std::vector<Peer> allPeers() {
  std::vector<Peer> peers;
  const auto add = [&](std::vector<Peer> more) { std::ranges::move(more, std::back_inserter(peers)); };
#ifdef FACETBOX_PEER_VTK
  add(vtkPeers());
#endif
#ifdef FACETBOX_PEER_CGAL
  add(cgalPeers());
#endif
#ifdef FACETBOX_PEER_MESHOPTIMIZER
  add(meshoptimizerPeers());
#endif
  return peers;
}

}  // namespace

/// @param arguments  [--corners n] [--pairs n] parts of names of our cases; only those with one of them are run
int main(int argc, char** argv) {
  // Large blocks come fresh from the system for everyone, as in the first call of a host (see AllocationCount.cpp).
  mallopt(M_MMAP_THRESHOLD, 1 << 20);
  std::size_t corners = 1'000'000, pairs = 11;
  std::vector<std::string> asked;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--corners") == 0 && i + 1 < argc)
      corners = std::strtoull(argv[++i], nullptr, 10);
    else if (std::strcmp(argv[i], "--pairs") == 0 && i + 1 < argc)
      pairs = std::strtoull(argv[++i], nullptr, 10);
    else
      asked.emplace_back(argv[i]);
  }
  const auto isAsked = [&](const std::string& name) {
    return asked.empty() ||
           std::ranges::any_of(asked, [&](const std::string& part) { return name.find(part) != name.npos; });
  };

  std::printf("ns of CPU time per corner, medians of %zu pairs at %zu corners\n", pairs, corners);
  std::printf("%-40s %8s  %-34s %8s %7s %5s\n", "case", "ours", "against", "theirs", "ratio", "bar");
  for (const Peer& peer : allPeers()) {
    if (!isAsked(peer.caseName)) continue;
    OurSide ours(peer.caseName, corners);
    Workload& input = ours.work.input;
    Workload answer = peer.run(input)->toRecord();
    const Cleanup::MeshData view = answer.view();
    const std::string verdict = verdictOn(&view, ours.work.expected);
    answer = {};
    compare(peer.caseName, ours.side(),
            {peer.name, input.corners(), [&] { return secondsOf([&] { return peer.run(input); }); }}, peer.bar, pairs,
            verdict);
  }
  for (const OwnBar& own : kOwnBars) {
    if (!isAsked(own.name)) continue;
    OurSide ours(own.name, corners), other(own.against, corners);
    compare(own.name, ours.side(), other.side(), own.bar, pairs, "");
  }
}
