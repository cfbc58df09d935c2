#include "support/ProcessFigures.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace bench {
namespace {

[[noreturn]] void fail(const std::filesystem::path& path) {
  fprintf(stderr, "%s: the figure is not there\n", path.c_str());
  abort();
}

std::filesystem::path directoryOf(pid_t pid) {
  return "/proc/" + std::to_string(pid);
}

// Returns the number after "name:" in a file of lines.
long field(const std::filesystem::path& file, const std::string& name) {
  std::ifstream words(file);
  std::string word;
  while (words >> word && word != name + ":") continue;
  long value = 0;
  if (!(words >> value)) fail(file);
  return value;
}

// Returns the sum of `read` over the directories of all threads.
template <typename Read>
auto sumOverThreads(pid_t pid, Read read) {
  decltype(read(std::filesystem::path())) sum = 0;
  for (const auto& thread : std::filesystem::directory_iterator(directoryOf(pid) / "task")) {
    sum += read(thread.path());
  }
  return sum;
}

}  // namespace

long privateDirtyKib(pid_t pid) {
  return field(directoryOf(pid) / "smaps_rollup", "Private_Dirty");
}

uint64_t processorNs(pid_t pid) {
  return sumOverThreads(pid, [](const std::filesystem::path& thread) {
    uint64_t ns = 0;
    if (!(std::ifstream(thread / "schedstat") >> ns)) fail(thread);
    return ns;
  });
}

long sleeps(pid_t pid) {
  return sumOverThreads(pid, [](const std::filesystem::path& thread) {
    return field(thread / "status", "voluntary_ctxt_switches");
  });
}

}  // namespace bench
