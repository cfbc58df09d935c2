#include "parcel/ParcelHeader.h"

#include <android/log.h>
#include <binder/Stability.h>

#include "Log.h"

namespace android::internal {
namespace {

// Its address is the name under which a binder's level is attached to it.
constexpr char kLevelId = 0;

}  // namespace

void Stability::markCompilationUnit(IBinder* binder) {
  if (set(binder, kLocalStability, true) != OK)
    __android_log_assert(nullptr, platform::binder::kLogTag, "a binder is marked twice");
}

void Stability::markVintf(IBinder* binder) {
  if (set(binder, Level::VINTF, true) != OK)
    __android_log_assert(nullptr, platform::binder::kLogTag, "a binder is marked twice");
}

void Stability::markVndk(IBinder* binder) {
  if (set(binder, Level::VENDOR, true) != OK)
    __android_log_assert(nullptr, platform::binder::kLogTag, "a binder is marked twice");
}

bool Stability::requiresVintfDeclaration(const sp<IBinder>& binder) {
  return binder != nullptr && get(binder.get()) == Level::VINTF;
}

// A binder has one level for life.
status_t Stability::set(IBinder* binder, int32_t stability, bool log) {
  const Level current = get(binder);
  if (current != Level::UNDECLARED && current != stability) {
    if (log) platform::binder::logError("a binder of level %d cannot be marked %d", current, stability);
    return BAD_TYPE;
  }
  if (current == Level::UNDECLARED) {
    binder->attachObject(&kLevelId, reinterpret_cast<void*>(static_cast<intptr_t>(stability)), nullptr,
                         nullptr);
  }
  return OK;
}

Stability::Level Stability::get(IBinder* binder) {
  return static_cast<Level>(reinterpret_cast<intptr_t>(binder->findObject(&kLevelId)));
}

}  // namespace android::internal
