#include "Connection.h"

#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#include "Log.h"
#include "runtime/HeapPolicy.h"

namespace platform::binder {
// The slots come when the pool starts.
Pool::Pool(const Limits& limits)
    : transfer(limits.transfer),
      slots({0, 0}),
      requests(limits.requests),
      replies(limits.replies),
      oneWays(limits.oneWays) {}

std::string warningsNote(uint64_t times) {
  return times == 1 ? "" : " (and " + std::to_string(times - 1) + " more warnings since the last one)";
}

void Pool::close() {
  for (Shares* const shares : {&slots, &requests, &replies, &oneWays}) shares->close();
}

Connection::Connection(Pool& pool, std::shared_ptr<const Service> service, android::base::unique_fd socket,
                       Peer peer)
    : mPool(pool),
      mService(std::move(service)),
      mSocket(std::move(socket)),
      mPeer(peer),
      mReader(mSocket.get(), FrameKind::Transaction, pool.transfer) {}

void Connection::run() {
  while (serveFrame()) {
  }
}

void Connection::giveUp() {
  mGivenUp = true;
  // A frame that has arrived whole is still read after SHUT_RD, and its reply is sent.
  shutdown(mSocket.get(), state() == State::Transferring ? SHUT_RDWR : SHUT_RD);
}

// Returns false if the connection is at its end, as do the functions below.
bool Connection::serveFrame() {
  enter(State::Idle);
  if (!mReader.await()) return false;
  enter(State::Transferring);
  const auto header = mReader.header();
  if (!header.ok()) return fail(header.error().message());
  return isOneWay(*header) ? enqueue(*header) : answer(*header);
}

// Reads the payload as soon as the client's share of `shares` has room for it.
bool Connection::readPayload(Shares& shares, size_t charge, size_t size, android::Parcel* data,
                             Shares::Part* room) {
  if (charge != 0) {
    const auto before = SteadyClock::now();
    enter(State::Running);
    *room = shares.take(mPeer.uid, charge);
    if (!*room) return false;
    mReader.extendDeadline(SteadyClock::now() - before);
    enter(State::Transferring);
  }
  if (const auto read = mReader.payload(size, data); !read.ok()) return fail(read.error().message());
  enter(State::Running);
  return true;
}

bool Connection::enqueue(const FrameHeader& header) {
  auto call = std::make_unique<OneWayQueue::Call>();
  call->header = header;
  call->caller = mPeer;
  if (!readPayload(mPool.oneWays, header.size + kOneWayOverhead, header.size, &call->data, &call->room)) {
    return false;
  }
  mService->oneWays->push(std::move(call));
  return true;
}

bool Connection::answer(const FrameHeader& header) {
  android::Parcel request;
  Shares::Part room;
  const size_t charge = header.size > kSmallPayload ? header.size : 0;
  if (!readPayload(mPool.requests, charge, header.size, &request, &room)) return false;
  Shares::Part slot = mPool.slots.take(mPeer.uid, 1);
  if (!slot) return false;
  android::status_t status = dispatch(*mService->binder, mPeer, header, request, &mReply);
  request.freeData();
  room.giveBack();
  noteHeapTraffic(mReply.dataSize());
  if (mReply.dataSize() > kMaxPayload) {
    fail("asked with code " + std::to_string(header.value) + " for a reply of " +
         std::to_string(mReply.dataSize()) + " bytes, over the limit of " + std::to_string(kMaxPayload) +
         ", and gets an error");
    mReply.freeData();
    status = android::FAILED_TRANSACTION;
  }
  const bool sent = reply(status, mReply, std::move(slot));
  if (mReply.dataSize() > kSmallPayload || mReply.errorCheck() != android::OK) mReply.freeData();
  mReply.setDataSize(0);
  return sent;
}

bool Connection::reply(android::status_t status, const android::Parcel& data, Shares::Part slot) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Reply), static_cast<uint32_t>(data.dataSize()),
                           static_cast<uint32_t>(status), 0};
  const ssize_t taken = sendFrame(mSocket.get(), header, data.data(), 0, MSG_DONTWAIT);
  if (taken < 0 && errno != EAGAIN) return false;
  const size_t sent = taken > 0 ? static_cast<size_t>(taken) : 0;
  if (sent == sizeof(header) + header.size) return true;
  // The slot is kept until the client's share has room for the reply: this is what bounds the replies that
  // wait for slow readers.
  const Shares::Part room = mPool.replies.take(mPeer.uid, sizeof(header) + header.size);
  slot.giveBack();
  return room && sendRest(header, data, sent);
}

bool Connection::sendRest(const FrameHeader& header, const android::Parcel& data, size_t sent) {
  enter(State::Transferring);
  const auto deadline = SteadyClock::now() + mPool.transfer;
  while (sent < sizeof(header) + header.size) {
    if (!waitFor(mSocket.get(), POLLOUT, deadline)) return fail("does not read its reply");
    const ssize_t taken = sendFrame(mSocket.get(), header, data.data(), sent, MSG_DONTWAIT);
    if (taken < 0 && errno != EAGAIN) return false;
    if (taken > 0) sent += static_cast<size_t>(taken);
  }
  return true;
}

void Connection::enter(State state) {
  mStateSince.store(CoarseClock::now(), std::memory_order_relaxed);
  mState.store(state, std::memory_order_relaxed);
}

// Says what the client has done, unless the server itself ended the connection. Returns false.
bool Connection::fail(const std::string& why) {
  if (mGivenUp) return false;
  if (const uint64_t times = mPool.warnings.count(); times != 0) {
    ALOGW("a client of %s (uid %u, pid %d) %s%s", mService->name.c_str(), mPeer.uid, mPeer.pid, why.c_str(),
          warningsNote(times).c_str());
  }
  return false;
}

}  // namespace platform::binder
