#include "TestService.h"

#include <signal.h>
#include <unistd.h>

#include <binder/IPCThreadState.h>

namespace test {

using android::Parcel;
using android::status_t;

status_t TestService::onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
  const auto* const thread = android::IPCThreadState::self();
  switch (code) {
    case kWho:
      reply->writeInt32(static_cast<int32_t>(thread->getCallingUid()));
      reply->writeInt32(thread->getCallingPid());
      return reply->writeInt32(static_cast<int32_t>(flags));
    case kReplyWith:
      return reply->setDataSize(data.readUint32());
    case kKill:
      return kill(getpid(), SIGKILL);
    case kStop:
      android::IPCThreadState::self()->stopProcess();
      return android::OK;
    case kHold:
      hold();
      return android::OK;
    case kRelease:
      release();
      return android::OK;
    case kNote:
      note(data.readInt32());
      return android::OK;
    case kNotes:
      return reply->writeInt32Vector(notes());
    case kAwaitNotes:
      return reply->writeInt32Vector(awaitNotes(data.readUint32()));
    default:
      return BBinder::onTransact(code, data, reply, flags);
  }
}

std::vector<int32_t> TestService::notes() const {
  std::lock_guard guard(mMutex);
  return mNotes;
}

std::vector<int32_t> TestService::awaitNotes(size_t count) {
  std::unique_lock lock(mMutex);
  mChanged.wait(lock, [&] { return mNotes.size() >= count; });
  return mNotes;
}

void TestService::release() {
  std::lock_guard guard(mMutex);
  mReleased = true;
  mChanged.notify_all();
}

void TestService::hold() {
  std::unique_lock lock(mMutex);
  mChanged.wait(lock, [this] { return mReleased; });
}

void TestService::note(int32_t number) {
  std::lock_guard guard(mMutex);
  mNotes.push_back(number);
  mChanged.notify_all();
}

}  // namespace test
