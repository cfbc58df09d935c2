// The service as its clients use it: the daemon, a client and an echo service, each a process.

#include <cstdlib>

#include <unistd.h>

#include <android/log.h>

#include "Benches.h"
#include "Calls.h"
#include "support/Limits.h"

int main(int argc, char** argv) {
  if (const auto status = servicebench::runAsServiceUser("service_bench", argc, argv)) return *status;
  // Runtime directories lie in memory, as /run does, because a disk's file system takes longer. The programs
  // were copied before, to a file system that allows execution.
  if (access("/dev/shm", W_OK | X_OK) == 0) setenv("TMPDIR", "/dev/shm", 1);
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  servicebench::registerTransactionBenches();
  servicebench::registerStepsBench();
  servicebench::registerMemoryBenches();
  servicebench::registerRecordBench();
  return bench::runAll(argc, argv);
}
