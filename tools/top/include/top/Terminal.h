// The terminal that a view is drawn on.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include <android-base/result.h>

#include "top/Lines.h"
#include "top/View.h"

namespace top {

// While one lives, the terminal shows the view and gives keys as they are typed; its destructor restores it.
// SIGTSTP and SIGCONT restore it and draw it again. Signals that end the process must be handled by the
// owner, who destroys the terminal. At most one at a time; not thread-safe.
class Terminal {
 public:
  // Returns an error if standard input or output is no terminal, or none that can be drawn on. Characters are
  // drawn as the process's locale says, so set LC_CTYPE first.
  [[nodiscard]] static android::base::Result<std::unique_ptr<Terminal>> open();

  // Gives the screen and the keyboard back as they were.
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  // Of the terminal now; it changes when the window does.
  Size size() const;
  // Replaces what the terminal shows. Lines must be no wider than the terminal (View::render sees to it);
  // lines below its last row are not seen. Blocks if the terminal takes no output.
  void draw(const std::vector<Line>& lines);
  // Returns the next key that was typed, or nullopt if there is none. Does not block.
  std::optional<Input> read();

 private:
  Terminal() = default;
};

}  // namespace top
