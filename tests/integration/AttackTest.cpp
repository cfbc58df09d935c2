// Whatever another uid does, good clients are answered in time, lose nothing, and the service stays small.
// Each attack prints a row of a table. DIAG_ATTACK_SECONDS says how long each goes on (default: 2). A new
// attack is one more function in Attacker.cpp and one more name here.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>
#include <gtest/gtest.h>
#include <statsd/StatsEventWriter.h>
#include <statsd/StatsdStatus.h>

#include "fixture/Daemon.h"

namespace {

namespace fs = std::filesystem;
using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using fixture::staged;
using libstatsd::StatsEventWriter;
using std::chrono::duration;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

// What is promised. Without optimisation, calls take twice as long. Under a sanitizer they take four times as
// long. Its allocator keeps freed memory for hundreds of megabytes, so neither peaks nor what is given back
// are judged there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizer = true;
constexpr double kSlower = 4;
#else
constexpr bool kSanitizer = false;
#if defined(NDEBUG)
constexpr double kSlower = 1;
#else
constexpr double kSlower = 2;
#endif
#endif
constexpr double kP99Ms = 100 * kSlower;
constexpr double kLongestMs = 500 * kSlower;
constexpr double kRecoveryMs = 2000 * kSlower;
constexpr long kPeakMib = 64;
constexpr long kWholeTablesPeakMib = 96;
constexpr rlim_t kDescriptors = 1024;

double attackSeconds() {
  const char* seconds = getenv("DIAG_ATTACK_SECONDS");
  return seconds != nullptr ? strtod(seconds, nullptr) : 2;
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
  void print(const char* attack) {
    printf(
        "| %-17s | %5zu | %6.1f ms | %6.1f ms | %6.1f ms | %6.1f ms | %4zu | %5.1f MiB | %4.0f ms | %3.0f %% "
        "|\n",
        attack, kept.ms.size(), kept.quantile(0.99), kept.quantile(1), anew.quantile(0.99), anew.quantile(1),
        files, peakMib, recoveryMs, others * 100);
    fflush(stdout);
  }
};

std::string procFile(pid_t pid, const std::string& name) {
  return "/proc/" + std::to_string(pid) + "/" + name;
}

// A number from /proc/<pid>/status, in the unit that it has there.
long statusOf(pid_t pid, const std::string& field) {
  std::istringstream status(test::readFile(procFile(pid, "status")));
  for (std::string name; status >> name;) {
    long value = 0;
    if (name == field + ":" && status >> value) return value;
    status.ignore(1000, '\n');
  }
  throw std::runtime_error("no " + field);
}

// Processor time that all programs have taken, and the part of `daemon`, this process and its children that
// have ended.
struct ProcessorTime {
  explicit ProcessorTime(pid_t daemon) {
    std::istringstream total(test::readFile("/proc/stat").substr(4));
    // In /proc/stat: user, nice, system, idle, iowait, irq, softirq, steal.
    for (double* state : {&busy, &busy, &busy, &idle, &idle, &busy, &busy, &busy}) {
      double ticks = 0;
      total >> ticks;
      *state += ticks;
    }
    const std::string stat = test::readFile(procFile(daemon, "stat"));
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) fields >> skipped;
    double user = 0;
    double system = 0;
    fields >> user >> system;
    ours = user + system;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
      rusage usage{};
      getrusage(who, &usage);
      for (const timeval& time : {usage.ru_utime, usage.ru_stime}) {
        ours += (static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6) *
                static_cast<double>(sysconf(_SC_CLK_TCK));
      }
    }
  }
  double othersSince(const ProcessorTime& before) const {
    const double all = busy + idle - before.busy - before.idle;
    return std::clamp((busy - before.busy - (ours - before.ours)) / std::max(all, 1.0), 0.0, 1.0);
  }

  double busy = 0;
  double idle = 0;
  double ours = 0;
};

size_t openFiles(pid_t pid) {
  const fs::directory_iterator all(procFile(pid, "fd"));
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

size_t keysOf(int pid) {
  PersistableBundle reply;
  PersistableBundle states;
  EXPECT_TRUE(Daemon::collector()->getApplicationStateDataForProcess(pid, String16(), &reply).isOk());
  reply.getPersistableBundle(String16("ApplicationStateData"), &states);
  return states.size();
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

  // Starts the daemon with 300 KB of states.
  void serve() {
    daemon.start();
    for (int i = 0; i < 100; ++i) publishState(std::string(3000, 'x'));
  }

  void publishState(const std::string& value) {
    fixture::actAs(fixture::reporterUid(),
                   [&] { publishSurely(writer, getpid(), "key " + std::to_string(published++), value); });
  }

  // Plays an attack beside good clients, prints its row, and checks what is promised. A row whose times are
  // too long is played once more, because another program may have taken the processors.
  Row play(
      const char* attack, const char* name, long peakMib = kPeakMib,
      const std::function<void()>& atItsHeight = [] {}) {
    Row row = playOnce(attack, atItsHeight);
    row.print(name);
    if (row.isLate()) {
      printf("That was too late. The row once more:\n");
      row = playOnce(attack, atItsHeight);
      row.print(name);
    }
    EXPECT_EQ(row.kept.failed + row.anew.failed, 0) << name;
    EXPECT_GE(row.kept.ms.size(), 3u) << name << ": each query once";
    EXPECT_LE(row.kept.quantile(0.99), row.bound(kP99Ms)) << name;
    EXPECT_LE(row.kept.quantile(1), row.bound(kLongestMs)) << name;
    EXPECT_LE(row.anew.quantile(1), row.bound(kLongestMs)) << name;
    EXPECT_LE(row.recoveryMs, row.bound(kRecoveryMs)) << name;
    EXPECT_LE(row.files, kDescriptors - 64) << name;
    EXPECT_TRUE(kSanitizer || row.peakMib <= static_cast<double>(peakMib)) << name << ": " << row.peakMib;
    EXPECT_EQ(keysOf(getpid()), published) << name << ": the good publisher's states";
    EXPECT_TRUE(daemon.process().running()) << name;
    return row;
  }

  Row playOnce(const char* attack, const std::function<void()>& atItsHeight) {
    const pid_t pid = daemon.process().pid();
    const long threads = statusOf(pid, "Threads");
    const long residentKib = statusOf(pid, "VmRSS");
    const size_t files = openFiles(pid);
    std::ofstream(procFile(pid, "clear_refs")) << "5";  // the peak starts anew
    const ProcessorTime before(pid);
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
      atItsHeight();
    }
    // What may stay: the thread of the one-way calls, the connections of this process and a few new states.
    const auto end = steady_clock::now();
    EXPECT_TRUE(fixture::eventually([&] {
      return statusOf(pid, "Threads") <= threads + 3 && openFiles(pid) <= files + 2 &&
             (kSanitizer || statusOf(pid, "VmRSS") <= residentKib + residentKib / 10 + 4096);
    })) << attack
        << " leaves threads, descriptors or memory behind";
    row.recoveryMs = msSince(end);
    row.others = ProcessorTime(pid).othersSince(before);
    row.peakMib = static_cast<double>(statusOf(pid, "VmHWM")) / 1024;
    return row;
  }

  // Calls and publishes as good clients do, for the time of an attack.
  void beGood(Row& row) {
    std::atomic<bool> stop = false;
    std::thread keeper([&] { callOn(stop, &row.kept); });
    std::thread newcomer([&] { callAnew(stop, &row.anew); });
    for (const auto start = steady_clock::now(); msSince(start) < attackSeconds() * 1000;) {
      publishState("value");
      row.files = std::max(row.files, openFiles(daemon.process().pid()));
      std::this_thread::sleep_for(milliseconds(100));
    }
    stop = true;
    keeper.join();
    newcomer.join();
  }

  // All three queries in turn, over one kept connection.
  static void callOn(std::atomic<bool>& stop, Calls* calls) {
    const auto collector = Daemon::collector();
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

// Processes that only exist, each with 8 KiB of states, beside 2,000 invented pids that hold as much: 136
// keys of 15 characters with three values of 15 characters. So the black box is full.
class ProtectedProcesses {
 public:
  static constexpr size_t kKeys = 136;

  ProtectedProcesses() {
    for (int i = 0; i < 20; ++i) {
      mPids.push_back(fork());
      if (mPids.back() == 0) prctl(PR_SET_PDEATHSIG, SIGKILL);
      while (mPids.back() == 0) pause();
    }
    fixture::actAs(fixture::reporterUid(), [this] {
      StatsEventWriter writer;
      for (const pid_t pid : mPids) publishEightKiB(writer, pid);
      for (int pid = 1'000'000; pid < 1'002'000; ++pid) publishEightKiB(writer, pid);
    });
  }
  ~ProtectedProcesses() {
    while (!mPids.empty()) killOne();
  }

  // Returns the pid that has died now. Its states stay for at least a minute.
  pid_t killOne() {
    const pid_t pid = mPids.back();
    mPids.pop_back();
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    return pid;
  }
  const std::vector<pid_t>& alive() const { return mPids; }

 private:
  static void publishEightKiB(StatsEventWriter& writer, int pid) {
    char key[16];
    for (int round = 0; round < 3; ++round) {
      for (size_t i = 0; i < kKeys; ++i) {
        snprintf(key, sizeof(key), "%08d%07zu", pid, i);
        publishSurely(writer, pid, key, "a fairly " + std::to_string(100000 + round));
      }
    }
    EXPECT_EQ(keysOf(pid), kKeys);  // a query fetches, so that no atom is lost in statsd
  }

  std::vector<pid_t> mPids;
};

uint64_t pushedOut(uid_t uid) {
  const auto status = libstatsd::readStatsdStatus(milliseconds(1000));
  if (!status.ok()) return 0;
  for (const libstatsd::UidCounters& of : status->uids) {
    if (of.uid == uid) return of.droppedFull;
  }
  return 0;
}

TEST_F(AttackTest, onTheBlackBoxLeavesOthersTheirStatesAndTheDaemonBelowItsBound) {
  serve();
  ProtectedProcesses processes;
  const auto expectAllThere = [&](const char* after) {
    for (const pid_t pid : processes.alive()) EXPECT_EQ(keysOf(pid), ProtectedProcesses::kKeys) << after;
  };
  // Without queries, which would fetch them, the publisher's atoms wait in a store that overflows.
  const auto overflow = [&] {
    for (int i = 0; i < 10; ++i) publishState("value");
    const uint64_t before = pushedOut(fixture::applicationUid());
    EXPECT_TRUE(fixture::eventually([&] { return pushedOut(fixture::applicationUid()) > before + 1000; }));
  };
  const pid_t dead = processes.killOne();
  play("uniqueKeys", "uniqueKeys");
  if (attackSeconds() < 20) {
    EXPECT_EQ(keysOf(dead), ProtectedProcesses::kKeys) << "of a process that died a moment ago";
  }
  expectAllThere("uniqueKeys");
  for (const char* attack : {"inventedPids", "largeProcess"}) {
    play(attack, attack);
    expectAllThere(attack);
  }
  play("atomsOfOneKey", "atomsOfOneKey", kPeakMib, overflow);
  play("wholeTableCalls", "wholeTableCalls", kWholeTablesPeakMib);
  expectAllThere("wholeTableCalls");
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
  daemon.start();
  const std::string rotated = daemon.runtime("telemetry.jsonl.1");
  const Row refused = play("heldLocks", "heldLocks");
  EXPECT_EQ(refused.attacker, "ready\n") << "it could open them";
  EXPECT_TRUE(fs::exists(rotated));
  // If it has opened the file before, it can hold it. Then the rotation waits, and nobody else.
  fs::remove(rotated);
  leave("telemetry.jsonl", std::string(4 << 20, '\n'), 0644);
  ASSERT_EQ(chmod(daemon.runtime("telemetry.lock").c_str(), 0666), 0);
  const Row held = play("heldLocks", "heldRotation", kPeakMib, [&] { EXPECT_FALSE(fs::exists(rotated)); });
  EXPECT_EQ(held.attacker, "holds telemetry.lock\nready\n");
  EXPECT_TRUE(fixture::eventually([&] { return keysOf(getpid()) > 0 && fs::exists(rotated); }));
}

TEST_F(AttackTest, onALogThatNobodyReadsStopsNothing) {
  const std::string log = daemon.dir().path("service.log");
  ASSERT_EQ(mkfifo(log.c_str(), 0600) + chown(log.c_str(), fixture::serviceUid(), -1), 0);
  const android::base::unique_fd pipe(open(log.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  serve();
  for (const std::string line(4096, '\n'); write(pipe.get(), line.data(), line.size()) > 0;) {
  }
  play("oneWayFlood", "fullStderrPipe");
  // From here on the log is an ordinary file again, with what the pipe held.
  std::string text(1 << 20, '\0');
  text.resize(std::max<ssize_t>(read(pipe.get(), text.data(), text.size()), 0));
  fs::remove(log);
  daemon.dir().write("service.log", text);
}

TEST_F(AttackTest, onAPipeInPlaceOfPropertiesStopsNothing) {
  serve();
  const std::string properties = daemon.runtime("properties");
  ASSERT_TRUE(fs::remove(properties) && mkfifo(properties.c_str(), 0666) == 0);
  play("contextCalls", "pipeAsProperties");
  EXPECT_EQ(daemon.countInLog("properties is not a regular file"), 1u) << daemon.log();
}

class TableHeader : public testing::Environment {
  void SetUp() override {
    printf(
        "| attack | calls | p99 | longest | new client's p99 | longest | files | memory peak | recovery | "
        "others' processor time |\n");
  }
};
const auto* const kHeader = testing::AddGlobalTestEnvironment(new TableHeader);

}  // namespace
