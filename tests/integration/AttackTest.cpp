// Whatever another uid does, a good client is answered in time. DIAG_ATTACK_SECONDS says how long each attack
// goes on (default: 3). Each test prints a row of a table; a new attack is one more name here and one more
// function in Attacker.cpp.

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::staged;
using std::chrono::duration;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What is promised. Under a sanitizer, the calls themselves take several times as long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr double kSlower = 4;
#else
constexpr double kSlower = 1;
#endif
constexpr double kP99Ms = 100 * kSlower;
constexpr double kLongestMs = 500 * kSlower;

double attackSeconds() {
  const char* seconds = getenv("DIAG_ATTACK_SECONDS");
  return seconds != nullptr ? strtod(seconds, nullptr) : 3;
}

double msSince(steady_clock::time_point start) {
  return duration<double, std::milli>(steady_clock::now() - start).count();
}

// How long each call took, and how many failed.
struct Calls {
  std::vector<double> ms;
  int failed = 0;

  void time(const std::function<bool()>& call) {
    const auto start = steady_clock::now();
    failed += call() ? 0 : 1;
    ms.push_back(msSince(start));
  }
  double quantile(double share) {
    std::sort(ms.begin(), ms.end());
    return ms.empty() ? 0 : ms[static_cast<size_t>(share * static_cast<double>(ms.size() - 1))];
  }
};

// A number from /proc/<pid>/status, in the unit that it has there.
long statusOf(pid_t pid, const std::string& field) {
  std::istringstream status(test::readFile("/proc/" + std::to_string(pid) + "/status"));
  for (std::string name; status >> name;) {
    long value = 0;
    if (name == field + ":" && status >> value) return value;
    status.ignore(1000, '\n');
  }
  throw std::runtime_error("no " + field);
}

size_t openFiles(pid_t pid) {
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(pid) + "/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

class AttackTest : public testing::TestWithParam<const char*> {
 protected:
  static constexpr rlim_t kDescriptors = 1024;

  AttackTest() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = kDescriptors;  // the daemon inherits it
    setrlimit(RLIMIT_NOFILE, &limit);
    daemon.start();
    for (int i = 0; i < 100; ++i) {
      EXPECT_TRUE(fixture::publish(getpid(), "key " + std::to_string(i), std::string(3000, 'x')));
    }
  }

  // All three queries in turn, over one kept connection.
  void callOn(std::atomic<bool>& stop, Calls* calls) const {
    const auto collector = daemon.collector();
    for (int i = 0; !stop; ++i) {
      calls->time([&] {
        PersistableBundle reply;
        if (i % 3 == 0) return collector->getAllAvailableApplicationStateData(&reply).isOk();
        if (i % 3 == 1) return collector->getSystemContextData(&reply).isOk();
        return collector->getApplicationStateDataForProcess(getpid(), String16("test"), &reply).isOk() &&
               !reply.empty();
      });
      std::this_thread::sleep_for(milliseconds(5));
    }
  }

  // Clients that look the service up, call once and go.
  static void callAnew(std::atomic<bool>& stop, Calls* calls) {
    while (!stop) {
      std::thread([&] {
        calls->time([] {
          const auto service = Daemon::binder(fixture::IDiagnosticsCollectorService::kServiceName);
          return service != nullptr && service->pingBinder() == android::OK;
        });
      }).join();
      std::this_thread::sleep_for(milliseconds(20));
    }
  }

  Daemon daemon;
};

TEST_P(AttackTest, leavesGoodClientsTheirAnswers) {
  const pid_t pid = daemon.process().pid();
  const long threadsBefore = statusOf(pid, "Threads");
  const size_t filesBefore = openFiles(pid);
  Calls kept;
  Calls anew;
  size_t files = 0;
  steady_clock::time_point end;
  {
    fixture::ProcessOptions options = daemon.client(fixture::applicationUid());
    options.output = daemon.dir().path("attacker.log");
    const fixture::Process attacker({staged("attacker"), GetParam()}, options);
    ASSERT_TRUE(fixture::eventually([&] { return test::readFile(options.output).find("ready") == 0; }));
    std::atomic<bool> stop = false;
    std::thread keeper([&] { callOn(stop, &kept); });
    std::thread newcomer([&] { callAnew(stop, &anew); });
    for (const auto start = steady_clock::now(); msSince(start) < attackSeconds() * 1000;) {
      files = std::max(files, openFiles(pid));
      std::this_thread::sleep_for(milliseconds(100));
    }
    stop = true;
    keeper.join();
    newcomer.join();
    end = steady_clock::now();
  }
  // The connections of this process may stay.
  const bool recovered = fixture::eventually(
      [&] { return statusOf(pid, "Threads") <= threadsBefore + 2 && openFiles(pid) <= filesBefore + 2; });
  printf("| %-18s | %5zu | %6.1f ms | %6.1f ms | %6.1f ms | %6.1f ms | %4zu | %5.1f MiB | %4.0f ms |\n",
         GetParam(), kept.ms.size(), kept.quantile(0.99), kept.quantile(1), anew.quantile(0.99),
         anew.quantile(1), files, static_cast<double>(statusOf(pid, "VmHWM")) / 1024, msSince(end));
  EXPECT_EQ(kept.failed + anew.failed, 0);
  EXPECT_GE(kept.ms.size(), 10u);
  EXPECT_LE(kept.quantile(0.99), kP99Ms);
  EXPECT_LE(kept.quantile(1), kLongestMs);
  EXPECT_LE(anew.quantile(1), kLongestMs);
  EXPECT_LE(files, kDescriptors - 64);
  EXPECT_TRUE(recovered);
  EXPECT_TRUE(daemon.process().running()) << daemon.log();
}

INSTANTIATE_TEST_SUITE_P(Carrier, AttackTest,
                         testing::Values("nothing", "silentConnections", "connectSpin", "halfFrames",
                                         "slowReaders", "pipelinedCalls", "oneWayFlood", "connectSendClose",
                                         "malformedFrames", "killedCallers"),
                         [](const auto& info) { return std::string(info.param); });

class TableHeader : public testing::Environment {
  void SetUp() override {
    printf(
        "| attack | calls | p99 | longest | new client's p99 | longest | files | memory peak | recovery |\n");
  }
};
const auto* const kHeader = testing::AddGlobalTestEnvironment(new TableHeader);

}  // namespace
