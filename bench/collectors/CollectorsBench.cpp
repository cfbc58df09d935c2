// What polls and dumps of the collectors cost, beside the least that the same work can cost.
#include <android/log.h>

#include "Benches.h"
#include "support/Compare.h"

int main(int argc, char** argv) {
  __android_log_set_minimum_priority(ANDROID_LOG_WARN);
  benchmark::Initialize(&argc, argv);
  bench::registerPollBenches();
  bench::registerDumpBenches();
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
