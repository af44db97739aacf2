#include <exception>

#include <signal.h>

#include <facetbox/io/files.h>
#include <tools/Errors.h>
#include <tools/commands/CommandLine.h>

namespace {

extern "C" void removeUnfinishedAndEnd(int signalNumber) {
  facetbox::removeUnfinishedFiles();
  // The handler runs only once: now the signal has its default effect.
  raise(signalNumber);
}

void catchEndingSignals() {
  for (const int signalNumber : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction old = {}, action = {};
    sigaction(signalNumber, nullptr, &old);
    // A signal that was ignored at the start stays ignored, as nohup expects.
    if (old.sa_handler == SIG_IGN) continue;
    action.sa_handler = removeUnfinishedAndEnd;
    action.sa_flags = SA_RESETHAND;
    sigaction(signalNumber, &action, nullptr);
  }
}

}  // namespace

int main(int argc, char** argv) {
  catchEndingSignals();
  try {
    return tool::runCommandLine(argc, argv);
  } catch (const std::exception& error) {
    tool::complain(tool::textOf(error));
    return tool::exitCodeOf(error);
  }
}
