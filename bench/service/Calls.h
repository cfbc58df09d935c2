// What the benchmarks of the service share: the service with its data, the echo beside it, and timed calls.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "Data.h"
#include "fixture/Daemon.h"

namespace servicebench {

// Pins this process, and those it starts from now on, to one core; or frees it for all.
void useOneCore();
void useAllCores();

// Publishes 300 processes of 20 keys to the service of the current runtime directory.
void publishStates();

// The daemon with those states, and the echo service in the same directory.
class Scene {
 public:
  Scene();

  std::unique_ptr<fixture::Process> helper(std::vector<std::string> arguments) const;

 private:
  fixture::Daemon mDaemon;
  std::unique_ptr<fixture::Process> mEcho;
};

// A call that can be made again and again, from any thread.
class Call {
 public:
  // Through the real proxy to a service with the collector's interface: for one process, or for all.
  static Call forOne(const char* service);
  static Call forAll(const char* service);
  // Transaction `code` of the service, without a proxy: the reply is not unpacked.
  static Call unread(uint32_t code);
  // To the service "bytes", without a proxy: a reply of so many bytes that nobody reads.
  static Call forBytes(size_t size);

  // One round trip, in nanoseconds; a failed one ends the benchmark.
  double timeNs() const;

 private:
  explicit Call(std::function<android::status_t()> call) : mCall(std::move(call)) {}

  std::function<android::status_t()> mCall;
};

// The size of what the service replies to transaction `code`.
size_t replyBytes(uint32_t code);

// Of sorted or unsorted times, the one below which `share` of them lie.
double percentile(std::vector<double> times, double share);

double nowNs();

// A round's length, short where DIAG_BENCH_ONCE is set.
int rounds(int full);

}  // namespace servicebench
