// The service as its clients meet it: a daemon, a client and an echo in processes of their own.

#include <cstdlib>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "Benches.h"
#include "Calls.h"
#include "fixture/Process.h"
#include "fixture/Stage.h"

namespace {

void stageOtherPrograms() {
  for (const char* program : {"diagnostics_collector_service", "service_bench_helper"})
    fixture::staged(program);
}

// The service does not run as root. Root runs a copy of this program, and of all it starts, as the service's
// user.
int runAsServiceUser(int argc, char** argv) {
  std::vector<std::string> arguments(argv, argv + argc);
  stageOtherPrograms();
  arguments[0] = fixture::staged("service_bench");
  fixture::ProcessOptions options;
  options.output = "";
  fixture::Process process(arguments, options);
  const int status = process.wait(std::chrono::hours(1)).value_or(-1);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

// Runtime directories lie in memory, as /run does; a disk's file system would be measured otherwise. The
// programs stay where they may be executed.
void useMemoryForRuntimeDirectories() {
  stageOtherPrograms();
  if (access("/dev/shm", W_OK | X_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
}

}  // namespace

int main(int argc, char** argv) {
  if (getuid() == 0) return runAsServiceUser(argc, argv);
  useMemoryForRuntimeDirectories();
  servicebench::registerTransactionBenches();
  servicebench::registerStepsBench();
  servicebench::registerIdleBenches();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
