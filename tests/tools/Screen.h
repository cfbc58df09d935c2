// A terminal of a given size with a program in it, made by tmux.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "support/TempDir.h"

namespace tools {

class Screen {
 public:
  // Starts the program in a terminal with this locale. When it has ended, the terminal shows "code=" and its
  // exit code, and what stty says of the terminal.
  Screen(size_t columns, size_t rows, const std::vector<std::string>& program,
         const std::string& locale = "C.UTF-8");
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  // Types characters, or keys by tmux's names ("Enter", "C-z").
  void type(const std::string& characters) const;
  void press(const std::string& key) const;
  void resize(size_t columns, size_t rows) const;

  // The lines on the screen now, without blanks at their ends.
  std::string text() const;
  std::vector<std::string> lines() const;
  // Waits up to a minute until the screen shows the text, or shows it no more.
  bool shows(const std::string& text) const;
  bool loses(const std::string& text) const;
  // Whether a program has the whole screen (alternate screen, no cursor).
  bool isTaken() const;
  pid_t program() const;

 private:
  std::string tmux(std::vector<std::string> arguments) const;

  test::TempDir mDir;
};

}  // namespace tools
