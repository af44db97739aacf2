#include <facetbox/io/InputFile.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <facetbox/io/files.h>

namespace facetbox {
namespace {

class Descriptor {
 public:
  explicit Descriptor(const char* path) : mNumber(open(path, O_RDONLY | O_CLOEXEC)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (mNumber >= 0) close(mNumber);
  }
  int number() const { return mNumber; }

 private:
  int mNumber;
};

}  // namespace

util::Buffer<char> readBytes(const std::filesystem::path& path) {
  const auto fail = [&](int error) {
    throw ReadError(fmt::format("{}: cannot be read: {}", path.string(), std::generic_category().message(error)));
  };
  const Descriptor file(path.c_str());
  struct stat status = {};
  if (file.number() < 0 || fstat(file.number(), &status) != 0) fail(errno);
  if (S_ISDIR(status.st_mode)) fail(EISDIR);
  // One more than expected, so that the end shows without growing.
  util::Buffer<char> bytes;
  std::size_t have = 0;
  const std::size_t expected = S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
  for (;;) {
    if (have == bytes.size()) bytes.resize(std::max({expected + 1, bytes.size() * 2, std::size_t{1} << 16}));
    const ssize_t got = read(file.number(), bytes.data() + have, bytes.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) fail(errno);
    if (got == 0) break;
    have += static_cast<std::size_t>(got);
  }
  bytes.resize(have);
  if (bytes.empty()) throw ReadError(fmt::format("{}: is empty; there is nothing to read", path.string()));
  return bytes;
}

std::string readFile(const std::filesystem::path& path) {
  const util::Buffer<char> bytes = readBytes(path);
  return {bytes.begin(), bytes.end()};
}

}  // namespace facetbox
