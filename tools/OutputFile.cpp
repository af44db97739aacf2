#include <tools/OutputFile.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <tools/Errors.h>

namespace tool {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void failToWrite(const std::string& path, int error) {
  throw RunError(fmt::format("{}: cannot be written: {}", path, systemErrorText(error)));
}

// The temporary file, for the signal handler: plain memory, valid while the flag is set.
std::array<char, PATH_MAX> temporaryPath;
volatile sig_atomic_t temporaryExists = 0;

extern "C" void removeTemporaryAndEnd(int signalNumber) {
  if (temporaryExists) unlink(temporaryPath.data());
  // The handler runs only once: now the signal has its default effect.
  raise(signalNumber);
}

// Standard output may be a regular file that another process appends to, so its own descriptor is used.
constexpr std::string_view kStandardOutput = "/dev/stdout";

constexpr std::array<int, 3> kEndingSignals = {SIGHUP, SIGINT, SIGTERM};

// Blocks the ending signals while the temporary file and its record are updated together.
class SignalBlock {
 public:
  SignalBlock() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signalNumber : kEndingSignals) sigaddset(&set, signalNumber);
    pthread_sigmask(SIG_BLOCK, &set, &mOld);
  }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &mOld, nullptr); }

 private:
  sigset_t mOld;
};

class TemporaryFile {
 public:
  explicit TemporaryFile(const fs::path& target) : mTarget(target.string()) {
    const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
    mPath = (directory / fmt::format(".{}.XXXXXX", target.filename().string())).string();
    if (mPath.size() >= temporaryPath.size()) failToWrite(mTarget, ENAMETOOLONG);
    const SignalBlock block;
    mDescriptor = mkostemp(mPath.data(), O_CLOEXEC);
    if (mDescriptor < 0) failToWrite(mTarget, errno);
    std::memcpy(temporaryPath.data(), mPath.c_str(), mPath.size() + 1);
    temporaryExists = 1;
    for (std::size_t i = 0; i < kEndingSignals.size(); ++i) catchSignal(kEndingSignals[i], mOldActions[i]);
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    const SignalBlock block;
    if (mDescriptor >= 0) close(mDescriptor);
    if (!mCommitted) unlink(mPath.c_str());
    temporaryExists = 0;
    for (std::size_t i = 0; i < kEndingSignals.size(); ++i) sigaction(kEndingSignals[i], &mOldActions[i], nullptr);
  }

  int descriptor() const { return mDescriptor; }

  void commit() {
    const SignalBlock block;
    const int closed = close(mDescriptor);
    mDescriptor = -1;
    if (closed != 0 || std::rename(mPath.c_str(), mTarget.c_str()) != 0) failToWrite(mTarget, errno);
    mCommitted = true;
  }

 private:
  static void catchSignal(int signalNumber, struct sigaction& old) {
    sigaction(signalNumber, nullptr, &old);
    // A signal that was ignored at the start stays ignored, as nohup expects.
    if (old.sa_handler == SIG_IGN) return;
    struct sigaction action = {};
    action.sa_handler = removeTemporaryAndEnd;
    action.sa_flags = SA_RESETHAND;
    sigaction(signalNumber, &action, nullptr);
  }

  std::string mTarget;
  std::string mPath;
  int mDescriptor = -1;
  bool mCommitted = false;
  std::array<struct sigaction, kEndingSignals.size()> mOldActions = {};
};

void writeAll(int descriptor, std::string_view text, const std::string& path) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) failToWrite(path, errno);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

// The mode of a new file, or of the one to be replaced.
mode_t modeFor(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) return status.st_mode & 07777;
  const mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

void writeSpecialFile(const std::string& path, std::string_view text) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor < 0) failToWrite(path, errno);
  try {
    writeAll(descriptor, text, path);
  } catch (...) {
    close(descriptor);
    throw;
  }
  if (close(descriptor) != 0) failToWrite(path, errno);
}

// The file behind symbolic links, or the path itself when there is none yet.
fs::path behindLinks(const std::string& path) {
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  return error ? fs::path(path) : real;
}

}  // namespace

bool isSpecialFile(const std::string& path) {
  if (path == kStandardOutput) return true;
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  return fs::exists(status) && !fs::is_regular_file(status) && !fs::is_directory(status);
}

void checkWritable(const std::string& path) {
  if (isSpecialFile(path)) return;
  const fs::path target = behindLinks(path);
  const fs::path directory = target.has_parent_path() ? target.parent_path() : fs::path(".");
  std::error_code error;
  if (fs::is_directory(target, error)) failToWrite(path, EISDIR);
  if (access(directory.c_str(), W_OK | X_OK) != 0) failToWrite(path, errno);
}

void writeFile(const std::string& path, std::string_view text) {
  if (path == kStandardOutput) {
    writeAll(STDOUT_FILENO, text, path);
    return;
  }
  if (isSpecialFile(path)) {
    writeSpecialFile(path, text);
    return;
  }
  TemporaryFile file(behindLinks(path));
  writeAll(file.descriptor(), text, path);
  if (fchmod(file.descriptor(), modeFor(path)) != 0) failToWrite(path, errno);
  file.commit();
}

}  // namespace tool
