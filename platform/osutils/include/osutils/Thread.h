#pragma once

#include <string_view>
#include <thread>

namespace Torv::OS::Thread {

// Names `thread` for the kernel and the tools that show it. The kernel keeps 15 characters; a longer name is
// cut. Does nothing if `thread` is not joinable.
void setName(std::thread& thread, std::string_view name);

}  // namespace Torv::OS::Thread
