// Reading and writing files of some 100 MB, beside the import library, tinyobjloader and plain copies, in one run.
// Every job runs in a process of its own: it starts with nothing in memory, and its largest size is its own. Usage:
// facetbox_peer_io [FOLDER]   (default: the folder for temporary files)

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#ifdef FACETBOX_PEER_TINYOBJLOADER
#include <tiny_obj_loader.h>
#endif

#include <facetbox/io/readModel.h>
#include <facetbox/io/writeModel.h>

namespace {

namespace fs = std::filesystem;
using facetbox::Model;
using facetbox::Object;
using facetbox::PolyMesh;

/// Of the processor, for this process: other work on the machine counts little.
double now() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

/// A bumpy sheet of n x n quads, each cut in two, with digits as a scan has them.
Model sheet(std::uint32_t n) {
  Object object;
  PolyMesh& mesh = object.mesh;
  for (std::uint32_t y = 0; y <= n; ++y)
    for (std::uint32_t x = 0; x <= n; ++x)
      mesh.points.insert(mesh.points.end(), {std::round(x * 12345.6789) / 1e6, std::round(y * 12345.6789) / 1e6,
                                             std::round(1e6 * std::sin(x * 0.01) * std::cos(y * 0.013)) / 1e6});
  for (std::uint32_t y = 0; y < n; ++y) {
    for (std::uint32_t x = 0; x < n; ++x) {
      const std::uint32_t a = y * (n + 1) + x, b = a + 1, c = b + n + 1, d = a + n + 1;
      mesh.indices.insert(mesh.indices.end(), {a, b, c, a, c, d});
    }
  }
  mesh.counts.assign(std::size_t{2} * n * n, 3);
  Model model;
  model.objects.push_back(std::move(object));
  return model;
}

std::size_t bytesOf(const Model& model) {
  std::size_t bytes = 0;
  for (const Object& object : model.objects)
    bytes += object.mesh.points.size() * 8 + (object.mesh.counts.size() + object.mesh.indices.size()) * 4;
  return bytes;
}

struct Cost {
  double seconds = 0;
  std::size_t bytes = 0;  // the most memory that the process had, beyond what it had before
};

std::size_t peakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::size_t>(usage.ru_maxrss) * 1024;
}

/// The best of some rounds, each in a new process. `job` returns how long the part took that counts.
Cost measured(const std::function<double()>& job, int rounds = 5) {
  Cost best{1e300, 0};
  for (int round = 0; round < rounds; ++round) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    std::fflush(stdout);
    if (fork() == 0) {
      const std::size_t before = peakBytes();
      Cost cost;
      cost.seconds = job();
      cost.bytes = peakBytes() - before;
      _exit(write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
    }
    Cost cost;
    const bool isGood = read(ends[0], &cost, sizeof cost) == sizeof cost;
    close(ends[0]);
    close(ends[1]);
    wait(nullptr);
    if (!isGood) std::abort();
    if (cost.seconds < best.seconds) best = cost;
  }
  return best;
}

void report(const std::string& what, const Cost& cost, std::size_t fileBytes, std::size_t arrayBytes) {
  fmt::print("{:<44} {:>7.3f} s {:>8.0f} MB/s   peak {:>5.0f} MB = {:.2f} x arrays\n", what, cost.seconds,
             static_cast<double>(fileBytes) / 1e6 / cost.seconds, static_cast<double>(cost.bytes) / 1e6,
             static_cast<double>(cost.bytes) / static_cast<double>(arrayBytes));
}

double timed(const std::function<void()>& job) {
  const double start = now();
  job();
  return now() - start;
}

void readAll(const fs::path& path, std::vector<char>& to) {
  const int file = open(path.c_str(), O_RDONLY);
  for (std::size_t have = 0; have < to.size();) {
    const ssize_t got = read(file, to.data() + have, to.size() - have);
    if (got <= 0) std::abort();
    have += static_cast<std::size_t>(got);
  }
  close(file);
}

void benchObj(const fs::path& folder, const Model& model) {
  const fs::path path = folder / "sheet.obj", copy = folder / "copy.obj";
  facetbox::writeModel(model, path);
  const std::size_t size = fs::file_size(path), arrays = bytesOf(model);
  fmt::print("OBJ, {} triangles, {:.0f} MB, arrays {:.0f} MB\n", model.objects[0].mesh.counts.size(),
             static_cast<double>(size) / 1e6, static_cast<double>(arrays) / 1e6);
  report("  read", measured([&] { return timed([&] { facetbox::readModel(path); }); }), size, arrays);
#ifdef FACETBOX_PEER_TINYOBJLOADER
  report("  read, tinyobjloader", measured([&] {
           return timed([&] {
             tinyobj::attrib_t attributes;
             std::vector<tinyobj::shape_t> shapes;
             std::vector<tinyobj::material_t> materials;
             std::string warnings, errors;
             if (!tinyobj::LoadObj(&attributes, &shapes, &materials, &warnings, &errors, path.c_str(), nullptr, false))
               std::abort();
           });
         }),
         size, arrays);
#endif
  report("  read, Assimp", measured([&] {
           Assimp::Importer importer;
           return timed([&] {
             if (!importer.ReadFile(path.string(), 0)) std::abort();
           });
         }),
         size, arrays);
  report("  write", measured([&] { return timed([&] { facetbox::writeModel(model, copy); }); }), size, arrays);
  report("  write, Assimp",
         measured(
             [&] {
               Assimp::Importer importer;
               const aiScene* scene = importer.ReadFile(path.string(), 0);
               if (!scene) std::abort();
               return timed([&] {
                 Assimp::Exporter exporter;
                 if (exporter.Export(scene, "obj", copy.string()) != aiReturn_SUCCESS) std::abort();
               });
             },
             1),
         size, arrays);
}

/// Binary, little endian, as others write it.
void writePly(const Model& model, bool inDoubles, const fs::path& path) {
  const PolyMesh& mesh = model.objects[0].mesh;
  std::ofstream file(path, std::ios::binary);
  const char* const type = inDoubles ? "double" : "float";
  file << fmt::format(
      "ply\nformat binary_little_endian 1.0\nelement vertex {1}\nproperty {0} x\nproperty {0} y\nproperty {0} z\n"
      "element face {2}\nproperty list uchar int vertex_indices\nend_header\n",
      type, mesh.points.size() / 3, mesh.counts.size());
  std::string bytes;
  for (const double c : mesh.points) {
    const auto f = static_cast<float>(c);
    inDoubles ? bytes.append(reinterpret_cast<const char*>(&c), 8) : bytes.append(reinterpret_cast<const char*>(&f), 4);
  }
  for (std::size_t face = 0; face < mesh.counts.size(); ++face) {
    bytes.push_back(3);
    bytes.append(reinterpret_cast<const char*>(&mesh.indices[face * 3]), 12);
  }
  file << bytes;
}

void benchPly(const fs::path& folder, const Model& model, bool inDoubles) {
  const fs::path path = folder / "sheet.ply";
  writePly(model, inDoubles, path);
  const std::size_t size = fs::file_size(path), arrays = bytesOf(model);
  fmt::print("PLY, binary, {}, {} triangles, {:.0f} MB, arrays {:.0f} MB\n", inDoubles ? "doubles" : "floats",
             model.objects[0].mesh.counts.size(), static_cast<double>(size) / 1e6, static_cast<double>(arrays) / 1e6);
  report("  read", measured([&] { return timed([&] { facetbox::readModel(path); }); }), size, arrays);
  report("  the file's bytes into new memory", measured([&] {
           return timed([&] {
             std::vector<char> bytes(size);
             readAll(path, bytes);
           });
         }),
         size, arrays);
  report("  memcpy of as many bytes into new memory", measured([&] {
           std::vector<char> from(size);
           readAll(path, from);
           return timed([&] {
             const std::unique_ptr<char[]> to(new char[size]);
             std::memcpy(to.get(), from.data(), size);
             asm volatile("" ::"r"(to.get()) : "memory");
           });
         }),
         size, arrays);
  report("  read, Assimp", measured([&] {
           Assimp::Importer importer;
           return timed([&] {
             if (!importer.ReadFile(path.string(), 0)) std::abort();
           });
         }),
         size, arrays);
}

}  // namespace

int main(int argc, char** argv) {
  const fs::path parent = argc > 1 ? fs::path(argv[1]) : fs::temp_directory_path();
  std::string name = (parent / "facetbox-io-XXXXXX").string();
  if (!mkdtemp(name.data())) return 1;
  const fs::path folder = name;
  benchObj(folder, sheet(1120));
  benchPly(folder, sheet(1500), false);
  benchPly(folder, sheet(1300), true);
  fs::remove_all(folder);
}
