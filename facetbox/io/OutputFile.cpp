#include <facetbox/io/OutputFile.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <facetbox/io/files.h>

namespace facetbox {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void failToWrite(const std::string& path, int error) {
  throw WriteError(fmt::format("{}: cannot be written: {}", path, std::generic_category().message(error)));
}

// Standard output may be a regular file that another process appends to, so its own descriptor is used.
constexpr std::string_view kStandardOutput = "/dev/stdout";

// A temporary file that exists, for a signal handler: plain memory, valid while the flag is set.
struct Slot {
  std::atomic<bool> isTaken{false};
  std::atomic<bool> isValid{false};
  std::array<char, PATH_MAX> path{};
};
static_assert(std::atomic<bool>::is_always_lock_free);
std::array<Slot, 64> slots;

// Blocks all signals of this thread while the file and its record change together.
class SignalBlock {
 public:
  SignalBlock() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &mOld);
  }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &mOld, nullptr); }

 private:
  sigset_t mOld;
};

// -1 when all are taken: then a signal leaves the file behind.
int recordUnfinished(const std::string& path) {
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (path.size() >= slots[i].path.size() || slots[i].isTaken.exchange(true)) continue;
    std::memcpy(slots[i].path.data(), path.c_str(), path.size() + 1);
    slots[i].isValid = true;
    return static_cast<int>(i);
  }
  return -1;
}

void forgetUnfinished(int slot) {
  if (slot < 0) return;
  slots[static_cast<std::size_t>(slot)].isValid = false;
  slots[static_cast<std::size_t>(slot)].isTaken = false;
}

// The file behind symbolic links, which need not exist yet.
fs::path behindLinks(fs::path path) {
  std::error_code error;
  for (int links = 0; links < 40 && fs::is_symlink(path, error); ++links)
    path = path.parent_path() / fs::read_symlink(path, error);  // an absolute one stands for itself
  return path;
}

// A new file under a name that begins like this. Unlike mkstemp(), it gets the mode of any new file.
int createBeside(std::string& path) {
  static std::atomic<unsigned> count{std::random_device()()};
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string candidate = fmt::format("{}.{:x}-{:x}", path, getpid(), ++count);
    const int descriptor = open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0 && errno == EEXIST) continue;
    path = candidate;
    return descriptor;
  }
  return -1;
}

fs::path folderOf(const fs::path& path) { return path.has_parent_path() ? path.parent_path() : fs::path("."); }

}  // namespace

bool isSpecialFile(const fs::path& path) {
  if (path == kStandardOutput) return true;
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

void checkWritable(const fs::path& path) {
  if (isSpecialFile(path)) return;
  const fs::path target = behindLinks(path);
  std::error_code error;
  if (fs::is_directory(target, error)) failToWrite(path.string(), EISDIR);
  if (access(folderOf(target).c_str(), W_OK | X_OK) != 0) failToWrite(path.string(), errno);
}

void writeFile(const fs::path& path, std::string_view bytes) {
  OutputFile file(path);
  file.append(bytes);
  file.commit();
}

void removeUnfinishedFiles() noexcept {
  for (Slot& slot : slots) {
    if (slot.isValid) unlink(slot.path.data());
  }
}

OutputFile::OutputFile(const fs::path& path) : mPath(path.string()) {
  if (mPath == kStandardOutput)
    mDescriptor = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  else if (isSpecialFile(path))
    mDescriptor = open(mPath.c_str(), O_WRONLY | O_CLOEXEC);
  else
    openTemporary();
  if (mDescriptor < 0) failToWrite(mPath, errno);
}

void OutputFile::openTemporary() {
  checkWritable(mPath);
  const fs::path target = behindLinks(mPath);
  mTarget = target.string();
  // Names may be as long as the system allows.
  const std::string start = target.filename().string().substr(0, 200);
  mTemporary = (folderOf(target) / fmt::format(".{}", start)).string();
  const SignalBlock block;
  mDescriptor = createBeside(mTemporary);
  if (mDescriptor >= 0) mSlot = recordUnfinished(mTemporary);
}

OutputFile::~OutputFile() {
  const SignalBlock block;
  if (mDescriptor >= 0) close(mDescriptor);
  if (mDescriptor >= 0 && !mTemporary.empty()) unlink(mTemporary.c_str());
  forgetUnfinished(mSlot);
}

void OutputFile::append(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(mDescriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) failToWrite(mPath, errno);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void OutputFile::commit() {
  struct stat status = {};  // of the file that is replaced
  if (!mTemporary.empty() && stat(mTarget.c_str(), &status) == 0 && fchmod(mDescriptor, status.st_mode & 07777) != 0)
    failToWrite(mPath, errno);
  const SignalBlock block;
  const int closed = close(std::exchange(mDescriptor, -1));
  const int error = errno;
  if (mTemporary.empty()) {
    if (closed != 0) failToWrite(mPath, error);
    return;
  }
  const bool isDone = closed == 0 && std::rename(mTemporary.c_str(), mTarget.c_str()) == 0;
  const int finalError = closed != 0 ? error : errno;
  if (!isDone) unlink(mTemporary.c_str());
  forgetUnfinished(std::exchange(mSlot, -1));
  if (!isDone) failToWrite(mPath, finalError);
}

}  // namespace facetbox
