// Entry of the service: options, lifecycle, orderly end on SIGTERM.

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "ATController.h"
#include "platform/descriptor.h"
#include "platform/logbase.h"
#include "platform/print.h"

namespace {

const useconds_t kAttendInterval = 500000;  // microseconds

const char kName[] = "Korvandis";
const char kVersion[] = "V1.0.0.1Build2015-01-29";

void PrintVersion() { platform::PrintOutput("%s:%s\n", kName, kVersion); }

void usage() {
  PrintVersion();
  platform::PrintOutput("  -v    get version\n");
  platform::PrintOutput("  -h    get help\n");
}

// Acts on the first option only, and then ends the process. Returns when there is none.
void get_options(int argc, char** argv) {
  const int option = ::getopt(argc, argv, "vh:");
  if (option == -1) {
    optind = 0;
    return;
  }
  if (option == 'v') {
    PrintVersion();
  } else {
    usage();
  }
  std::exit(EXIT_SUCCESS);
}

// A file that took the number of a closed standard stream would get the lines that are printed.
void HoldStandardStreams() {
  int fd;
  do {
    fd = ::open("/dev/null", O_RDWR);
  } while (fd >= 0 && fd <= STDERR_FILENO);
  const platform::Descriptor surplus(fd);  // closed again
}

// Blocks SIGTERM for this thread and those it starts, so that only WaitForTermination collects it.
bool BlockTermination(sigset_t* termination) {
  ::sigemptyset(termination);
  ::sigaddset(termination, SIGTERM);
  return ::pthread_sigmask(SIG_BLOCK, termination, nullptr) == 0;
}

bool TerminationWaits() {
  sigset_t pending;
  return ::sigpending(&pending) == 0 && ::sigismember(&pending, SIGTERM) == 1;
}

// A delivery that could not be started is tried again as often as a lost device.
void WaitForTermination(ATController* controller, const sigset_t& termination) {
  while (!controller->Attend() && !TerminationWaits()) ::usleep(kAttendInterval);
  for (;;) {
    int collected = 0;
    if (::sigwait(&termination, &collected) == 0 && collected == SIGTERM) return;
  }
}

}  // namespace

int main(int argc, char** argv) {
  HoldStandardStreams();
  get_options(argc, argv);

  // An ignored SIGCHLD, inherited from the parent process, would take the children's status away.
  ::signal(SIGCHLD, SIG_DFL);
  // The other end of standard output or error may go; that must not end the service.
  ::signal(SIGPIPE, SIG_IGN);
  // Nor must a limit on the size of the file that takes them.
  ::signal(SIGXFSZ, SIG_IGN);
  platform::WatchStreams();
  sigset_t termination;
  if (!BlockTermination(&termination)) {
    LOGBASE(LOG_LEV_DEBUG, "main", "pthread_sigmask() failed.\r\n");
    return 0;
  }

  ATController controller;
  controller.Init();
  controller.Start();
  WaitForTermination(&controller, termination);
  controller.Stop();
  controller.Close();
  return 0;
}
