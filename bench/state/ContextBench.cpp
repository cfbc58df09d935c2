// A system context of the seven static keys, against the file work that the platform's interface demands for
// it: the service looks every property up and then reads it, and each time the property file is opened, read,
// closed and parsed. The reference does only that. The configuration is in memory.
#include <cstdlib>
#include <fstream>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "configuration/DefaultConfiguration.h"
#include "configuration/OverridableConfiguration.h"
#include "support/Compare.h"
#include "support/Limits.h"
#include "systemcontext/SystemContextManager.h"

namespace {

using Torv::OS::Diagnostics::SystemContextManager;

constexpr char kTags[] =
    "release-keys,user,quillet_diff_number:D12345678,quillet_version_number:7,pebblor_id:987654321";

std::string readWhole(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat info {};
  if (fd < 0 || fstat(fd, &info) != 0) abort();
  std::string text(static_cast<size_t>(info.st_size), '\0');
  if (read(fd, text.data(), text.size()) != info.st_size) abort();
  close(fd);
  return text;
}

// Returns the value of the last line for `name`. Like the platform, reads the whole file.
std::string bareProperty(const std::string& path, std::string_view name) {
  const std::string text = readWhole(path);
  std::string value;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    const size_t equals = line.find('=');
    if (line.substr(0, equals) == name) value = line.substr(equals + 1);
  }
  return value;
}

// A property file of the size that a host has.
std::string writeProperties(const std::string& directory) {
  std::string path = directory + "/properties";
  std::ofstream file(path);
  for (int i = 0; i < 20; i++) file << "persist.kerno.some.setting" << i << "=value " << i << "\n";
  file << "ro.system.build.tags=" << kTags << "\nro.build.fingerprint=kerno/pellux/pellux:12/SQ3A/1:user\n";
  return path;
}

void context(benchmark::State& state) {
  char directory[] = "/tmp/context-bench-XXXXXX";
  if (mkdtemp(directory) == nullptr) abort();
  setenv("TORV_RUNTIME_DIR", directory, 1);
  const std::string path = writeProperties(directory);
  auto configuration =
      std::make_shared<Torv::OverridableConfiguration>(std::make_unique<Torv::DefaultConfiguration>());
  configuration->setString("vambrik-automation-session-context-json", R"({"session": "nightly"})");
  configuration->setString("vambrik-automation-test-context-json", R"({"test": "boot"})");
  SystemContextManager manager(configuration, nullptr);
  if (manager.getSystemContext().size() != 7) abort();

  bench::compare(
      state, 1.75,
      [&] {
        for (int i = 0; i < 500; i++) benchmark::DoNotOptimize(manager.getSystemContext());
      },
      [&] {
        for (int i = 0; i < 500; i++) {
          for (const char* name : {"ro.system.build.tags", "ro.build.fingerprint"}) {
            benchmark::DoNotOptimize(bareProperty(path, name));  // to find it
            benchmark::DoNotOptimize(bareProperty(path, name));  // to read it
          }
        }
      });
  unlink(path.c_str());
  rmdir(directory);
}

}  // namespace

int main(int argc, char** argv) {
  bench::registerComparison("getSystemContext/seven keys", 15, &context);
  return bench::runAll(argc, argv);
}
