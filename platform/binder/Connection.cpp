#include "Connection.h"

#include <cerrno>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#include <binder/IPCThreadState.h>

#include "Log.h"
#include "runtime/HeapPolicy.h"

namespace platform::binder {
namespace {

// The slots of one-way calls count for this uid, not for their clients: a client that has used up its share
// of the pool would otherwise hold the turn and so delay the one-way calls of all others.
constexpr uid_t kNobody = static_cast<uid_t>(-1);

// Makes a token for IPCThreadState::restoreCallingIdentity(). clearCallingIdentity() makes one too, but it
// costs two system calls.
int64_t identityToken(Peer caller) {
  return static_cast<int64_t>(static_cast<uint64_t>(caller.uid) << 32 | static_cast<uint32_t>(caller.pid));
}

// Runs a transaction on the calling thread. Until it returns, getCallingUid() and getCallingPid() name
// `caller`. Returns the transaction's status: OK for a positive one, and the parcel's error if the reply
// could not be written. Leaves `reply` empty unless the status is OK.
android::status_t dispatch(android::BBinder& binder, Peer caller, const FrameHeader& header,
                           const android::Parcel& request, android::Parcel* reply) {
  android::IPCThreadState* const thread = android::IPCThreadState::self();
  const int64_t own = identityToken({thread->getCallingUid(), thread->getCallingPid()});
  thread->restoreCallingIdentity(identityToken(caller));
  android::status_t status = binder.transact(header.value, request, reply, header.flags);
  thread->restoreCallingIdentity(own);
  if (status >= android::OK) status = reply->errorCheck();
  if (status != android::OK) reply->freeData();
  return status;
}

}  // namespace

Pool::Pool(const Limits& limits)
    : transfer(limits.transfer), slots({0, 0}), requests(limits.requests), replies(limits.replies) {}

void Pool::close() {
  for (Shares* const shares : {&slots, &requests, &replies}) shares->close();
}

void Pool::warn(const std::string& what) {
  const uint64_t times = mWarnings.count();
  if (times == 0) return;
  const std::string note =
      times == 1 ? "" : " (and " + std::to_string(times - 1) + " more warnings since the last one)";
  ALOGW("%s%s", what.c_str(), note.c_str());
}

Connection::Connection(Pool& pool, const Service& service, android::base::unique_fd socket)
    : mPool(pool),
      mService(service),
      mSocket(std::move(socket)),
      mPeer(peerOf(mSocket.get())),
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
  android::Parcel request;
  Shares::Part room;
  if (!readPayload(header->size, &request, &room)) return false;
  const bool goesOn =
      isOneWay(*header) ? runOneWay(*header, request) : answer(*header, &request, std::move(room));
  if (mReply.dataSize() > kSmallPayload || mReply.errorCheck() != android::OK) mReply.freeData();
  mReply.setDataSize(0);
  return goesOn;
}

// Waits until the client's share has room for the payload, then reads it. Small payloads need no room.
bool Connection::readPayload(size_t size, android::Parcel* data, Shares::Part* room) {
  if (size > kSmallPayload) {
    const auto before = SteadyClock::now();
    enter(State::Running);
    *room = mPool.requests.take(mPeer.uid, size);
    if (!*room) return false;
    mReader.extendDeadline(SteadyClock::now() - before);
    enter(State::Transferring);
  }
  if (const auto read = mReader.payload(size, data); !read.ok()) return fail(read.error().message());
  enter(State::Running);
  return true;
}

bool Connection::runOneWay(const FrameHeader& header, const android::Parcel& request) {
  // The turn comes first: calls that wait for it must not hold slots, which two-way calls could use.
  const Shares::Part turn = mService.oneWayTurn.take(mPeer.uid, 1);
  const Shares::Part slot = mPool.slots.take(kNobody, 1);
  if (!turn || !slot) return false;
  // A one-way call has no calling pid, as on the device.
  dispatch(*mService.binder, {mPeer.uid, 0}, header, request, &mReply);
  return true;
}

bool Connection::answer(const FrameHeader& header, android::Parcel* request, Shares::Part room) {
  Shares::Part slot = mPool.slots.take(mPeer.uid, 1);
  if (!slot) return false;
  android::status_t status = dispatch(*mService.binder, mPeer, header, *request, &mReply);
  // The request must not take memory while a slow client reads the reply.
  request->freeData();
  room.reset();
  noteHeapTraffic(mReply.dataSize());
  if (mReply.dataSize() > kMaxPayload) {
    fail("asked with code " + std::to_string(header.value) + " for a reply of " +
         std::to_string(mReply.dataSize()) + " bytes, over the limit of " + std::to_string(kMaxPayload) +
         ", and gets an error");
    mReply.freeData();
    status = android::FAILED_TRANSACTION;
  }
  return reply(status, std::move(slot));
}

bool Connection::reply(android::status_t status, Shares::Part slot) {
  const FrameHeader header{static_cast<uint32_t>(FrameKind::Reply), static_cast<uint32_t>(mReply.dataSize()),
                           static_cast<uint32_t>(status), 0};
  const ssize_t taken = sendFrame(mSocket.get(), header, mReply.data(), 0, MSG_DONTWAIT);
  if (taken < 0 && errno != EAGAIN) return false;
  const size_t sent = taken > 0 ? static_cast<size_t>(taken) : 0;
  if (sent == sizeof(header) + header.size) return true;
  // The slot is kept until the client's share has room for the reply: this is what bounds the replies that
  // wait for slow readers.
  const Shares::Part room = mPool.replies.take(mPeer.uid, sizeof(header) + header.size);
  slot.reset();
  return room && sendRest(header, sent);
}

bool Connection::sendRest(const FrameHeader& header, size_t sent) {
  enter(State::Transferring);
  const auto deadline = SteadyClock::now() + mPool.transfer;
  while (sent < sizeof(header) + header.size) {
    if (!waitFor(mSocket.get(), POLLOUT, deadline)) return fail("does not read its reply");
    const ssize_t taken = sendFrame(mSocket.get(), header, mReply.data(), sent, MSG_DONTWAIT);
    if (taken < 0 && errno != EAGAIN) return false;
    if (taken > 0) sent += static_cast<size_t>(taken);
  }
  return true;
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
