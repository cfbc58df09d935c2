#include "fixture/Daemon.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <binder/IServiceManager.h>
#include <statsd/StatsEventWriter.h>
#include <utils/String8.h>

namespace fixture {
namespace {

namespace fs = std::filesystem;
using android::IBinder;
using android::sp;
using android::String16;
using android::String8;
using android::os::PersistableBundle;

constexpr char kCorrelationOn[] =
    "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr="
    "true\n";

Json::Value toJson(const PersistableBundle& bundle) {
  Json::Value object(Json::objectValue);
  for (const String16& key : bundle.getStringKeys()) {
    String16 value;
    bundle.getString(key, &value);
    object[String8(key).string()] = String8(value).string();
  }
  for (const String16& key : bundle.getIntKeys()) {
    int32_t value = 0;
    bundle.getInt(key, &value);
    object[String8(key).string()] = value;
  }
  for (const String16& key : bundle.getPersistableBundleKeys()) {
    PersistableBundle nested;
    bundle.getPersistableBundle(key, &nested);
    object[String8(key).string()] = toJson(nested);
  }
  if (object.size() != bundle.size()) throw std::runtime_error("an answer has an entry of another type");
  return object;
}

Json::Value answer(const android::binder::Status& status, const PersistableBundle& data) {
  if (!status.isOk()) throw std::runtime_error(status.toString8().string());
  return toJson(data);
}

}  // namespace

Daemon::Daemon()
    : mRuntime("TORV_RUNTIME_DIR", mDir.path("runtime")),
      mDeviceRoot("TORV_DEVICE_ROOT", mDir.path("device")) {
  fs::permissions(mDir.path(), fs::perms(0755));
  fs::create_directory(runtime());
  // This machine's kernel is behind the device root.
  mDir.write("device/system_ext/etc/torv_crashreporter.conf", "{}\n");
  fs::create_directory_symlink("/proc", mDir.path("device/proc"));
  setProperties(kCorrelationOn);
}

Daemon::~Daemon() {
  const std::string text = log();
  for (const char* report : {"Sanitizer:", "runtime error:"}) {
    if (text.find(report) == std::string::npos) continue;
    fprintf(stderr, "The service has a fault. Its log:\n%s\n", text.c_str());
    abort();
  }
}

void Daemon::setProperties(const std::string& text) const {
  mDir.write("runtime/properties", text);
  for (const std::string& path : {runtime(), runtime("properties")}) {
    if (chown(path.c_str(), serviceUid(), -1) != 0) throw std::runtime_error("chown " + path);
  }
}

void Daemon::launch(const std::string& program) {
  ProcessOptions options;
  options.output = mDir.path("service.log");
  mProcess = std::make_unique<Process>(std::vector<std::string>{program}, options);
}

void Daemon::start(const std::string& program) {
  launch(program);
  if (!eventually([this] { return answers() || !mProcess->running(); }) || !mProcess->running()) {
    throw std::runtime_error("the service does not answer; its log:\n" + log());
  }
}

bool Daemon::answers() {
  for (const char* name :
       {IDiagnosticsCollectorService::kServiceName, IDiagnosticsNotificationService::kServiceName}) {
    const sp<IBinder> service = binder(name);
    if (service == nullptr || service->pingBinder() != android::OK) return false;
  }
  return true;
}

void Daemon::pause() {
  mProcess->signal(SIGSTOP);
  siginfo_t info;
  if (waitid(P_PID, mProcess->pid(), &info, WSTOPPED) != 0) throw std::runtime_error("waitid");
}

int Daemon::stop(int signal) {
  mProcess->signal(signal);
  return mProcess->wait().value_or(-1);
}

bool Daemon::logs(const std::string& text) const {
  return eventually([&] { return countInLog(text) > 0; });
}

sp<IBinder> Daemon::binder(const char* name) {
  return android::defaultServiceManager()->checkService(String16(name));
}

sp<IDiagnosticsCollectorService> Daemon::collector() {
  return android::interface_cast<IDiagnosticsCollectorService>(
      binder(IDiagnosticsCollectorService::kServiceName));
}

sp<IDiagnosticsNotificationService> Daemon::notifier() {
  return android::interface_cast<IDiagnosticsNotificationService>(
      binder(IDiagnosticsNotificationService::kServiceName));
}

Json::Value Daemon::askProcess(pid_t pid) {
  PersistableBundle data;
  return answer(collector()->getApplicationStateDataForProcess(pid, String16("test"), &data), data);
}

Json::Value Daemon::askAll() {
  PersistableBundle data;
  return answer(collector()->getAllAvailableApplicationStateData(&data), data);
}

Json::Value Daemon::askContext() {
  PersistableBundle data;
  return answer(collector()->getSystemContextData(&data), data);
}

size_t countOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

bool publish(int pid, const std::string& key, const std::string& value) {
  static libstatsd::StatsEventWriter writer;  // finds its way from one service to the next
  bool sent = false;
  actAs(applicationUid(),
        [&] { sent = writer.publishApplicationState(pid, key, value) == libstatsd::WriteResult::Sent; });
  return sent;
}

}  // namespace fixture
