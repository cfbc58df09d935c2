#include "Calls.h"

#include <chrono>
#include <cstdio>
#include <future>
#include <thread>

#include <unistd.h>

#include <binder/IServiceManager.h>
#include <fmt/format.h>
#include <runtime/RuntimeDirectory.h>
#include <utils/String8.h>

#include "Commands.h"

namespace diagctl {

using android::IBinder;
using android::sp;
using android::String16;
using android::binder::Status;

sp<IBinder> serviceBinder(const char* name) {
  sp<IBinder> binder = android::defaultServiceManager()->checkService(String16(name));
  if (binder == nullptr) {
    throw Refusal(
        fmt::format("{} is not running in {}. Start it with ./run serve, or name the directory "
                    "that it serves in TORV_RUNTIME_DIR.",
                    name, platform::runtimeDirectory()));
  }
  return binder;
}

void requireOk(const Status& status) {
  if (status.isOk()) return;
  switch (status.transactionError()) {
    case android::DEAD_OBJECT:
      throw Refusal("The service ended during the call. Its log says why; ask again when it is back.");
    case android::FAILED_TRANSACTION:
      throw Refusal("The answer does not fit into one reply. Ask for single processes: diagctl state PID.");
    default:
      throw Refusal(fmt::format("The service refused: {}", status.toString8().string()));
  }
}

int within(double timeoutSeconds, const std::function<int()>& calls) {
  std::packaged_task<int()> task([&calls] {
    try {
      return calls();
    } catch (const Refusal& refusal) {
      fprintf(stderr, "diagctl: %s\n", refusal.what());
      return kRefused;
    }
  });
  std::future<int> exitCode = task.get_future();
  std::thread thread(std::move(task));
  if (exitCode.wait_for(std::chrono::duration<double>(timeoutSeconds)) == std::future_status::timeout) {
    fprintf(
        stderr,
        "diagctl: The service did not answer within %g s. It may be stopped or overloaded: see its log, or "
        "wait longer with --timeout.\n",
        timeoutSeconds);
    _exit(kRefused);
  }
  thread.join();
  return exitCode.get();
}

}  // namespace diagctl
