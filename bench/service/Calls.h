// What the benchmarks of the service share: the service with its states, the echo service, and timed calls.
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

// Keeps this process, and those that it starts from now on, on the last core.
void useOneCore();
// Lets them use all cores again.
void useAllCores();

// Publishes the states of the first `processes` processes to the service of the current runtime directory,
// each key `updates` times. Ends the program if a state cannot be sent.
void publishStates(int processes = kProcesses, int updates = 1);

// Starts service_bench_helper with `arguments` in the current runtime directory, which is that of `daemon`
// unless the caller has changed it. What the helper prints goes to a file below `daemon`'s directory.
std::unique_ptr<fixture::Process> startHelper(const fixture::Daemon& daemon,
                                              std::vector<std::string> arguments);

// A running daemon with the states of all processes, and the echo service in a runtime directory of its own,
// because one process publishes in each.
class ServiceAndEcho {
 public:
  ServiceAndEcho();

  const fixture::Daemon& daemon() const { return mDaemon; }
  // Binders of the collector service, and of the helper's services "echo" and "bytes".
  static android::sp<android::IBinder> service();
  android::sp<android::IBinder> echo() const { return ofHelper("echo"); }
  android::sp<android::IBinder> bytes() const { return ofHelper("bytes"); }

 private:
  android::sp<android::IBinder> ofHelper(const char* name) const;

  fixture::Daemon mDaemon;
  test::TempDir mEchoRuntime;
  std::unique_ptr<fixture::Process> mEcho;
};

// A call that can be repeated, from any thread.
class Call {
 public:
  // These use the proxy, as clients do. `service` has the collector's interface.
  static Call oneProcess(const android::sp<android::IBinder>& service);
  static Call allProcesses(const android::sp<android::IBinder>& service);
  static Call systemContext(const android::sp<android::IBinder>& service);
  // Sends transaction `code` to the service without the proxy and does not read the reply.
  static Call unread(uint32_t code);
  // Asks the helper's service "bytes" for a reply of `size` bytes and does not read it.
  static Call plainBytes(const android::sp<android::IBinder>& bytes, size_t size);

  // Makes one round trip and returns its time in nanoseconds. Ends the program if the call fails.
  double timeNs() const;

 private:
  explicit Call(std::function<android::status_t()> call) : mCall(std::move(call)) {}

  std::function<android::status_t()> mCall;
};

// Returns the size in bytes of the service's reply to transaction `code`.
size_t replyBytes(uint32_t code);

// Returns the time that `share` (0 to 1) of the times do not exceed. `times` is not empty.
double percentile(std::vector<double> times, double share);

// Returns the monotonic clock's time.
double nowNs();

// The service does not run as root. If root runs this program, runs a copy of it, and of the service and its
// helper, as the service's user, and returns the copy's exit status. Returns nullopt for any other user.
std::optional<int> runAsServiceUser(const std::string& program, int argc, char** argv);

}  // namespace servicebench
