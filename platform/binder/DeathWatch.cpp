#include "DeathWatch.h"

#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

#include "Fork.h"
#include "Log.h"
#include "RemoteService.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;

class DeathWatch {
 public:
  bool add(int32_t handle, std::shared_ptr<RemoteService> service,
           const android::wp<android::BpBinder>& proxy) {
    unique_fd socket = connectTo(*service);
    if (!socket.ok()) return false;
    std::lock_guard guard(mMutex);
    mWatched.insert_or_assign(handle, Watched{std::move(service), proxy, std::move(socket)});
    if (mRunning) {
      eventfd_write(mChanged.get(), 1);
    } else {
      start();
    }
    return true;
  }

  void remove(int32_t handle) {
    std::lock_guard guard(mMutex);
    if (mWatched.erase(handle) != 0) eventfd_write(mChanged.get(), 1);
  }

 private:
  struct Watched {
    std::shared_ptr<RemoteService> service;
    android::wp<android::BpBinder> proxy;
    unique_fd socket;
  };

  // Requires mMutex.
  void start() {
    try {
      std::thread([this] { run(); }).detach();
      mRunning = true;
    } catch (const std::system_error& error) {
      logError("cannot watch for the death of a service: %s", error.what());
    }
  }

  void run() {
    std::vector<pollfd> sockets;
    std::vector<int32_t> watched;
    while (collect(&sockets, &watched)) {
      if (poll(sockets.data(), sockets.size(), -1) <= 0) continue;
      if (eventfd_t changes = 0; sockets[0].revents != 0) eventfd_read(sockets[0].fd, &changes);
      for (size_t i = 1; i < sockets.size(); ++i) {
        if (sockets[i].revents != 0) connectionEnded(watched[i - 1]);
      }
    }
  }

  // False where nothing is watched, and then the thread counts as ended.
  bool collect(std::vector<pollfd>* sockets, std::vector<int32_t>* watched) {
    std::lock_guard guard(mMutex);
    sockets->assign(1, {mChanged.get(), POLLIN, 0});
    watched->clear();
    for (const auto& [handle, entry] : mWatched) {
      sockets->push_back({entry.socket.get(), POLLIN, 0});
      watched->push_back(handle);
    }
    mRunning = !mWatched.empty();
    return mRunning;
  }

  void connectionEnded(int32_t handle) {
    std::optional<Watched> ended = take(handle);
    if (!ended) return;
    // A living server may close an idle connection to make room.
    if (isAlive(*ended->service) && add(handle, ended->service, ended->proxy)) return;
    if (const auto proxy = ended->proxy.promote(); proxy != nullptr) proxy->sendObituary();
  }

  std::optional<Watched> take(int32_t handle) {
    std::lock_guard guard(mMutex);
    auto node = mWatched.extract(handle);
    if (node.empty()) return std::nullopt;
    return std::move(node.mapped());
  }

  const unique_fd mChanged{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::mutex mMutex;
  std::map<int32_t, Watched> mWatched;  // guarded by mMutex
  bool mRunning = false;                // guarded by mMutex
};

DeathWatch& deathWatch() {
  static PerProcess<DeathWatch> watch;
  return watch.get();
}

}  // namespace

bool watchForDeath(int32_t handle, std::shared_ptr<RemoteService> service,
                   const android::wp<android::BpBinder>& proxy) {
  return deathWatch().add(handle, std::move(service), proxy);
}

void stopWatchingForDeath(int32_t handle) {
  deathWatch().remove(handle);
}

}  // namespace platform::binder
