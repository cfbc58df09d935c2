// Counts the instructions that the service spends in user space on one call, one atom and one poll. Unlike
// times, counts are the same on a busy machine, so they can fail a change that is 15 % slower.
//
// Each measurement runs a process twice under callgrind, with few and with many repetitions. The difference
// of the counts, divided by the difference of the repetitions, is the figure: start-up and shut-down drop
// out. Prints each figure beside its limit. Returns 1 if a figure is past its limit.

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "Calls.h"
#include "fixture/Process.h"
#include "support/Limits.h"

namespace servicebench {
namespace {

constexpr char kCallgrind[] = "/usr/bin/valgrind --tool=callgrind --callgrind-out-file=/dev/null --vgdb=no ";

// Returns the count that callgrind printed into `log`. Ends the program if it printed none.
double countIn(const std::string& log) {
  constexpr char kLabel[] = "Collected : ";
  const size_t at = log.find(kLabel);
  if (at == std::string::npos) {
    fprintf(stderr, "instruction_counts: no count; the log:\n%s\n", log.c_str());
    exit(1);
  }
  return std::stod(log.substr(at + sizeof(kLabel) - 1));
}

// Runs `command` as a service under callgrind while `useIt` calls it. Correlation is off, so the service does
// nothing that nobody asked for.
double countService(const std::string& command, const std::function<void()>& useIt) {
  fixture::Daemon daemon;
  daemon.setProperties("# correlation is off\n");
  daemon.dir().write("counted", std::string("#!/bin/sh\nexec ") + kCallgrind + command + "\n");
  const std::string script = daemon.dir().path("counted");
  std::filesystem::permissions(script, std::filesystem::perms(0755));
  daemon.start(script);
  useIt();
  daemon.stop(SIGTERM);
  return countIn(daemon.log());
}

void repeat(int times, const std::function<void()>& action) {
  for (int i = 0; i < times; ++i) action();
}

double transaction1(int calls) {
  return countService(fixture::staged("diagnostics_collector_service"), [calls] {
    publishStates(1);
    const Call call = Call::oneProcess(ServiceAndEcho::service());
    repeat(calls, [&] { call.timeNs(); });
  });
}

double transaction3(int calls) {
  return countService(fixture::staged("service_bench_helper") + " histories", [calls] {
    const Call call = Call::systemContext(ServiceAndEcho::service());
    repeat(calls, [&] { call.timeNs(); });
  });
}

// Updates states that the service has already. Every call makes the service take the atoms out of statsd; the
// number of calls does not depend on `atoms`.
double atoms(int atoms) {
  constexpr int kRounds = 10;
  return countService(fixture::staged("diagnostics_collector_service"), [atoms] {
    publishStates();
    const Call call = Call::oneProcess(ServiceAndEcho::service());
    repeat(kRounds, [&] {
      publishStates(atoms / kRounds / kKeys);
      call.timeNs();
    });
  });
}

double polls(int polls) {
  const std::string command =
      kCallgrind + fixture::staged("service_bench_helper") + " poll " + std::to_string(polls);
  return countIn(fixture::run({"/bin/sh", "-c", command}).output);
}

void measure(const char* name, double (*count)(int), int few, int many, double atMost) {
  const double each = (count(many) - count(few)) / (many - few);
  const bool past = bench::isPast(each, atMost);
  printf("%-48s %12.0f  at most %12.0f%s\n", name, each, atMost, past ? "  PAST ITS LIMIT" : "");
  fflush(stdout);
}

}  // namespace
}  // namespace servicebench

int main(int argc, char** argv) {
  using namespace servicebench;
  if (const auto status = runAsServiceUser("instruction_counts", argc, argv)) return *status;
  measure("transaction 1, 20 states", transaction1, 100, 1100, 105'000);
  measure("transaction 3, seven full histories", transaction3, 5, 25, 16'500'000);
  measure("an atom, received, decoded, stored and applied", atoms, 2'000, 22'000, 4'800);
  measure("a poll of seven sources", polls, 100, 1100, 2650);
  return bench::exitStatus();
}
