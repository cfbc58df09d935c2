// A look-up through the whole chain that the file layer answers, against the JSON library's member look-up
// and copy. A look-up that the preferences store answers, and a telemetry event, against the system calls
// that they need.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fcntl.h>
#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/Json.h"
#include "configuration/ConfigurationChain.h"
#include "support/Compare.h"
#include "support/Limits.h"
#include "telemetry/DiagnosticsCollectorTelemetry.h"

namespace {

constexpr int kRounds = 2000;
constexpr char kStringKey[] = "crash-reporter-user-agent";
constexpr char kUintKey[] = "crash-reporter-upload-to-server-max-retry-time-delay";
constexpr char kStoredKey[] = "crash-reporter-logcat-tail-count";

constexpr char kFile[] = R"({
  "crash-reporter-report-dir-name": "/data/misc/crashes/",
  "crash-reporter-user-agent": "pellux/os 12.0 (release-keys) crash reporter",
  "crash-reporter-logcat-enable": true,
  "crash-reporter-logcat-tail-seconds": 60,
  "crash-reporter-upload-to-server-max-retry-time-delay": 7200,
  "crash-reporter-error-extra-data": {"fleet": "test"}
})";

// The runtime directory and the device root of this process. Removed with the object.
class Directory {
 public:
  Directory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "configuration-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) abort();
    mPath = pattern;
    std::filesystem::create_directories(mPath + "/system_ext/etc");
    std::ofstream(mPath + Torv::kServiceConfigurationPath) << kFile;
    std::ofstream(mPath + "/preferences.json") << "{\"" << kStoredKey << "\": 100}\n";
    setenv("TORV_DEVICE_ROOT", mPath.c_str(), 1);
    setenv("TORV_RUNTIME_DIR", mPath.c_str(), 1);
  }
  ~Directory() { std::filesystem::remove_all(mPath); }
  Directory(const Directory&) = delete;
  Directory& operator=(const Directory&) = delete;

  std::string path(const char* name) const { return mPath + "/" + name; }

 private:
  std::string mPath;
};

Json::Value parsedFile() {
  auto root = Torv::Base::parseJson(kFile);
  if (!root.ok()) abort();
  return std::move(*root);
}

void fileString(benchmark::State& state) {
  const Directory directory;
  const auto chain = Torv::buildConfigurationChain();
  const Json::Value root = parsedFile();
  const std::string key = kStringKey;
  if (chain->getString(key) != root[key].asString()) abort();
  bench::compare(
      state, 1.5,
      [&] {
        for (int i = 0; i < kRounds; ++i) benchmark::DoNotOptimize(chain->getString(key));
      },
      [&] {
        for (int i = 0; i < kRounds; ++i) benchmark::DoNotOptimize(root[key].asString());
      });
}

void fileUint(benchmark::State& state) {
  const Directory directory;
  const auto chain = Torv::buildConfigurationChain();
  const Json::Value root = parsedFile();
  const std::string key = kUintKey;
  if (chain->getUint(key) != root[key].asUInt()) abort();
  bench::compare(
      state, 1.5,
      [&] {
        for (int i = 0; i < kRounds; ++i) benchmark::DoNotOptimize(chain->getUint(key));
      },
      [&] {
        for (int i = 0; i < kRounds; ++i) benchmark::DoNotOptimize(root[key].asUInt());
      });
}

// The reference asks the kernel whether the file has changed, as every reader of a shared file must.
void preferencesInt(benchmark::State& state) {
  const Directory directory;
  const auto chain = Torv::buildConfigurationChain();
  const std::string key = kStoredKey;
  const std::string path = directory.path("preferences.json");
  if (chain->getInt(key) != 100) abort();
  usleep(50'000);  // the store keeps what it has parsed only of a file that was not changed a moment ago
  bench::compare(
      state, 1.6,
      [&] {
        for (int i = 0; i < kRounds; ++i) benchmark::DoNotOptimize(chain->getInt(key));
      },
      [&] {
        struct stat status {};
        for (int i = 0; i < kRounds; ++i) benchmark::DoNotOptimize(stat(path.c_str(), &status));
      });
}

// The reference checks that the log at the path is still the one it has open, and writes a line of the same
// size.
void telemetryEvent(benchmark::State& state) {
  using namespace Torv::OS::Diagnostics::Telemetry;
  const Directory directory;
  DiagnosticsCollectorTelemetry telemetry(true);
  const std::string path = directory.path("reference");
  const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  const std::string line(240, 'x');
  bench::compare(
      state, 0.8,
      [&] {
        for (int i = 0; i < kRounds; ++i) {
          telemetry.reportDefaultEventWithPid(EventName::GetForProcessStart, EventType::Start,
                                              EventFlow::Collector, i);
        }
      },
      [&] {
        struct stat status {};
        for (int i = 0; i < kRounds; ++i) {
          if (stat(path.c_str(), &status) != 0) abort();
          if (write(fd, line.data(), line.size()) < 0) abort();
        }
      });
  close(fd);
}

}  // namespace

int main(int argc, char** argv) {
  bench::registerComparison("lookup/file, string", 25, &fileString);
  bench::registerComparison("lookup/file, uint", 25, &fileUint);
  bench::registerComparison("lookup/preferences, int", 25, &preferencesInt);
  bench::registerComparison("telemetry/one event", 25, &telemetryEvent);
  return bench::runAll(argc, argv);
}
