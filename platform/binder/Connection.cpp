#include "Connection.h"

#include <cerrno>
#include <utility>

#include <sys/epoll.h>
#include <sys/socket.h>

#include "Log.h"
#include "OneWayQueue.h"
#include "Server.h"

namespace platform::binder {
namespace {

// One-way transactions of one connection that may wait: half of the device's receive buffer, each counted
// with what it takes beside its payload.
constexpr size_t kMaxBacklog = kMaxPayload / 2;
constexpr size_t kItemOverhead = 256;

// A client that never stops sending gives way to others after so many reads. More than one, because a client
// often has its next transaction ready as soon as it has a reply, and going back to the set costs more than a
// read that finds nothing.
constexpr int kReadsPerEvent = 16;

// Making a reply takes about ten times its size.
constexpr size_t kLargeReply = size_t{64} * 1024;

bool isOneWay(const Frame& frame) {
  return (frame.header.flags & android::IBinder::FLAG_ONEWAY) != 0;
}

}  // namespace

Connection::Connection(Server& server, std::shared_ptr<const Service> service,
                       android::base::unique_fd socket)
    : mServer(server), mService(std::move(service)), mSocket(std::move(socket)), mPeer(peerOf(fd())) {}

Connection::~Connection() {
  endStall();
}

void Connection::onEvent(Worker& worker) {
  const auto self = shared_from_this();
  mIdleSince.store(0, std::memory_order_relaxed);
  switch (advance(worker)) {
    case Next::Read:
      if (!mStall) mIdleSince.store(mServer.countEvent(), std::memory_order_relaxed);
      mServer.arm(fd(), EPOLLIN, this);
      break;
    case Next::Write:
      mServer.arm(fd(), EPOLLOUT, this);
      break;
    case Next::Pause:
      break;
    case Next::Close:
      endStall();
      if (mDropped) logWarning("%s stalled for too long; the connection is closed", describe().c_str());
      mServer.forget(*this);
      break;
  }
  // Armed, the connection may be in another thread's hands: only the queue is touched from here.
  if (const auto queue = std::exchange(worker.toRun, nullptr); queue != nullptr) queue->run(worker);
}

void Connection::drop() {
  mDropped = true;
  shutdown(fd(), SHUT_RDWR);
}

void Connection::oneWayDone(size_t payloadSize) {
  bool resume = false;
  {
    std::lock_guard guard(mBacklogMutex);
    mBacklog -= payloadSize + kItemOverhead;
    if (mBacklog <= kMaxBacklog / 2) resume = std::exchange(mPaused, false);
  }
  if (resume) mServer.arm(fd(), EPOLLIN, this);
}

Connection::Next Connection::advance(Worker& worker) {
  if (!flush()) return mBroken ? Next::Close : Next::Write;
  int reads = 0;
  bool worthReading = true;
  for (;;) {
    Frame frame;
    switch (mReader.next(&frame)) {
      case FrameReader::Result::Frame:
        endStall();
        handle(frame, worker);
        if (mBroken) return Next::Close;
        if (!mOut.empty()) {
          mReader.keep();
          noteStall(/*progress=*/true);
          return Next::Write;
        }
        worthReading |= !isOneWay(frame);
        break;
      case FrameReader::Result::Malformed:
        logWarning("%s sent %s; the connection is closed", describe().c_str(), mReader.fault());
        return Next::Close;
      case FrameReader::Result::NeedMore:
        mReader.keep();
        if (!worthReading || reads++ == kReadsPerEvent) return awaitMore();
        switch (receive(worker)) {
          case Received::Rest:
            worthReading = false;
            break;
          case Received::Full:
            break;
          case Received::Nothing:
            return awaitMore();
          case Received::End:
            if (mReader.inFrame() && !mDropped) {
              logWarning("%s closed in the middle of a frame", describe().c_str());
            }
            return Next::Close;
        }
        break;
    }
  }
}

Connection::Next Connection::awaitMore() {
  {
    std::lock_guard guard(mBacklogMutex);
    if (mBacklog > kMaxBacklog) {
      endStall();  // a client that we do not read from is not to blame for standing still
      mPaused = true;
      return Next::Pause;
    }
  }
  if (mReader.inFrame()) noteStall(/*progress=*/false);
  return Next::Read;
}

// Feeds the reader what the socket holds.
Connection::Received Connection::receive(Worker& worker) {
  const ssize_t size =
      TEMP_FAILURE_RETRY(recv(fd(), worker.incoming.data(), worker.incoming.size(), MSG_DONTWAIT));
  if (size < 0 && errno == EAGAIN) return Received::Nothing;
  if (size <= 0) return Received::End;
  mReader.feed(worker.incoming.data(), static_cast<size_t>(size));
  return static_cast<size_t>(size) == worker.incoming.size() ? Received::Full : Received::Rest;
}

void Connection::handle(const Frame& frame, Worker& worker) {
  if (isOneWay(frame)) {
    enqueue(frame, worker);
  } else {
    answer(frame, worker);
  }
}

void Connection::enqueue(const Frame& frame, Worker& worker) {
  {
    std::lock_guard guard(mBacklogMutex);
    mBacklog += frame.header.size + kItemOverhead;
  }
  OneWayQueue::Item item{
      frame.header, {frame.payload, frame.payload + frame.header.size}, shared_from_this()};
  if (mService->oneWays->push(std::move(item))) worker.toRun = mService->oneWays;
}

void Connection::answer(const Frame& frame, Worker& worker) {
  android::status_t status = dispatch(*mService->binder, mPeer, frame, worker);
  if (worker.reply.dataSize() > kLargeReply) mServer.releaseMemorySoon();
  if (worker.reply.dataSize() > kMaxPayload) {
    logWarning("%s: the reply to code %u is %zu bytes, over the limit of %zu; its caller gets an error",
               describe().c_str(), frame.header.value, worker.reply.dataSize(), kMaxPayload);
    worker.reply.freeData();
    status = android::FAILED_TRANSACTION;
  }
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Reply),
                           static_cast<uint32_t>(worker.reply.dataSize()), static_cast<uint32_t>(status), 0};
  const ssize_t sent = sendFrame(fd(), header, worker.reply.data(), 0, MSG_DONTWAIT);
  if (sent < 0 && errno != EAGAIN) {
    mBroken = true;
    return;
  }
  const size_t taken = sent > 0 ? static_cast<size_t>(sent) : 0;
  if (taken == sizeof(header) + header.size) return;
  const auto* const head = reinterpret_cast<const uint8_t*>(&header);
  mOut.assign(head, head + sizeof(header));
  mOut.insert(mOut.end(), worker.reply.data(), worker.reply.data() + header.size);
  mOutSent = taken;
}

// Sends what is left of a reply. False where some of it still is, or where the client is gone.
bool Connection::flush() {
  if (mOut.empty()) return true;
  const ssize_t sent = TEMP_FAILURE_RETRY(
      send(fd(), mOut.data() + mOutSent, mOut.size() - mOutSent, MSG_NOSIGNAL | MSG_DONTWAIT));
  if (sent < 0) {
    mBroken = errno != EAGAIN;
    return false;
  }
  mOutSent += static_cast<size_t>(sent);
  if (mOutSent < mOut.size()) {
    noteStall(/*progress=*/true);
    return false;
  }
  mOut = {};
  mOutSent = 0;
  endStall();
  return true;
}

void Connection::noteStall(bool progress) {
  const size_t bytes = mReader.heldSize() + mOut.size();
  const auto now = StallWatch::Clock::now();
  if (!mStall) {
    mStall = mServer.stalled(now, bytes, *this);
  } else if (progress) {
    mServer.stalls().restart(*mStall, now, bytes);
  } else {
    mServer.stalls().resize(*mStall, bytes);
  }
}

void Connection::endStall() {
  if (mStall) mServer.stalls().remove(*mStall);
  mStall.reset();
}

std::string Connection::describe() const {
  return "a client of " + mService->name + " (uid " + std::to_string(mPeer.uid) + ", pid " +
         std::to_string(mPeer.pid) + ")";
}

}  // namespace platform::binder
