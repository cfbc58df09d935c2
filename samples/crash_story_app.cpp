// An application that tells the service what it is doing, as statsd atoms, until a bug ends it: it keeps
// using a picture after giving its memory back, and dies of the SIGSEGV that the kernel sends for that.
//
//   crash_story_app [--seconds N]
//
// Prints "  process PID" on the first line, then each step of its story.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <statsd/StatsEventWriter.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kPictureBytes = size_t{8} << 20;
constexpr auto kStep = std::chrono::milliseconds(200);

struct Moment {
  const char* screen;
  const char* action;
  int share;      // how long it takes, beside the others
  bool computes;  // keeps every processor busy
};

// The last moment is what the crash report will show.
constexpr Moment kStory[] = {
    {"home", "started", 1, false},
    {"gallery", "opened the album Holidays", 1, false},
    {"gallery", "scrolled to picture 214", 1, false},
    {"editor", "opened picture 214", 1, false},
    {"editor", "applied the filter Sunset", 2, true},
    {"editor", "sharing picture 214", 1, false},
};

// What an application needs to be heard: a writer, kept as long as there is something to say. A failure is
// told once and never stops the application, because publishing is not its purpose.
class Publisher {
 public:
  void publish(const char* key, const std::string& value) {
    const auto result = mWriter.publishApplicationState(getpid(), key, value);
    if (result == libstatsd::WriteResult::Sent || mComplained) return;
    fprintf(stderr, "crash_story_app: no service hears what this application publishes\n");
    mComplained = true;
  }

 private:
  libstatsd::StatsEventWriter mWriter;
  bool mComplained = false;
};

// What the process holds in memory, as the kernel counts it: the second number of statm, in pages.
long residentKib() {
  long all = 0;
  long resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

// Written to, because the kernel gives memory only at the first write to it.
char* newPicture() {
  void* picture = mmap(nullptr, kPictureBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (picture == MAP_FAILED) {
    perror("mmap");
    exit(1);
  }
  memset(picture, 0x7f, kPictureBytes);
  return static_cast<char*>(picture);
}

// Flushed, so that the last step before the crash is on the terminal.
void tell(Publisher& publisher, const Moment& moment) {
  printf("  %s: %s\n", moment.screen, moment.action);
  fflush(stdout);
  publisher.publish("screen", moment.screen);
  publisher.publish("last_action", moment.action);
}

// More threads than processors, so that they also wait for each other: that is what pressure measures.
class BusyThreads {
 public:
  explicit BusyThreads(bool wanted) {
    const unsigned count = wanted ? 2 * std::max(1U, std::thread::hardware_concurrency()) : 0;
    for (unsigned i = 0; i < count; ++i) {
      mThreads.emplace_back([this] {
        while (!mDone) {
        }
      });
    }
  }
  ~BusyThreads() {
    mDone = true;
    for (std::thread& thread : mThreads) thread.join();
  }
  BusyThreads(const BusyThreads&) = delete;
  BusyThreads& operator=(const BusyThreads&) = delete;

 private:
  std::atomic<bool> mDone = false;
  std::vector<std::thread> mThreads;
};

// Lives through the story.
void work(Publisher& publisher, double seconds) {
  int shares = 0;
  for (const Moment& moment : kStory) shares += moment.share;
  const auto share =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds)) / shares;
  auto until = Clock::now();
  for (const Moment& now : kStory) {
    until += share * now.share;
    tell(publisher, now);
    newPicture();  // the application's other fault: it keeps them all
    const BusyThreads busy(now.computes);
    do {
      publisher.publish("memory_kib", std::to_string(residentKib()));
      std::this_thread::sleep_for(std::min<Clock::duration>(kStep, until - Clock::now()));
    } while (Clock::now() < until);
  }
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Publishes what it does, then dies of a SIGSEGV.", "crash_story_app");
  double seconds = 7;
  app.add_option("--seconds", seconds, "How long it works before it dies")
      ->check(CLI::Range(0.0, 3600.0))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  printf("  process %d\n", getpid());
  fflush(stdout);
  const rlimit none{};
  setrlimit(RLIMIT_CORE, &none);  // it dies on purpose; nobody wants its core file

  Publisher publisher;
  work(publisher, seconds);
  // The bug: volatile keeps the compiler from seeing it.
  char* volatile picture = newPicture();
  munmap(picture, kPictureBytes);
  *picture = 0;
  return 0;
}
