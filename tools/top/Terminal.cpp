#include "top/Terminal.h"

#include <array>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include <langinfo.h>
#include <ncurses.h>
#include <unistd.h>

namespace top {
namespace {

using android::base::Error;
using android::base::Result;

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
  switch (code) {
    case KEY_UP:
      return Key::Up;
    case KEY_DOWN:
      return Key::Down;
    case KEY_LEFT:
      return Key::Left;
    case KEY_RIGHT:
      return Key::Right;
    case KEY_PPAGE:
      return Key::PageUp;
    case KEY_NPAGE:
      return Key::PageDown;
    case KEY_HOME:
      return Key::Home;
    case KEY_END:
      return Key::End;
    case KEY_ENTER:
      return Key::Enter;
    case KEY_BACKSPACE:
      return Key::Backspace;
    default:
      return std::nullopt;
  }
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
  setlocale(LC_CTYPE, "");
  set_escdelay(25);
  if (newterm(nullptr, stdout, stdin) == nullptr) {
    const char* const name = getenv("TERM");
    return Error() << "nothing is known of the terminal " << (name == nullptr ? "(TERM is not set)" : name);
  }
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

// What the locale says: the terminal itself cannot be asked which characters it has.
timeline::Glyphs Terminal::glyphs() const {
  const bool utf8 = std::string_view(nl_langinfo(CODESET)) == "UTF-8";
  return utf8 ? timeline::Glyphs::Blocks : timeline::Glyphs::Ascii;
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
