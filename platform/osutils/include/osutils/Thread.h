#pragma once

#include <string>
#include <string_view>
#include <thread>

#include <pthread.h>

namespace Torv::OS::Thread {

// Names `thread` for the kernel and the tools that show it. The kernel keeps 15 bytes; a longer name is cut.
// Does nothing if `thread` is not joinable. The thread may be running; no other thread may join or move it
// meanwhile.
inline void setName(std::thread& thread, std::string_view name) {
  constexpr size_t kKernelNameLength = 15;
  if (!thread.joinable()) return;
  pthread_setname_np(thread.native_handle(), std::string(name.substr(0, kKernelNameLength)).c_str());
}

}  // namespace Torv::OS::Thread
