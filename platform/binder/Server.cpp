#include "Server.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>
#include <utility>

#include <malloc.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <binder/ProcessState.h>

#include "Fork.h"
#include "Log.h"
#include "OneWayQueue.h"

namespace platform::binder {
namespace {

using android::base::unique_fd;

// How long join() waits for transactions of other threads once the pool is stopped.
constexpr std::chrono::seconds kDrain{5};

// How soon a listener tries again that found no room.
constexpr std::chrono::seconds kRoomRetry{1};

// The quarter that is left is for the process's own work.
size_t defaultMaxConnections() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 256;
  return static_cast<size_t>(std::clamp<rlim_t>(limit.rlim_cur / 4 * 3, 16, 16384));
}

}  // namespace

// A socket at which clients of one service connect.
class Listener final : public EventSource {
 public:
  Listener(Server& server, std::shared_ptr<const Service> service, unique_fd socket)
      : mServer(server), mService(std::move(service)), mSocket(std::move(socket)) {}

  void onEvent(Worker& /*worker*/) override { mServer.acceptAll(*this); }

  int fd() const { return mSocket.get(); }
  const std::shared_ptr<const Service>& service() const { return mService; }

 private:
  Server& mServer;
  const std::shared_ptr<const Service> mService;
  const unique_fd mSocket;
};

// Runs only while a connection stalls, a listener waits for room, or there is memory to give back.
class Server::Timer final : public EventSource {
 public:
  explicit Timer(Server& server)
      : mServer(server), mFd(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {}

  int fd() const { return mFd.get(); }

  void onEvent(Worker& /*worker*/) override {
    uint64_t expirations = 0;
    if (read(fd(), &expirations, sizeof(expirations)) < 0 && errno != EAGAIN) logError("timerfd fails");
    mRunning = false;
    if (const auto next = mServer.mStalls.expire(StallWatch::Clock::now()); next) start(*next);
    mServer.armWaitingListeners();
    // The allocator by itself would keep its heaps as large as they have been.
    if (mServer.mKeepsMemory.exchange(false)) malloc_trim(0);
    mServer.arm(fd(), EPOLLIN, this);
  }

  // Unless it runs already: whoever came first is due first.
  void start(StallWatch::Clock::time_point due) {
    if (mRunning.exchange(true)) return;
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(due.time_since_epoch()).count();
    itimerspec time{};
    time.it_value.tv_sec = ns / 1'000'000'000;
    time.it_value.tv_nsec = ns % 1'000'000'000;
    timerfd_settime(fd(), TFD_TIMER_ABSTIME, &time, nullptr);
  }

 private:
  Server& mServer;
  const unique_fd mFd;
  std::atomic<bool> mRunning{false};
};

Server::Server(const ServerLimits& limits)
    : mEpoll(epoll_create1(EPOLL_CLOEXEC)),
      mStopEvent(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      mTimer(std::make_unique<Timer>(*this)),
      mStalls(limits.patience, limits.maxStalledBytes),
      mMemoryKept(limits.memoryKept),
      mMaxConnections(limits.maxConnections != 0 ? limits.maxConnections : defaultMaxConnections()) {
  watch(mTimer->fd(), EPOLLIN, mTimer.get());
  // Seen by every thread, so it is not armed for one.
  epoll_event event{};
  event.events = EPOLLIN;
  epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, mStopEvent.get(), &event);
}

Server::~Server() {
  stop();
  std::unique_lock lock(mMutex);
  mPoolChanged.wait(lock, [this] { return mInPool == 0; });
}

void Server::serve(const std::string& name, android::sp<android::BBinder> binder, unique_fd listener) {
  std::lock_guard guard(mMutex);
  auto& queue = mOneWays[binder.get()];
  if (queue == nullptr) queue = std::make_shared<OneWayQueue>(*this, binder);
  auto service = std::make_shared<const Service>(Service{name, std::move(binder), queue});
  mListeners.push_back(std::make_unique<Listener>(*this, std::move(service), std::move(listener)));
  watch(mListeners.back()->fd(), EPOLLIN, mListeners.back().get());
}

void Server::setMaxThreads(size_t count) {
  std::lock_guard guard(mMutex);
  mMaxThreads = count;
}

void Server::startPool() {
  {
    std::lock_guard guard(mMutex);
    if (std::exchange(mPoolStarted, true)) return;
  }
  spawnThread();
}

void Server::join() {
  {
    std::lock_guard guard(mMutex);
    ++mInPool;
  }
  run();
  std::unique_lock lock(mMutex);
  mPoolChanged.wait_for(lock, kDrain, [this] { return mInPool == 0; });
}

void Server::stop() {
  if (mStopping.exchange(true)) return;
  eventfd_write(mStopEvent.get(), 1);
  std::lock_guard guard(mMutex);
  for (const auto& listener : mListeners) shutdown(listener->fd(), SHUT_RDWR);
  if (mInPool != 0) return;
  for (const auto& [key, connection] : mConnections) shutdown(connection->fd(), SHUT_RDWR);
}

void Server::watch(int fd, uint32_t events, EventSource* source) {
  source->handOver();
  epoll_event event{};
  event.events = events | EPOLLONESHOT;
  event.data.ptr = source;
  if (epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) logError("epoll: %s", strerror(errno));
}

void Server::arm(int fd, uint32_t events, EventSource* source) {
  source->handOver();
  epoll_event event{};
  event.events = events | EPOLLONESHOT;
  event.data.ptr = source;
  if (epoll_ctl(mEpoll.get(), EPOLL_CTL_MOD, fd, &event) != 0) logError("epoll: %s", strerror(errno));
}

StallWatch::Ticket Server::stalled(StallWatch::Clock::time_point now, size_t bytes, Connection& connection) {
  const auto ticket = mStalls.add(now, bytes, [&connection] { connection.drop(); });
  mTimer->start(mStalls.due(now));
  return ticket;
}

void Server::releaseMemorySoon() {
  if (!mKeepsMemory.exchange(true)) mTimer->start(StallWatch::Clock::now() + mMemoryKept);
}

void Server::acceptAll(Listener& listener) {
  for (;;) {
    const bool room = hasRoom();
    unique_fd socket = room ? acceptFrom(listener.fd()) : unique_fd();
    if (socket.ok()) {
      addConnection(listener, std::move(socket));
    } else if (!room || errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
      waitForRoom(listener);
      return;
    } else if (errno != ECONNABORTED) {
      if (!mStopping) arm(listener.fd(), EPOLLIN, &listener);
      return;
    }
  }
}

void Server::armWaitingListeners() {
  std::vector<Listener*> waiting;
  {
    std::lock_guard guard(mMutex);
    waiting.swap(mWaitingListeners);
  }
  for (Listener* const listener : waiting) arm(listener->fd(), EPOLLIN, listener);
}

void Server::forget(const Connection& connection) {
  // Closing alone leaves the socket open, and in the set, where a forked child has it too.
  epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, connection.fd(), nullptr);
  shutdown(connection.fd(), SHUT_RDWR);
  {
    std::lock_guard guard(mMutex);
    mConnections.erase(&connection);
  }
  armWaitingListeners();
}

// The loop of a thread of the pool, which is counted in mInPool already.
void Server::run() {
  const auto worker = std::make_unique_for_overwrite<Worker>();
  while (!mStopping.load(std::memory_order_relaxed)) {
    epoll_event event{};
    mIdle.fetch_add(1, std::memory_order_relaxed);
    const int count = epoll_wait(mEpoll.get(), &event, 1, -1);
    const bool lastIdle = mIdle.fetch_sub(1, std::memory_order_relaxed) == 1;
    if (count != 1 || event.data.ptr == nullptr) continue;
    if (lastIdle) growPool();
    auto* const source = static_cast<EventSource*>(event.data.ptr);
    source->takeOver();
    source->onEvent(*worker);
  }
  leavePool();
}

void Server::growPool() {
  {
    std::lock_guard guard(mMutex);
    if (!mPoolStarted || mStopping || mSpawned >= mMaxThreads) return;
    ++mSpawned;
  }
  spawnThread();
}

void Server::spawnThread() {
  {
    std::lock_guard guard(mMutex);
    ++mInPool;
  }
  try {
    std::thread([this] {
      android::ProcessState::self()->giveThreadPoolName();
      run();
    }).detach();
  } catch (const std::system_error& error) {
    logError("cannot start a thread: %s", error.what());
    std::lock_guard guard(mMutex);
    --mInPool;
  }
}

void Server::leavePool() {
  std::lock_guard guard(mMutex);
  // The last one out sees to it that no client waits for a reply that nobody will send.
  if (--mInPool == 0) {
    for (const auto& [key, connection] : mConnections) shutdown(connection->fd(), SHUT_RDWR);
  }
  mPoolChanged.notify_all();
}

bool Server::hasRoom() {
  std::lock_guard guard(mMutex);
  return mConnections.size() < mMaxConnections;
}

// The connection that has been idle for longest is asked to go: its client notices when it sends next, and
// connects anew. What it has sent by then is still served.
void Server::waitForRoom(Listener& listener) {
  {
    std::lock_guard guard(mMutex);
    mWaitingListeners.push_back(&listener);
    const Connection* oldest = nullptr;
    uint64_t since = UINT64_MAX;
    for (const auto& [key, connection] : mConnections) {
      const uint64_t idle = connection->idleSince();
      if (idle != 0 && idle < since) {
        since = idle;
        oldest = key;
      }
    }
    if (oldest != nullptr) shutdown(oldest->fd(), SHUT_RD);
  }
  // Room may also come from elsewhere in the process.
  mTimer->start(StallWatch::Clock::now() + kRoomRetry);
}

void Server::addConnection(Listener& listener, unique_fd socket) {
  auto connection = std::make_shared<Connection>(*this, listener.service(), std::move(socket));
  Connection* const source = connection.get();
  {
    std::lock_guard guard(mMutex);
    mConnections.emplace(source, std::move(connection));
  }
  watch(source->fd(), EPOLLIN, source);
}

Server& processServer() {
  static PerProcess<Server> server;
  return server.get();
}

}  // namespace platform::binder
