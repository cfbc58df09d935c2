#include "runtime/HeapPolicy.h"

#include <algorithm>
#include <atomic>
#include <semaphore>
#include <thread>

#include <malloc.h>
#include <pthread.h>
#include <unistd.h>

namespace platform {
namespace {

constexpr size_t kBytesBeforeTrim = size_t{64} << 10;
constexpr unsigned kPauseSeconds = 1;

std::atomic<size_t> gBytes{0};  // since the trimmer woke up last
std::counting_semaphore<> gTrimDue{0};

// Traffic during the pause may still be in use when the pause ends. It counts towards the next turn, so the
// last trim comes between one and two seconds after the last traffic.
void* trimWhenDue(void* /*unused*/) {
  for (;;) {
    gTrimDue.acquire();
    gBytes = 0;
    sleep(kPauseSeconds);
    malloc_trim(0);
  }
}

bool startTrimmer() {
  pthread_t thread{};
  if (pthread_create(&thread, nullptr, trimWhenDue, nullptr) != 0) return false;
  pthread_setname_np(thread, "heap-trim");
  pthread_detach(thread);
  return true;
}

}  // namespace

void applyHeapPolicy() {
  // By default each thread gets a heap of its own, up to eight for each processor, and each heap keeps the
  // holes of everything that its thread has answered. More heaps than processors make nothing faster.
  mallopt(M_ARENA_MAX, static_cast<int>(std::max(2U, std::thread::hardware_concurrency())));
}

void noteHeapTraffic(size_t bytes) {
  const size_t before = gBytes.fetch_add(bytes, std::memory_order_relaxed);
  if (before >= kBytesBeforeTrim || before + bytes < kBytesBeforeTrim) return;
  // If no thread can be started, the heap stays as it is.
  static const bool running = startTrimmer();
  if (running) gTrimDue.release();
}

}  // namespace platform
