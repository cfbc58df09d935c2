#include "osutils/Thread.h"

#include <string>

#include <pthread.h>

namespace Torv::OS::Thread {

void setName(std::thread& thread, std::string_view name) {
  constexpr size_t kKernelNameLength = 15;
  if (!thread.joinable()) return;
  pthread_setname_np(thread.native_handle(), std::string(name.substr(0, kKernelNameLength)).c_str());
}

}  // namespace Torv::OS::Thread
