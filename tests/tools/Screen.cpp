#include "Screen.h"

#include <android-base/strings.h>
#include <unistd.h>

#include "fixture/Daemon.h"
#include "fixture/Process.h"

namespace tools {

Screen::Screen(size_t columns, size_t rows, const std::vector<std::string>& program,
               const std::string& locale) {
  const std::string script = "sh -c 'echo $$ >" + mDir.path("pid") +
                             "; exec \"$@\"' sh \"$@\"; echo code=$?; stty -a; exec sleep 600";
  std::vector<std::string> arguments = {"new-session", "-d",
                                        "-x",          std::to_string(columns),
                                        "-y",          std::to_string(rows),
                                        "env",         "LC_ALL=" + locale,
                                        "sh",          "-c",
                                        script,        "sh"};
  arguments.insert(arguments.end(), program.begin(), program.end());
  tmux(arguments);
}

Screen::~Screen() {
  tmux({"kill-server"});
}

std::string Screen::tmux(std::vector<std::string> arguments) const {
  const std::vector<std::string> server = {"/usr/bin/tmux", "-u", "-f", "/dev/null", "-S", mDir.path("tmux")};
  arguments.insert(arguments.begin(), server.begin(), server.end());
  return fixture::run(arguments, {getuid(), {}}).output;
}

void Screen::type(const std::string& characters) const {
  tmux({"send-keys", "-l", characters});
}

void Screen::press(const std::string& key) const {
  tmux({"send-keys", key});
}

void Screen::resize(size_t columns, size_t rows) const {
  tmux({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)});
}

std::string Screen::text() const {
  return tmux({"capture-pane", "-p"});
}

std::vector<std::string> Screen::lines() const {
  std::vector<std::string> lines = android::base::Split(text(), "\n");
  lines.pop_back();
  return lines;
}

bool Screen::shows(const std::string& part) const {
  return fixture::eventually([&] { return text().find(part) != std::string::npos; });
}

bool Screen::loses(const std::string& part) const {
  return fixture::eventually([&] { return text().find(part) == std::string::npos; });
}

bool Screen::isTaken() const {
  return tmux({"display", "-p", "#{alternate_on} #{cursor_flag}"}) == "1 0\n";
}

pid_t Screen::program() const {
  return std::stoi(test::readFile(mDir.path("pid")));
}

}  // namespace tools
