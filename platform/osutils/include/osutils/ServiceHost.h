// The in-house service host: registers a daemon's binder services and gives the calling thread to the pool.
#pragma once

#include <initializer_list>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>
#include <variant>

#include <binder/IBinder.h>
#include <utils/StrongPointer.h>

// Declared only, because Debian has no header of the NDK's binder.
namespace ndk {
class ICInterface;
}

namespace Torv::OS {

// Written against libbinder's API alone, so a device's libbinder serves it as well. Not thread-safe: built
// and used by the main thread.
class ServiceHost {
 public:
  // A service of libbinder's C++ interface or of the NDK's. Only the first kind can be registered.
  using Binder = std::variant<android::sp<android::IBinder>, std::shared_ptr<ndk::ICInterface>>;

  // Registers every service under its name, in the order of the list. A service that cannot be registered
  // (the name is taken, the service manager cannot be reached) is logged and ends the process: a daemon that
  // nobody can look up is of no use.
  ServiceHost(std::initializer_list<std::pair<std::string_view, Binder> const> services);

  // Starts the binder thread pool and joins the calling thread to it. Returns when the pool stops serving.
  void startThreadPool();
};

}  // namespace Torv::OS
