#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include <android-base/unique_fd.h>

namespace test {

// A program from the folder of the test, with its standard output on a pipe. Killed at the end of the scope.
class Process {
 public:
  explicit Process(std::vector<std::string> arguments);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t pid() const { return mPid; }
  // The next bytes it writes; waits for them. Empty where it has closed its output.
  std::string read();
  // All that it writes from now on, to its end.
  std::string readAll();
  void kill();
  // Waits for its end; the status is waitpid's.
  int wait();

 private:
  pid_t mPid = -1;
  android::base::unique_fd mOutput;
};

}  // namespace test
