#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "stats/LibstatsdWrapper.h"
#include "stats/StatsManager.h"

namespace test {

using Torv::OS::Diagnostics::ApplicationState;

// A statsd that holds what the test has published. Its owner is the StatsManager that manager() makes.
class ScriptedStatsd : public Torv::OS::Diagnostics::LibstatsdWrapper {
 public:
  // Called by every fetch that has taken what there is, on the fetching thread, before it returns.
  using OnFetch = std::function<void(size_t taken)>;

  explicit ScriptedStatsd(OnFetch onFetch = [](size_t) {}) : mOnFetch(std::move(onFetch)) {}

  void publish(ApplicationState state) {
    std::lock_guard lock(mMutex);
    mHeld.push_back(std::move(state));
  }
  void publish(int32_t pid, const std::string& key, const std::string& value, int64_t timestamp) {
    publish({false, "", pid, key, value, timestamp});
  }

  std::variant<std::vector<ApplicationState>, libstatsd::Error> fetchReports() override {
    std::vector<ApplicationState> taken;
    {
      std::lock_guard lock(mMutex);
      taken.swap(mHeld);
    }
    mOnFetch(taken.size());
    return taken;
  }

 private:
  OnFetch mOnFetch;
  std::mutex mMutex;
  std::vector<ApplicationState> mHeld;
};

}  // namespace test
