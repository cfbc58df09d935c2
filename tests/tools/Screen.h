// A terminal of a given size with a program in it, made by tmux.
#pragma once

#include <string>
#include <vector>

#include <android-base/strings.h>
#include <unistd.h>

#include "fixture/Daemon.h"
#include "fixture/Process.h"
#include "support/TempDir.h"

namespace tools {

class Screen {
 public:
  // Starts the program in a terminal with this locale. When it has ended, the terminal shows "code=" and its
  // exit code, and what stty says of the terminal.
  Screen(size_t columns, size_t rows, const std::vector<std::string>& program,
         const std::string& locale = "C.UTF-8") {
    const std::string script = "sh -c 'echo $$ >" + mDir.path("pid") +
                               "; exec \"$@\"' sh \"$@\"; echo code=$?; stty -a; exec sleep 600";
    std::vector<std::string> arguments = android::base::Split("new-session -d env LC_ALL=" + locale, " ");
    arguments.insert(arguments.begin() + 2, {"-x", std::to_string(columns), "-y", std::to_string(rows)});
    arguments.insert(arguments.end(), {"sh", "-c", script, "sh"});
    arguments.insert(arguments.end(), program.begin(), program.end());
    tmux(arguments);
  }
  ~Screen() { tmux({"kill-server"}); }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Types characters, or a key by tmux's name ("Enter", "C-z").
  void type(const std::string& characters) const { tmux({"send-keys", "-l", characters}); }
  void press(const std::string& key) const { tmux({"send-keys", key}); }
  void resize(size_t columns, size_t rows) const {
    tmux({"resize-window", "-x", std::to_string(columns), "-y", std::to_string(rows)});
  }

  // Returns what the screen shows now, without blanks at the ends of lines.
  std::string text() const { return tmux({"capture-pane", "-p"}); }
  std::vector<std::string> lines() const {
    std::vector<std::string> lines = android::base::Split(text(), "\n");
    lines.pop_back();
    return lines;
  }
  // Waits up to a minute until the screen shows the text.
  bool shows(const std::string& part) const {
    return fixture::eventually([&] { return text().find(part) != std::string::npos; });
  }
  // Whether a program has the whole screen (alternate screen, no cursor).
  bool isTaken() const { return tmux({"display", "-p", "#{alternate_on} #{cursor_flag}"}) == "1 0\n"; }
  pid_t program() const { return std::stoi(test::readFile(mDir.path("pid"))); }

 private:
  std::string tmux(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"/usr/bin/tmux", "-u", "-f", "/dev/null", "-S", mDir.path("tmux")});
    return fixture::run(arguments, {getuid(), {}}).output;
  }

  test::TempDir mDir;
};

}  // namespace tools
