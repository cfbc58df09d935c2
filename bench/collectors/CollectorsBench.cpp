// Polls and dumps of the collectors, each against reference code that does the same work with the least
// effort.
#include <android/log.h>

#include "Benches.h"
#include "support/Limits.h"

int main(int argc, char** argv) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  bench::registerPollBenches();
  bench::registerDumpBenches();
  return bench::runAll(argc, argv);
}
