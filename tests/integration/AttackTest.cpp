// Whatever another uid does, good clients are answered in time, lose nothing, and the service stays small.
// Each attack prints a row of a table. DIAG_ATTACK_SECONDS says how long each goes on (default: 2). A new
// attack is one more function in Attacker.cpp and one more name here.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/times.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <statsd/StatsEventWriter.h>

#include "base/Clock.h"
#include "fixture/Daemon.h"

namespace {

namespace fs = std::filesystem;
using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::staged;
using libstatsd::StatsEventWriter;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What is promised. Without optimisation, calls take twice as long. Under a sanitizer they take four times as
// long or more. Its allocator keeps freed memory for hundreds of megabytes, so neither peaks nor what is
// given back are judged there.
#if defined(__SANITIZE_THREAD__)
constexpr double kSlower = 100;  // times are not judged
#elif defined(__SANITIZE_ADDRESS__)
constexpr double kSlower = 4;
#elif defined(NDEBUG)
constexpr double kSlower = 1;
#else
constexpr double kSlower = 2;
#endif
constexpr bool kSanitizer = kSlower >= 4;
constexpr double kP99Ms = 100 * kSlower;
constexpr double kLongestMs = 500 * kSlower;
constexpr double kRecoveryMs = 2000 * kSlower;
constexpr long kPeakMib = 64;
constexpr long kWholeTablesPeakMib = 96;
constexpr rlim_t kDescriptors = 1024;
const auto kProcessors = static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN));

double attackSeconds() {
  const char* seconds = getenv("DIAG_ATTACK_SECONDS");
  return seconds != nullptr ? strtod(seconds, nullptr) : 2;
}

double msSince(steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(steady_clock::now() - start).count();
}

// How long each call took, and how many failed.
struct Calls {
  std::vector<double> ms;
  int failed = 0;

  // Calls again and again, with a pause after each call, until `stop` is set. `call` gets the number of the
  // call.
  void makeUntil(const std::atomic<bool>& stop, milliseconds pause, const std::function<bool(int)>& call) {
    for (int i = 0; !stop; ++i) {
      const auto start = steady_clock::now();
      failed += call(i) ? 0 : 1;
      ms.push_back(msSince(start));
      std::this_thread::sleep_for(pause);
    }
  }
  double quantile(double share) {
    std::sort(ms.begin(), ms.end());
    return ms.empty() ? 0 : ms[static_cast<size_t>(share * static_cast<double>(ms.size() - 1))];
  }
};

struct Row {
  Calls kept;  // of a client that keeps its connection
  Calls anew;  // of clients that look the service up, call once and go
  size_t files = 0;
  double peakMib = 0;
  double recoveryMs = 0;
  double others = 0;     // the share of the processors' time that other programs took
  std::string attacker;  // what it printed

  // Returns the bound for a time of this row: what is promised for processors that the attack, the service
  // and its clients have to themselves, and proportionally more if they get only a part of them.
  double bound(double promisedMs) const { return promisedMs / (1 - std::min(others, 0.9)); }

  bool isLate() {
    return kept.quantile(0.99) > bound(kP99Ms) || kept.quantile(1) > bound(kLongestMs) ||
           anew.quantile(1) > bound(kLongestMs) || recoveryMs > bound(kRecoveryMs);
  }
  void print(const std::string& attack) {
    [[maybe_unused]] static const int kHeader = printf(
        "| attack | calls | p99 | longest | new client's p99 | longest | files | memory peak | recovery | "
        "others' processor time |\n");
    printf(
        "| %-17s | %5zu | %6.1f ms | %6.1f ms | %6.1f ms | %6.1f ms | %4zu | %5.1f MiB | %4.0f ms | %3.0f %% "
        "|\n",
        attack.c_str(), kept.ms.size(), kept.quantile(0.99), kept.quantile(1), anew.quantile(0.99),
        anew.quantile(1), files, peakMib, recoveryMs, others * 100);
    fflush(stdout);
  }
};

std::string procFile(pid_t pid, const std::string& name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

// A number from /proc/<pid>/status, in the unit that it has there.
long statusOf(pid_t pid, const std::string& field) {
  const std::string text = test::readFile(procFile(pid, "status"));
  return std::stol(text.substr(text.find("\n" + field + ":") + field.size() + 2));
}

// The processor time since boot, in seconds, that went neither to `daemon` nor to this process or its
// children that have ended: other programs took it, or it was lost in waiting for a disk.
double othersSeconds(pid_t daemon) {
  double up = 0;
  double idle = 0;
  std::istringstream(test::readFile("/proc/uptime")) >> up >> idle;
  clockid_t clock{};
  timespec served{};
  clock_getcpuclockid(daemon, &clock);
  clock_gettime(clock, &served);
  tms own{};
  times(&own);
  const auto ticks = own.tms_utime + own.tms_stime + own.tms_cutime + own.tms_cstime;
  return up * kProcessors - idle - static_cast<double>(Torv::Base::toNanoseconds(served)) / 1e9 -
         static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

size_t openFiles(pid_t pid) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(procFile(pid, "fd")), {}));
}

// A busy machine can leave the service's queue full for longer than the writer waits.
void publishSurely(StatsEventWriter& writer, int pid, const std::string& key, const std::string& value) {
  while (writer.publishApplicationState(pid, key, value) != libstatsd::WriteResult::Sent) {
  }
}

class AttackTest : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (getuid() != 0) GTEST_SKIP() << "only root can play two users";
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = kDescriptors;  // the daemon inherits it
    setrlimit(RLIMIT_NOFILE, &limit);
  }

  // The service ends in good order, which also lets a sanitizer look for leaks.
  void TearDown() override {
    if (IsSkipped()) return;
    EXPECT_EQ(daemon.stop(SIGTERM), 0) << daemon.log();
  }

  // Starts the daemon with 300 KB of states.
  void serve() {
    daemon.start(staged("stoppable_service"));
    for (int i = 0; i < 100; ++i) publishState(std::string(3000, 'x'));
  }

  void publishState(const std::string& value) {
    fixture::actAs(fixture::reporterUid(),
                   [&] { publishSurely(writer, getpid(), "key " + std::to_string(published++), value); });
  }

  // Plays an attack beside good clients, prints its row, and checks what is promised. A row whose times are
  // too long is played once more, because another program may have taken the processors.
  Row play(const std::string& attack, const std::string& name, long peakMib = kPeakMib) {
    Row row = playOnce(attack, name);
    if (row.isLate()) {
      printf("That was too late. The row once more:\n");
      row = playOnce(attack, name);
    }
    EXPECT_EQ(row.kept.failed + row.anew.failed, 0) << name;
    EXPECT_GE(row.kept.ms.size(), kSlower > 4 ? 1u : 3u) << name << ": each query once";
    EXPECT_FALSE(row.isLate()) << name;
    EXPECT_LE(row.files, kDescriptors - 64) << name;
    EXPECT_TRUE(kSanitizer || row.peakMib <= static_cast<double>(peakMib)) << name << ": " << row.peakMib;
    EXPECT_EQ(Daemon::statesOf(getpid()).size(), published) << name << ": the good publisher's states";
    EXPECT_TRUE(daemon.process().running()) << name;
    return row;
  }

  Row playOnce(const std::string& attack, const std::string& name) {
    const pid_t pid = daemon.process().pid();
    const long threads = statusOf(pid, "Threads");
    const long residentKib = statusOf(pid, "VmRSS");
    const size_t files = openFiles(pid);
    std::ofstream(procFile(pid, "clear_refs")) << "5";  // the peak starts anew
    const auto start = steady_clock::now();
    const double others = othersSeconds(pid);
    Row row;
    {
      fixture::ProcessOptions options = daemon.client(fixture::applicationUid());
      options.output = daemon.dir().path("attacker.log");
      fs::remove(options.output);
      const fixture::Process attacker({staged("attacker"), attack}, options);
      EXPECT_TRUE(fixture::eventually([&] {
        row.attacker = test::readFile(options.output);
        return row.attacker.find("ready\n") != std::string::npos;
      })) << attack;
      beGood(row);
    }
    // What may stay: the thread of the one-way calls, the connections of this process and a few new states.
    const auto end = steady_clock::now();
    EXPECT_TRUE(fixture::eventually([&] {
      return statusOf(pid, "Threads") <= threads + 3 && openFiles(pid) <= files + 2 &&
             (kSanitizer || statusOf(pid, "VmRSS") <= residentKib + residentKib / 10 + 4096);
    })) << attack
        << " leaves threads, descriptors or memory behind";
    row.recoveryMs = msSince(end);
    row.others = std::max((othersSeconds(pid) - others) / (msSince(start) / 1000 * kProcessors), 0.0);
    row.peakMib = static_cast<double>(statusOf(pid, "VmHWM")) / 1024;
    row.print(name);
    return row;
  }

  // Calls and publishes as good clients do, for the time of an attack.
  void beGood(Row& row) {
    std::atomic<bool> stop = false;
    // All three queries in turn, over one kept connection.
    std::thread keeper([&] {
      row.kept.makeUntil(stop, milliseconds(5), [collector = Daemon::collector()](int i) {
        PersistableBundle reply;
        if (i % 3 == 0) return collector->getAllAvailableApplicationStateData(&reply).isOk();
        if (i % 3 == 1) return collector->getSystemContextData(&reply).isOk();
        return collector->getApplicationStateDataForProcess(getpid(), String16("test"), &reply).isOk() &&
               !reply.empty();
      });
    });
    // A connection belongs to a thread.
    std::thread newcomers([&] {
      row.anew.makeUntil(stop, milliseconds(20), [](int) {
        const auto call = [] {
          const auto service = Daemon::binder(fixture::IDiagnosticsCollectorService::kServiceName);
          return service != nullptr && service->pingBinder() == android::OK;
        };
        return std::async(std::launch::async, call).get();
      });
    });
    for (const auto start = steady_clock::now(); msSince(start) < attackSeconds() * 1000;) {
      publishState("value");
      row.files = std::max(row.files, openFiles(daemon.process().pid()));
      std::this_thread::sleep_for(milliseconds(100));
    }
    stop = true;
    keeper.join();
    newcomers.join();
  }

  Daemon daemon;
  StatsEventWriter writer;
  size_t published = 0;  // keys of this process
};

// --- the carrier -------------------------------------------------------------------------------------------

TEST_P(AttackTest, onTheCarrierLeavesGoodClientsTheirAnswers) {
  serve();
  play(GetParam(), GetParam());
}

INSTANTIATE_TEST_SUITE_P(Carrier, AttackTest,
                         testing::Values("nothing", "silentConnections", "connectSpin", "halfFrames",
                                         "slowReaders", "pipelinedCalls", "oneWayFlood", "connectSendClose",
                                         "malformedFrames", "killedCallers"),
                         [](const auto& info) { return std::string(info.param); });

// --- the black box -----------------------------------------------------------------------------------------

// 136 keys of 15 characters with three values of 15 characters: 8 KiB.
constexpr size_t kKeys = 136;

void publishEightKiB(StatsEventWriter& writer, int pid) {
  for (int value = 100'000; value < 100'003; ++value) {
    for (size_t key = 0; key < kKeys; ++key) {
      const auto name = std::to_string(100'000'000'000'000 + pid * 1000LL + static_cast<long>(key));
      publishSurely(writer, pid, name, "a fairly " + std::to_string(value));
    }
  }
  EXPECT_EQ(Daemon::statesOf(pid).size(), kKeys);  // a query fetches, so that no atom is lost in statsd
}

// The black box is full: beside twenty processes that only exist, with 8 KiB of states each, 2,000 invented
// pids hold as much.
TEST_F(AttackTest, onTheBlackBoxLeavesOthersTheirStatesAndTheDaemonBelowItsBound) {
  serve();
  std::deque<fixture::Process> processes;
  for (int i = 0; i < 20; ++i) processes.emplace_back(std::vector<std::string>{"/bin/sleep", "100000"});
  fixture::actAs(fixture::reporterUid(), [&] {
    for (const fixture::Process& process : processes) publishEightKiB(writer, process.pid());
    for (int pid = 1'000'000; pid < 1'002'000; ++pid) publishEightKiB(writer, pid);
  });
  for (const std::string attack :
       {"uniqueKeys", "inventedPids", "largeProcess", "atomsOfOneKey", "wholeTableCalls"}) {
    play(attack, attack, attack == "wholeTableCalls" ? kWholeTablesPeakMib : kPeakMib);
    for (const fixture::Process& process : processes) {
      EXPECT_EQ(Daemon::statesOf(process.pid()).size(), kKeys) << "after " << attack;
    }
  }
  EXPECT_TRUE(daemon.logs("The black box dropped or refused"));
}

// --- files and the log -------------------------------------------------------------------------------------

TEST_F(AttackTest, onLockFilesStopsNothing) {
  const auto leave = [this](const char* name, const std::string& text, mode_t mode) {
    const std::string path = daemon.dir().write(std::string("runtime/") + name, text);
    ASSERT_EQ(chown(path.c_str(), fixture::serviceUid(), -1) + chmod(path.c_str(), mode), 0);
  };
  for (const char* name : {"lock", "properties.lock", "preferences.lock", "telemetry.lock"}) {
    leave(name, "", 0666);  // as if an older service had left it
  }
  leave("telemetry.jsonl", std::string(4 << 20, '\n'), 0644);  // the next line rotates it
  daemon.start(staged("stoppable_service"));
  const std::string rotated = daemon.runtime("telemetry.jsonl.1");
  const Row refused = play("heldLocks", "heldLocks");
  EXPECT_EQ(refused.attacker, "ready\n") << "it could open them";
  EXPECT_TRUE(fs::exists(rotated));
  // If it has opened the file before, it can hold it. Then the rotation waits, and nobody else.
  fs::remove(rotated);
  leave("telemetry.jsonl", std::string(4 << 20, '\n'), 0644);
  ASSERT_EQ(chmod(daemon.runtime("telemetry.lock").c_str(), 0666), 0);
  const Row held = play("heldLocks", "heldRotation");
  EXPECT_EQ(held.attacker, "holds telemetry.lock\nready\n");
  EXPECT_TRUE(
      fixture::eventually([&] { return Daemon::statesOf(getpid()).size() > 0 && fs::exists(rotated); }));
}

TEST_F(AttackTest, onALogThatNobodyReadsStopsNothing) {
  const std::string log = daemon.dir().path("service.log");
  ASSERT_EQ(mkfifo(log.c_str(), 0600) + chown(log.c_str(), fixture::serviceUid(), -1), 0);
  const android::base::unique_fd pipe(open(log.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  serve();
  for (const std::string line(4096, '\n'); write(pipe.get(), line.data(), line.size()) > 0;) {
  }
  play("oneWayFlood", "fullStderrPipe");
  fs::remove(log);  // reading it would wait
}

TEST_F(AttackTest, onAPipeInPlaceOfPropertiesStopsNothing) {
  serve();
  const std::string properties = daemon.runtime("properties");
  ASSERT_TRUE(fs::remove(properties) && mkfifo(properties.c_str(), 0666) == 0);
  play("contextCalls", "pipeAsProperties");
  EXPECT_EQ(daemon.countInLog("properties is not a regular file"), 1u) << daemon.log();
}

}  // namespace
