#include "top/Terminal.h"

#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include <ncurses.h>
#include <unistd.h>

namespace top {
namespace {

using android::base::Error;
using android::base::Result;

// Red for what is dead or wrong, green for what has just changed, cyan for charts.
enum ColourPair : short { kRed = 1, kGreen, kCyan };

// -1 is the terminal's own background, so that the view fits dark and light ones.
void startColours() {
  if (getenv("NO_COLOR") != nullptr || !has_colors()) return;
  start_color();
  use_default_colors();
  init_pair(kRed, COLOR_RED, -1);
  init_pair(kGreen, COLOR_GREEN, -1);
  init_pair(kCyan, COLOR_CYAN, -1);
}

// Without colours, the pairs are plain text.
attr_t attributesOf(Style style) {
  switch (style) {
    case Style::Plain:
      break;
    case Style::Strong:
      return A_BOLD;
    case Style::Faint:
      return A_DIM;
    case Style::Title:
    case Style::Cursor:
      return A_REVERSE;
    case Style::Changed:
      return A_BOLD | static_cast<attr_t>(COLOR_PAIR(kGreen));
    case Style::Dead:
      return static_cast<attr_t>(COLOR_PAIR(kRed));
    case Style::Chart:
      return static_cast<attr_t>(COLOR_PAIR(kCyan));
  }
  return A_NORMAL;
}

// ncurses' numbers of keys overlap with those of characters, so the two have functions of their own.
std::optional<Key> keyOf(wint_t code) {
  constexpr std::pair<wint_t, Key> kKeys[] = {{KEY_UP, Key::Up},        {KEY_DOWN, Key::Down},
                                              {KEY_LEFT, Key::Left},    {KEY_RIGHT, Key::Right},
                                              {KEY_PPAGE, Key::PageUp}, {KEY_NPAGE, Key::PageDown},
                                              {KEY_HOME, Key::Home},    {KEY_END, Key::End},
                                              {KEY_ENTER, Key::Enter},  {KEY_BACKSPACE, Key::Backspace}};
  for (const auto& [known, key] : kKeys) {
    if (known == code) return key;
  }
  return std::nullopt;
}

// Enter, Escape and Backspace arrive as characters on most terminals. Other control characters have no use.
std::optional<Input> inputOf(wint_t character) {
  constexpr wint_t kEscape = 0x1b;
  constexpr wint_t kDelete = 0x7f;
  if (character == '\r' || character == '\n') return Input{Key::Enter, ""};
  if (character == kEscape) return Input{Key::Escape, ""};
  if (character == kDelete || character == '\b') return Input{Key::Backspace, ""};
  std::array<char, MB_LEN_MAX> bytes{};
  std::mbstate_t state{};
  const size_t length = std::wcrtomb(bytes.data(), static_cast<wchar_t>(character), &state);
  if (character < ' ' || length == static_cast<size_t>(-1)) return std::nullopt;
  return Input{Key::Character, std::string(bytes.data(), length)};
}

}  // namespace

// newterm() and not initscr(), which ends the process if the terminal is unknown. The short delay tells
// Escape from the keys that begin with it; keys never block, because the caller waits with poll(2).
Result<std::unique_ptr<Terminal>> Terminal::open() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    return Error() << "the live view needs a terminal as standard input and output";
  }
  set_escdelay(25);
  if (newterm(nullptr, stdout, stdin) == nullptr) {
    const char* const name = getenv("TERM");
    return Error() << "nothing is known of the terminal " << (name == nullptr ? "(TERM is not set)" : name);
  }
  // Keys come at once and unseen. Ctrl-C stays a signal, which the owner waits for.
  cbreak();
  noecho();
  nodelay(stdscr, TRUE);
  keypad(stdscr, TRUE);
  curs_set(0);
  startColours();
  return std::unique_ptr<Terminal>(new Terminal());
}

// ncurses keeps its memory; what matters is that the terminal is as it was.
Terminal::~Terminal() {
  endwin();
}

// ncurses follows the window by its own handler of SIGWINCH.
Size Terminal::size() const {
  return {static_cast<size_t>(getmaxx(stdscr)), static_cast<size_t>(getmaxy(stdscr))};
}

// ncurses compares with what is on the screen and sends the difference only.
void Terminal::draw(const std::vector<Line>& lines) {
  erase();
  for (size_t row = 0; row < lines.size(); ++row) {
    move(static_cast<int>(row), 0);
    for (const Span& span : lines[row]) {
      attrset(static_cast<int>(attributesOf(span.style)));
      addstr(span.text.c_str());
    }
  }
  refresh();
}

std::optional<Input> Terminal::read() {
  while (true) {
    wint_t code = 0;
    const int kind = get_wch(&code);
    if (kind == ERR) return std::nullopt;
    if (kind == KEY_CODE_YES) {
      if (const auto key = keyOf(code)) return Input{*key, ""};
    } else if (auto input = inputOf(code)) {
      return input;
    }
    // Keys without a use are passed over. One of them tells that the window has another size now.
  }
}

}  // namespace top
