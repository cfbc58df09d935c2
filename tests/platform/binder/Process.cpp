#include "Process.h"

#include <filesystem>

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace test {

Process::Process(std::vector<std::string> arguments) {
  const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / arguments.at(0);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  mOutput.reset(ends[0]);
  const android::base::unique_fd input(ends[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.get(), STDOUT_FILENO);
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  if (posix_spawn(&mPid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) mPid = -1;
  posix_spawn_file_actions_destroy(&actions);
}

Process::~Process() {
  kill();
  wait();
}

std::string Process::read() {
  char text[256];
  const ssize_t size = TEMP_FAILURE_RETRY(::read(mOutput.get(), text, sizeof(text)));
  return size > 0 ? std::string(text, static_cast<size_t>(size)) : std::string();
}

std::string Process::readAll() {
  std::string all;
  for (std::string part = read(); !part.empty(); part = read()) all += part;
  return all;
}

void Process::kill() {
  if (mPid > 0) ::kill(mPid, SIGKILL);
}

int Process::wait() {
  int status = 0;
  if (mPid > 0 && TEMP_FAILURE_RETRY(waitpid(mPid, &status, 0)) != mPid) status = -1;
  mPid = -1;
  return status;
}

}  // namespace test
