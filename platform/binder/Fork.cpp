#include "Fork.h"

#include <pthread.h>

namespace platform::binder {
namespace {

std::atomic<uint32_t> gGeneration{0};

}  // namespace

uint32_t forkGeneration() {
  static const int registered =
      pthread_atfork(nullptr, nullptr, [] { gGeneration.fetch_add(1, std::memory_order_relaxed); });
  static_cast<void>(registered);
  return gGeneration.load(std::memory_order_relaxed);
}

}  // namespace platform::binder
