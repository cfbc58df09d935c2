#include "top/View.h"

#include <algorithm>
#include <array>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "Charts.h"
#include "ProcessList.h"
#include "text/Text.h"

namespace top {
namespace {

using timeline::ProcessSnapshot;
using timeline::Timeline;

constexpr std::array<int64_t, 7> kPeriodsMs = {250, 500, 1000, 2000, 5000, 10'000, 60'000};
constexpr int64_t kMinuteMs = 60'000;

std::string periodText(int64_t ms) {
  return fmt::format("{:g} s", static_cast<double>(ms) / 1000);
}

// True once an answer has come: each answer brings the clocks, and no clock of a machine in use reads zero.
bool isAnswered(const Timeline& timeline) {
  return timeline.clocks.wallMs != 0;
}

std::string wallText(const Timeline& timeline, int64_t bootMs) {
  if (!isAnswered(timeline)) return "no answer yet";
  const std::time_t seconds = wallMsOf(timeline, bootMs) / 1000;
  return fmt::format("{:%Y-%m-%d %H:%M:%S} UTC", fmt::gmtime(seconds));
}

// The keys stand on the screen, because nobody reads a manual of a view that is open.
Line helpLine() {
  Line line;
  for (const auto& [key, use] : {std::pair("q", "quit"),
                                 {"/", "filter"},
                                 {"Enter", "open"},
                                 {"Space", "pause"},
                                 {"+-", "period"},
                                 {"Arrows", "go"},
                                 {"<>", "minute"},
                                 {"nN", "death"}}) {
    line.push_back({key, Style::Strong});
    line.push_back({std::string(" ") + use + " ", Style::Faint});
  }
  return line;
}

// Cuts the line to the width. A line of a title, or under the cursor, is filled up to it.
Line fitted(const Line& line, size_t columns, timeline::Glyphs glyphs) {
  // Texts are printable already. Here they only lose what the terminal has no room or no character for.
  const bool isAscii = glyphs == timeline::Glyphs::Ascii;
  Line result;
  size_t left = columns;
  for (const Span& span : line) {
    if (left == 0) break;
    const std::string text =
        text::cutTo(left, isAscii ? text::ascii(span.text) : span.text, isAscii ? "~" : "…");
    left -= std::min(left, text::columnsOf(text));
    result.push_back({text, span.style});
  }
  if (!result.empty() && (result.back().style == Style::Title || result.back().style == Style::Cursor)) {
    result.back().text += std::string(left, ' ');
  }
  return result;
}

}  // namespace

int64_t View::periodMs() const {
  return kPeriodsMs[mPeriod];
}

// The chosen time may have been dropped from a live timeline since, so it is kept within what is left. An
// empty timeline has its end before its beginning for a moment.
int64_t View::timeOf(const Timeline& timeline) const {
  return std::clamp(mAtMs.value_or(timeline.endMs), timeline.beginMs,
                    std::max(timeline.beginMs, timeline.endMs));
}

// Going anywhere by hand ends playing: a view that moved on would take the place away that was just found.
void View::goTo(int64_t atMs, const Timeline& timeline) {
  mPlaying = false;
  mAtMs = std::max(atMs, timeline.beginMs);
  // A live view that has come back to the end follows it again.
  if (*mAtMs >= timeline.endMs) mAtMs.reset();
}

// Deaths are in the order of their times, so the last one found is the nearest before, the first the nearest
// after.
void View::goToDeath(bool forward, const Timeline& timeline) {
  const int64_t now = timeOf(timeline);
  std::optional<int64_t> found;
  for (const timeline::Death& death : timeline.deaths) {
    if (forward && death.seenMs > now && !found) found = death.seenMs;
    if (!forward && death.seenMs < now) found = death.seenMs;
  }
  if (found) goTo(*found, timeline);
}

// A live view pauses by standing at a time while the timeline grows on. A recording plays by moving its time,
// and begins anew if it is at its end.
void View::togglePause(const Timeline& timeline) {
  if (mLive) {
    mAtMs = mAtMs ? std::nullopt : std::optional(timeline.endMs);
    return;
  }
  mPlaying = !mPlaying;
  if (mPlaying && timeOf(timeline) >= timeline.endMs) mAtMs = timeline.beginMs;
}

// goTo() ends playing, so it is switched on again unless the end was reached.
void View::tick(const Timeline& timeline) {
  if (!mPlaying) return;
  goTo(timeOf(timeline) + periodMs(), timeline);
  mPlaying = mAtMs.has_value();
}

// While a filter is typed, letters are text; arrows still move, so that one sees what matches.
bool View::handle(const Input& input, const Timeline& timeline) {
  if (mTyping && (input.key == Key::Character || input.key == Key::Backspace || input.key == Key::Enter ||
                  input.key == Key::Escape)) {
    type(input);
    return true;
  }
  switch (input.key) {
    case Key::Up:
      moveCursor(-1);
      break;
    case Key::Down:
      moveCursor(1);
      break;
    case Key::PageUp:
      moveCursor(-static_cast<int64_t>(mListRows));
      break;
    case Key::PageDown:
      moveCursor(static_cast<int64_t>(mListRows));
      break;
    case Key::Left:
      goTo(timeOf(timeline) - periodMs(), timeline);
      break;
    case Key::Right:
      goTo(timeOf(timeline) + periodMs(), timeline);
      break;
    case Key::Home:
      goTo(timeline.beginMs, timeline);
      break;
    case Key::End:
      goTo(timeline.endMs, timeline);
      break;
    case Key::Enter:
      if (mOpen.erase(mCursor.pid) == 0) mOpen.insert(mCursor.pid);
      mCursor.key.clear();
      break;
    case Key::Escape:
      mFilter.clear();
      break;
    case Key::Backspace:
      break;
    case Key::Character:
      return input.character.size() != 1 || handleCharacter(input.character[0], timeline);
  }
  return true;
}

// Letters without a use are passed over: a beep for each would be worse than nothing.
bool View::handleCharacter(char character, const Timeline& timeline) {
  switch (character) {
    case 'q':
      return false;
    case '/':
      mTyping = true;
      break;
    case ' ':
      togglePause(timeline);
      break;
    case '+':
      mPeriod = std::min(mPeriod + 1, kPeriodsMs.size() - 1);
      break;
    case '-':
      mPeriod = mPeriod == 0 ? 0 : mPeriod - 1;
      break;
    case '<':
      goTo(timeOf(timeline) - kMinuteMs, timeline);
      break;
    case '>':
      goTo(timeOf(timeline) + kMinuteMs, timeline);
      break;
    case 'n':
    case 'N':
      goToDeath(character == 'n', timeline);
      break;
    default:
      break;
  }
  return true;
}

// Enter keeps the filter and leaves it; Escape removes it.
void View::type(const Input& input) {
  if (input.key == Key::Character) {
    mFilter += input.character;
    return;
  }
  if (input.key == Key::Backspace) {
    // A character of UTF-8 ends with its only byte that is not 10xxxxxx, read from behind.
    while (!mFilter.empty() && (static_cast<unsigned char>(mFilter.back()) & 0xc0) == 0x80)
      mFilter.pop_back();
    if (!mFilter.empty()) mFilter.pop_back();
    return;
  }
  if (input.key == Key::Escape) mFilter.clear();
  mTyping = false;
}

// The rows are those of the last picture, which is what the user saw when the key was pressed.
void View::moveCursor(int64_t rows) {
  if (mPlaces.empty()) return;
  const int64_t last = static_cast<int64_t>(mPlaces.size()) - 1;
  mCursorRow = static_cast<size_t>(std::clamp<int64_t>(static_cast<int64_t>(mCursorRow) + rows, 0, last));
  mCursor = mPlaces[mCursorRow];
}

// Only the rows on the screen become text: with 300 processes that is most of the work of a picture. Where
// each row belongs is noted for all of them, because the cursor may go to any.
std::vector<Line> View::listLines(const Timeline& timeline, const std::vector<ProcessSnapshot>& processes,
                                  Size size) {
  mPlaces.clear();
  std::vector<const ProcessSnapshot*> processOfRow;
  for (const ProcessSnapshot& process : processes) {
    mPlaces.push_back({process.pid, ""});
    if (mOpen.contains(process.pid)) {
      for (const auto& [key, state] : process.keys) mPlaces.push_back({process.pid, key});
    }
    processOfRow.resize(mPlaces.size(), &process);
  }
  showCursor(size.rows);

  // A change stays marked until the next two looks.
  const Moment moment{timeOf(timeline), std::max<int64_t>(2 * periodMs(), 2000)};
  std::vector<Line> lines;
  for (size_t i = mFirstRow; i < mPlaces.size() && lines.size() < size.rows; ++i) {
    const ProcessSnapshot& process = *processOfRow[i];
    const std::string& key = mPlaces[i].key;
    lines.push_back(key.empty() ? processLine(process, mOpen.contains(process.pid), moment)
                                : keyLine(key, process.keys.at(key), moment));
    if (i != mCursorRow) continue;
    for (Span& span : lines.back()) span.style = Style::Cursor;
  }
  if (mPlaces.empty() && size.rows > 0) {
    lines.push_back({{emptyListText(timeline), Style::Faint}});
  }
  return lines;
}

std::string View::emptyListText(const Timeline& timeline) const {
  if (!isAnswered(timeline)) return "No answer has come yet.";
  return mFilter.empty() ? "No process has published a state." : "No process matches the filter.";
}

// The cursor stays on its process when rows come and go above it, and on the screen.
void View::showCursor(size_t rows) {
  const auto place = std::find(mPlaces.begin(), mPlaces.end(), mCursor);
  if (place != mPlaces.end()) mCursorRow = static_cast<size_t>(place - mPlaces.begin());
  moveCursor(0);
  mListRows = rows;
  mFirstRow = std::min(mFirstRow, mCursorRow);
  if (mCursorRow >= mFirstRow + rows) mFirstRow = mCursorRow + 1 - std::max<size_t>(rows, 1);
}

// Says which time is shown in wall-clock time, because that is what other logs have.
Line View::titleLine(const Timeline& timeline, const Surroundings& surroundings) const {
  const int64_t now = timeOf(timeline);
  // A live view that runs and a recording that stands are the usual cases, which need no word.
  const char* const state = mLive ? (isPaused() ? ", paused" : "") : (isPaused() ? "" : ", playing");
  std::string place;
  if (now < timeline.endMs) place = fmt::format(", {} before the end", agoText(timeline.endMs - now));
  return {{fmt::format("{}, every {}{}  {}{}", text::printable(surroundings.source), periodText(periodMs()),
                       state, wallText(timeline, now), place),
           Style::Title}};
}

// One line for three things: what is typed comes before what is wrong, and that before the counters.
Line View::footLine(const Surroundings& surroundings) const {
  if (mTyping) return {{"/" + text::printable(mFilter), Style::Strong}, {"_", Style::Strong}};
  if (!surroundings.notice.empty()) return {{text::printable(surroundings.notice), Style::Dead}};
  Line line = {{text::printable(surroundings.counts), Style::Plain}};
  if (!mFilter.empty())
    line.insert(line.begin(), {"filter: " + text::printable(mFilter) + "  ", Style::Strong});
  return line;
}

// Charts get at most half of the room and the list the rest. On a terminal of fewer than five rows the lowest
// lines are cut, and the title stays.
std::vector<Line> View::render(const Timeline& timeline, const Surroundings& surroundings, Size size) {
  constexpr size_t kOwnRows = 4;  // title, heads, foot, help
  const size_t room = size.rows > kOwnRows ? size.rows - kOwnRows : 0;
  std::vector<Line> lines = {titleLine(timeline, surroundings)};
  std::vector<Line> charts;
  if (isAnswered(timeline))
    charts = chartLines(timeline, timeOf(timeline), {size.columns, room / 2}, mGlyphs);
  lines.insert(lines.end(), charts.begin(), charts.end());
  const auto processes = matchingProcesses(timeline, timeOf(timeline), mFilter);
  lines.push_back(processHeads(processes));
  const auto list = listLines(timeline, processes, {size.columns, room - charts.size()});
  lines.insert(lines.end(), list.begin(), list.end());
  // Blank lines between the list and the foot, which stays at the bottom: room, the title and the heads.
  lines.resize(room + 2);
  lines.push_back(footLine(surroundings));
  lines.push_back(helpLine());

  if (lines.size() > size.rows) lines.resize(size.rows);
  for (Line& line : lines) line = fitted(line, size.columns, mGlyphs);
  return lines;
}

}  // namespace top
