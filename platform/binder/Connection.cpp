#include "Connection.h"

#include <cerrno>
#include <memory>
#include <utility>

#include <sys/socket.h>

#include "Log.h"
#include "runtime/HeapPolicy.h"

namespace platform::binder {

Pool::Pool(const Limits& limits)
    : transfer(limits.transfer),
      slots({0, 0}),
      requests(limits.requests),
      replies(limits.replies),
      oneWays(limits.oneWays) {}

void Pool::close() {
  for (Shares* const shares : {&slots, &requests, &replies, &oneWays}) shares->close();
}

void Pool::warn(const std::string& what) {
  const uint64_t times = mWarnings.count();
  if (times == 0) return;
  const std::string note =
      times == 1 ? "" : " (and " + std::to_string(times - 1) + " more warnings since the last one)";
  ALOGW("%s%s", what.c_str(), note.c_str());
}

Connection::Connection(Pool& pool, const Service& service, Peer peer, android::base::unique_fd socket)
    : mPool(pool),
      mService(service),
      mSocket(std::move(socket)),
      mPeer(peer),
      mReader(mSocket.get(), FrameKind::Transaction, pool.transfer) {}

void Connection::run() {
  while (serveFrame()) {
  }
}

void Connection::giveUp() {
  mGivenUp = true;
  // After SHUT_RD the thread still reads what the client has sent before, and sends its replies.
  shutdown(mSocket.get(), state() == State::Transferring ? SHUT_RDWR : SHUT_RD);
}

// Returns false if the connection has ended, as do the functions below.
bool Connection::serveFrame() {
  enter(State::Idle);
  if (!mReader.await()) return false;
  enter(State::Transferring);
  const auto header = mReader.header();
  if (!header.ok()) return fail(header.error().message());
  return isOneWay(*header) ? enqueue(*header) : answer(*header);
}

bool Connection::enqueue(const FrameHeader& header) {
  auto call = std::make_unique<OneWayQueue::Call>();
  if (!awaitRoom(mPool.oneWays, header.size + kOneWayOverhead, &call->room)) return false;
  if (!readPayload(header.size, &call->data)) return false;
  call->header = header;
  call->caller = mPeer.uid;
  mService.oneWays.push(std::move(call));
  return true;
}

bool Connection::answer(const FrameHeader& header) {
  android::Parcel request;
  Shares::Part room;
  if (header.size > kSmallPayload && !awaitRoom(mPool.requests, header.size, &room)) return false;
  if (!readPayload(header.size, &request)) return false;
  Shares::Part slot = mPool.slots.take(mPeer.uid, 1);
  if (!slot) return false;
  android::status_t status = dispatch(*mService.binder, mPeer, header, request, &mReply);
  // The request must not take memory while a slow client reads the reply.
  request.freeData();
  room.reset();
  const size_t replySize = mReply.dataSize();
  if (replySize > kMaxPayload) {
    fail("asked with code " + std::to_string(header.value) + " for a reply of " + std::to_string(replySize) +
         " bytes, over the limit of " + std::to_string(kMaxPayload) + ", and gets an error");
    mReply.freeData();
    status = android::FAILED_TRANSACTION;
  }
  const bool sent = reply(status, std::move(slot));
  if (mReply.dataSize() > kSmallPayload || mReply.errorCheck() != android::OK) mReply.freeData();
  mReply.setDataSize(0);
  noteHeapTraffic(replySize);  // only now, because a slow reader may have kept it for long
  return sent;
}

// Waits until the client's share has room for a payload that is not read yet. The time does not count against
// the client.
bool Connection::awaitRoom(Shares& shares, size_t amount, Shares::Part* room) {
  const auto before = SteadyClock::now();
  enter(State::Running);
  *room = shares.take(mPeer.uid, amount);
  mReader.extendDeadline(SteadyClock::now() - before);
  enter(State::Transferring);
  return *room != nullptr;
}

bool Connection::readPayload(size_t size, android::Parcel* data) {
  if (const auto read = mReader.payload(size, data); !read.ok()) return fail(read.error().message());
  enter(State::Running);
  return true;
}

bool Connection::reply(android::status_t status, Shares::Part slot) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Reply), static_cast<uint32_t>(mReply.dataSize()),
                           static_cast<uint32_t>(status), 0};
  // The connection keeps the memory of a small reply anyway. Nobody needs to wait until it is sent.
  if (header.size <= kSmallPayload) slot.reset();
  size_t sent = 0;
  auto result = sendFrame(mSocket.get(), header, mReply.data(), &sent, kAtOnce);
  if (!result.ok() && result.error().code() == ETIMEDOUT) {
    // The slot is kept until the client's share has room for the reply: this is what bounds the replies that
    // wait for slow readers.
    const Shares::Part room = mPool.replies.take(mPeer.uid, sizeof(header) + header.size);
    if (!room) return false;
    slot.reset();
    enter(State::Transferring);
    result = sendFrame(mSocket.get(), header, mReply.data(), &sent, SteadyClock::now() + mPool.transfer);
    if (!result.ok() && result.error().code() == ETIMEDOUT) return fail("does not read its reply");
  }
  return result.ok();
}

void Connection::enter(State state) {
  mStateSince.store(SteadyClock::now(), std::memory_order_relaxed);
  mState.store(state, std::memory_order_relaxed);
}

// Warns about what the client has done, unless the server itself has ended the connection. Returns false.
bool Connection::fail(const std::string& why) {
  if (mGivenUp) return false;
  mPool.warn("a client of " + mService.name + " (uid " + std::to_string(mPeer.uid) + ", pid " +
             std::to_string(mPeer.pid) + ") " + why);
  return false;
}

}  // namespace platform::binder
