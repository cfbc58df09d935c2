#include "DeathWatch.h"

#include <map>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

#include "Log.h"
#include "Threads.h"
#include "base/Mutex.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;
using Torv::Base::LockGuard;
using Torv::Base::Mutex;

class Watch {
 public:
  Watch(std::shared_ptr<RemoteService> service, android::wp<android::BpBinder> proxy, unique_fd socket)
      : mService(std::move(service)), mProxy(std::move(proxy)), mSocket(std::move(socket)) {}

  // Waits for the death, or for cancel().
  void run() {
    while (awaitEnd()) {
    }
    const auto proxy = isCancelled() ? nullptr : mProxy.promote();
    if (proxy != nullptr) proxy->sendObituary();
  }

  void cancel() {
    const LockGuard guard(mMutex);
    mCancelled = true;
    shutdown(mSocket.get(), SHUT_RDWR);
  }

 private:
  // Waits for the end of the connection. A living server may give up an idle connection; then there is a new
  // one to wait for, and the result is true.
  bool awaitEnd() {
    char unexpected = 0;
    while (TEMP_FAILURE_RETRY(recv(fd(), &unexpected, 1, 0)) > 0) {
    }
    if (isCancelled() || !isAlive(*mService)) return false;
    unique_fd next = connectTo(*mService);
    const LockGuard guard(mMutex);
    mSocket = std::move(next);
    return mSocket.ok() && !mCancelled;
  }

  int fd() {
    const LockGuard guard(mMutex);
    return mSocket.get();
  }
  bool isCancelled() {
    const LockGuard guard(mMutex);
    return mCancelled;
  }

  const std::shared_ptr<RemoteService> mService;
  const android::wp<android::BpBinder> mProxy;
  Mutex mMutex;
  unique_fd mSocket GUARDED_BY(mMutex);  // only run() replaces it
  bool mCancelled GUARDED_BY(mMutex) = false;
};

struct Watches {
  Mutex mutex;
  std::map<int32_t, std::shared_ptr<Watch>> byHandle GUARDED_BY(mutex);
  Threads threads;
};

Watches& watches() {
  static Watches& all = *new Watches();
  return all;
}

}  // namespace

bool watchForDeath(int32_t handle, std::shared_ptr<RemoteService> service,
                   const android::wp<android::BpBinder>& proxy) {
  unique_fd socket = connectTo(*service);
  if (!socket.ok()) return false;
  auto watch = std::make_shared<Watch>(std::move(service), proxy, std::move(socket));
  const auto started = watches().threads.start("BinderDeaths", [watch] { watch->run(); });
  if (!started.ok()) {
    logError("cannot watch for the death of a service: %s", started.error().message().c_str());
    return false;
  }
  const LockGuard guard(watches().mutex);
  watches().byHandle[handle] = std::move(watch);
  return true;
}

void stopWatchingForDeath(int32_t handle) {
  const LockGuard guard(watches().mutex);
  const auto watch = watches().byHandle.find(handle);
  if (watch == watches().byHandle.end()) return;
  watch->second->cancel();
  watches().byHandle.erase(watch);
}

}  // namespace platform::binder
