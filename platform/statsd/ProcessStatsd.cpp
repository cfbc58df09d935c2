#include "ProcessStatsd.h"

#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace libstatsd {
namespace {

struct Instances {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Statsd>> byDirectory;  // guarded by mutex
};

// Never destroyed: other threads may fetch while the process ends.
Instances& instances() {
  static auto& all = *new Instances();
  return all;
}

}  // namespace

android::base::Result<Statsd*> statsdOf(const std::string& directory) {
  Instances& all = instances();
  std::lock_guard lock(all.mutex);
  if (const auto found = all.byDirectory.find(directory); found != all.byDirectory.end()) {
    return found->second.get();
  }
  auto started = Statsd::start(directory);
  if (!started.ok()) return started.error();
  return all.byDirectory.emplace(directory, *std::move(started)).first->second.get();
}

Statsd* runningStatsdOf(const std::string& directory) {
  Instances& all = instances();
  std::lock_guard lock(all.mutex);
  const auto found = all.byDirectory.find(directory);
  return found == all.byDirectory.end() ? nullptr : found->second.get();
}

}  // namespace libstatsd
