// Sources and configuration that are not what they should be, and a driver that hangs.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "fixture/Daemon.h"

namespace {

namespace fs = std::filesystem;
using android::String16;
using android::os::PersistableBundle;
using fixture::Daemon;
using std::chrono::milliseconds, std::chrono::steady_clock;

// Stops one thread of a process at the entry of its next pread(), as a driver that hangs would, until the end
// of the scope.
class HangingRead {
 public:
  HangingRead(pid_t process, const std::string& threadName) : mThread(threadOf(process, threadName)) {
    if (ptrace(PTRACE_SEIZE, mThread, nullptr, PTRACE_O_TRACESYSGOOD) != 0)
      throw std::system_error(errno, std::generic_category(), "ptrace");
    ptrace(PTRACE_INTERRUPT, mThread, nullptr, nullptr);
    while (!isEnteringRead()) ptrace(PTRACE_SYSCALL, mThread, nullptr, nullptr);
  }
  ~HangingRead() { ptrace(PTRACE_DETACH, mThread, nullptr, nullptr); }
  HangingRead(const HangingRead&) = delete;
  HangingRead& operator=(const HangingRead&) = delete;

 private:
  static pid_t threadOf(pid_t process, const std::string& name) {
    for (const auto& thread : fs::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
      std::string found;
      std::getline(std::ifstream(thread.path() / "comm"), found);
      if (found == name) return std::stoi(thread.path().filename());
    }
    throw std::runtime_error("no thread " + name);
  }

  // Waits for the thread's next stop.
  bool isEnteringRead() const {
    int status = 0;
    if (waitpid(mThread, &status, __WALL) != mThread || !WIFSTOPPED(status)) {
      throw std::runtime_error("the service has ended");
    }
    __ptrace_syscall_info call{};
    ptrace(PTRACE_GET_SYSCALL_INFO, mThread, sizeof(call), &call);
    return call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == SYS_pread64;
  }

  const pid_t mThread;
};

// How many histories a system context has.
size_t histories() {
  PersistableBundle reply;
  PersistableBundle context;
  EXPECT_TRUE(Daemon::collector()->getSystemContextData(&reply).isOk());
  EXPECT_TRUE(reply.getPersistableBundle(String16("SystemContextData"), &context));
  size_t count = 0;
  for (const String16& key : context.getStringKeys()) {
    const std::string name = android::String8(key).string();
    if (name.size() > 8 && name.substr(name.size() - 8) == "_history") ++count;
  }
  return count;
}

template <typename Call>
milliseconds timeOf(Call call) {
  const auto start = steady_clock::now();
  call();
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

TEST(SourcesTest, aDriverThatHangsTakesTheHistoriesAndNothingElse) {
  Daemon daemon;
  daemon.start();
  const size_t usual = histories();
  ASSERT_GT(usual, 0u);
  {
    std::unique_ptr<HangingRead> hanging;
    try {
      hanging = std::make_unique<HangingRead>(daemon.process().pid(), "SystemStateColl");
    } catch (const std::system_error& error) {
      GTEST_SKIP() << "the tester may not stop a thread of the service: " << error.what();
    }
    std::atomic<int> patient{0};
    std::vector<std::future<void>> callers;
    for (int i = 0; i < 20; ++i) {
      callers.push_back(std::async(std::launch::async, [&patient] {
        fixture::actAs(fixture::applicationUid(), [&patient] {
          const milliseconds time = timeOf([] { EXPECT_EQ(histories(), 0u); });
          if (time > milliseconds(1700)) ++patient;
          EXPECT_LT(time, milliseconds(5000));
        });
      }));
    }
    milliseconds longest{0};
    for (int i = 0; i < 100; ++i) {
      longest = std::max(longest, timeOf([] {
                           PersistableBundle all;
                           EXPECT_TRUE(Daemon::collector()->getAllAvailableApplicationStateData(&all).isOk());
                         }));
      std::this_thread::sleep_for(milliseconds(20));
    }
    for (auto& caller : callers) caller.get();
    EXPECT_LE(patient, 2);
    EXPECT_LT(longest, milliseconds(1500)) << "transaction 2 waits for the driver";
    EXPECT_LT(timeOf([] { EXPECT_EQ(histories(), 0u); }), milliseconds(1000)) << "a later caller waits";
    EXPECT_EQ(daemon.countInLog("hangs in its source; system contexts go out without histories"), 1u);
  }
  EXPECT_TRUE(fixture::eventually([usual] { return histories() == usual; }));
  EXPECT_TRUE(daemon.logs(" system contexts went out without histories")) << daemon.log();
}

TEST(SourcesTest, whatIsNoRegularFileIsAMissingSource) {
  Daemon daemon;
  fs::remove(daemon.dir().path("device/proc"));
  daemon.dir().write("device/proc/meminfo", "MemTotal: 2 kB\nMemFree: 1 kB\nMemAvailable: 1 kB\n");
  ASSERT_EQ(symlink("/dev/zero", daemon.dir().path("device/proc/stat").c_str()), 0);
  const std::string gpu = daemon.dir().write("device/sys/class/kgsl/kgsl-3d0/gpubusy_accum", "");
  ASSERT_TRUE(fs::remove(gpu) && mkfifo(gpu.c_str(), 0666) == 0);
  daemon.dir().write("device/sys/class/power_supply/battery/charge_counter/directory", "");
  ASSERT_EQ(truncate(daemon.dir().write("device/proc/pressure/io", "").c_str(), off_t{1} << 30), 0);
  daemon.start();
  for (const char* line :
       {"Failed to open /proc/stat", "Failed to open /sys/class/kgsl/kgsl-3d0/gpubusy_accum",
        "Failed to open /sys/class/power_supply/battery/charge_counter", "Failed to create GpuCollector"}) {
    EXPECT_EQ(daemon.countInLog(line), 1u) << line;
  }
  EXPECT_TRUE(daemon.logs("Cannot read /proc/pressure/io, or it is larger than 131072 bytes"))
      << daemon.log();
  EXPECT_EQ(histories(), 2u) << "memory, and the pressure whose text is too long";
}

TEST(SourcesTest, aPipeAsConfigurationEndsTheStartAtOnce) {
  Daemon daemon;
  const std::string path = daemon.dir().path("device/system_ext/etc/torv_crashreporter.conf");
  ASSERT_TRUE(fs::remove(path) && mkfifo(path.c_str(), 0666) == 0);
  daemon.launch();
  const int status = daemon.process().wait().value_or(0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  EXPECT_EQ(daemon.countInLog("torv_crashreporter.conf is not a regular file"), 1u) << daemon.log();
  EXPECT_GT(
      daemon.countInLog("Unable to load service configuration: /system_ext/etc/torv_crashreporter.conf"), 0u);
}

}  // namespace
