// The live view without a terminal: keys go in, lines come out.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "timeline/Chart.h"
#include "timeline/Timeline.h"
#include "top/Lines.h"

namespace top {

// The keys that have a meaning. Terminal::read() makes them of what the terminal sends.
enum class Key { Up, Down, Left, Right, PageUp, PageDown, Home, End, Enter, Escape, Backspace, Character };

// One key press.
struct Input {
  Key key = Key::Character;
  std::string character;  // of Key::Character: one character in UTF-8
};

// What the view shows beside the timeline.
// All three are shown with control characters as escapes.
struct Surroundings {
  std::string source;  // "live", or the name of the file
  std::string counts;  // a line about statsd's counters; empty if there are none
  std::string notice;  // what is wrong at the moment; empty if nothing is
};

// Holds what the user has chosen: the time, the filter, the row under the cursor, the period. It reads no
// clock and asks nobody, so tests can play any keys at any time. The timeline is the caller's and may grow
// between two calls. Not thread-safe.
class View {
 public:
  // A live view follows the end of the timeline; another one stands at its end and walks through it.
  View(bool live, timeline::Glyphs glyphs) : mLive(live), mGlyphs(glyphs) {}

  // Returns false if the key ends the view.
  [[nodiscard]] bool handle(const Input& input, const timeline::Timeline& timeline);

  // Call it once a period, before the look at the service. A live view needs no call.
  // One period has passed. A recording that is being played moves on.
  void tick(const timeline::Timeline& timeline);

  // Returns the screen: at most size.rows lines, none wider than size.columns. Moves the list so that the
  // cursor is on the screen.
  std::vector<Line> render(const timeline::Timeline& timeline, const Surroundings& surroundings, Size size);

  // The time between two looks at the service, or two steps of a recording.
  int64_t periodMs() const;
  // True if the view does not move on by itself.
  bool isPaused() const { return mLive ? mAtMs.has_value() : !mPlaying; }

 private:
  // The row under the cursor: a process, or a key of an open one.
  struct Place {
    int32_t pid = 0;
    std::string key;  // empty: the process

    bool operator==(const Place&) const = default;
  };

  // The boot time that is shown: the chosen one, else the end of the timeline.
  int64_t timeOf(const timeline::Timeline& timeline) const;
  // Stands at a time from now on; at the end of the timeline a live view follows it again.
  void goTo(int64_t atMs, const timeline::Timeline& timeline);
  void goToDeath(bool forward, const timeline::Timeline& timeline);
  // Live: stands still or follows. A recording: plays or stops.
  void togglePause(const timeline::Timeline& timeline);
  // A key while the filter is typed.
  void type(const Input& input);
  [[nodiscard]] bool handleCharacter(char character, const timeline::Timeline& timeline);
  // By rows, down if positive, and no further than the list goes.
  void moveCursor(int64_t rows);
  std::vector<Line> listLines(const timeline::Timeline& timeline,
                              const std::vector<timeline::ProcessSnapshot>& processes, Size size);
  std::string emptyListText(const timeline::Timeline& timeline) const;
  // Scrolls the list of `rows` rows so that the row under the cursor is on the screen.
  void showCursor(size_t rows);
  Line titleLine(const timeline::Timeline& timeline, const Surroundings& surroundings) const;
  Line footLine(const Surroundings& surroundings) const;

  bool mLive;
  timeline::Glyphs mGlyphs;
  size_t mPeriod = 2;            // an index into the periods
  std::optional<int64_t> mAtMs;  // empty: the end of the timeline
  bool mPlaying = false;
  bool mTyping = false;  // keys go into the filter
  std::string mFilter;
  std::set<int32_t> mOpen;  // processes whose keys have rows of their own

  std::vector<Place> mPlaces;  // the rows of the list when it was last rendered
  Place mCursor;
  size_t mCursorRow = 0;
  size_t mFirstRow = 0;  // on the screen
  size_t mListRows = 0;  // on the screen
};

}  // namespace top
