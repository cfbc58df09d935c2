#include "Roles.h"

#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <service/DiagnosticsNotificationService.h>
#include <statsd/StatsEventWriter.h>

#include "Machine.h"

#include <binder/IPCThreadState.h>
#include <binder/IServiceManager.h>
#include <binder/ProcessState.h>

namespace {

using android::Parcel;
using android::sp;
using android::String16;
using android::os::PersistableBundle;
using Arguments = std::vector<std::string>;

int publish(const Arguments& arguments) {
  libstatsd::StatsEventWriter writer;
  for (size_t i = 1; i + 1 < arguments.size(); i += 2) {
    const auto result = writer.publishApplicationState(getpid(), arguments[i], arguments[i + 1]);
    if (result != libstatsd::WriteResult::Sent) return EXIT_FAILURE;
  }
  tellReady();
  awaitRelease();
  return EXIT_SUCCESS;
}

int session(const Arguments& arguments) {
  libstatsd::StatsEventWriter writer;
  const auto result = writer.publishTelemetrySession(arguments.at(1), arguments.at(2));
  return result == libstatsd::WriteResult::Sent ? EXIT_SUCCESS : EXIT_FAILURE;
}

int notify(const Arguments& arguments) {
  const auto code = static_cast<IDiagnosticsNotificationEventCode>(std::stoi(arguments.at(1)));
  return Daemon::notifier()->notifySystemEvent(code, {}).isOk() ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool queryOnce(const sp<IDiagnosticsCollectorService>& service, int32_t pid, const std::string& value) {
  const std::string process = std::to_string(pid);
  PersistableBundle one, all, system;
  if (!service->getApplicationStateDataForProcess(pid, String16(), &one).isOk() ||
      !service->getAllAvailableApplicationStateData(&all).isOk() ||
      !service->getSystemContextData(&system).isOk()) {
    return false;
  }
  const Flat expected = {{"processId", "int " + process}, {"ApplicationStateData/who", value}};
  const Flat context = flatten(system);
  return flatten(one) == expected && below(flatten(all), process + "/") == expected &&
         context.count("SystemContextData/build_tags") == 1 &&
         context.count("SystemContextData/psi_cpu_history") == 1;
}

int query(const Arguments& arguments) {
  const sp<IDiagnosticsCollectorService> service = Daemon::collector();
  for (int left = std::stoi(arguments.at(3)); left > 0; --left) {
    if (!queryOnce(service, std::stoi(arguments.at(1)), arguments.at(2))) return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

int stuck(const Arguments&) {
  const sp<IDiagnosticsCollectorService> service = Daemon::collector();
  tellReady();
  awaitRelease();
  PersistableBundle all;
  return service->getAllAvailableApplicationStateData(&all).isOk() ? EXIT_SUCCESS : EXIT_FAILURE;
}

int spin(const Arguments&) {
  tellReady();
  std::atomic<unsigned> turns = 0;
  for (;;) turns.fetch_add(1, std::memory_order_relaxed);
}

// Offers a binder object and serves it until the process is killed.
[[noreturn]] void serve(const char* name, const sp<android::IBinder>& binder) {
  if (android::defaultServiceManager()->addService(String16(name), binder) != android::OK) exit(EXIT_FAILURE);
  android::ProcessState::self()->startThreadPool();
  tellReady();
  android::IPCThreadState::self()->joinThreadPool();
  exit(EXIT_FAILURE);
}

class SlowObserver : public Torv::OS::Diagnostics::Observer {
  void onEvent(int, std::optional<std::unordered_map<std::string, std::string>>) override {
    awaitRelease();
    tellReady();
  }
};

int slow(const Arguments&) {
  std::vector<std::shared_ptr<Torv::OS::Diagnostics::Observer>> observers = {
      std::make_shared<SlowObserver>()};
  serve(kSlowService, new Torv::OS::Diagnostics::DiagnosticsNotificationService(std::move(observers)));
}

class Echo : public android::BBinder {
 public:
  explicit Echo(size_t bytes) : mAnswer(bytes, 'x') {}

 private:
  android::status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
    if (code != kEchoTransaction) return BBinder::onTransact(code, data, reply, flags);
    return reply->write(mAnswer.data(), mAnswer.size());
  }

  const std::string mAnswer;
};

int echo(const Arguments& arguments) {
  serve(kEchoService, new Echo(std::stoul(arguments.at(1))));
}

}  // namespace

int playRole(const Arguments& arguments) {
  keepRelease();
  static constexpr std::pair<const char*, int (*)(const Arguments&)> kRoles[] = {
      {"publish", publish}, {"session", session}, {"notify", notify}, {"query", query},
      {"stuck", stuck},     {"spin", spin},       {"slow", slow},     {"echo", echo},
  };
  for (const auto& [name, play] : kRoles) {
    if (arguments.at(0) == name) return play(arguments);
  }
  std::fprintf(stderr, "no role %s\n", arguments[0].c_str());
  return EXIT_FAILURE;
}
