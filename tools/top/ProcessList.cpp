#include "ProcessList.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "text/Text.h"

namespace top {
namespace {

using timeline::KeyState;
using timeline::ProcessSnapshot;

constexpr char kHead[] = "{:>9} {:<16} {:>11}  ";
constexpr size_t kNameColumns = 16;

// Every text of the row is searched: one looks for a screen or a user as often as for a name.
bool matches(const ProcessSnapshot& process, const std::string& filter) {
  const auto holds = [&](const std::string& text) { return text.find(filter) != std::string::npos; };
  if (filter.empty() || holds(std::to_string(process.pid)) || holds(process.name)) return true;
  return std::any_of(process.keys.begin(), process.keys.end(),
                     [&](const auto& key) { return holds(key.first) || holds(key.second.value); });
}

// What the first answer held is of unknown age and never fresh; the whole screen would be marked at the
// start.
bool isFresh(const KeyState& state, const Moment& moment) {
  return !state.known && moment.atMs - state.changedMs <= moment.freshMs;
}

// The star also marks fresh keys on terminals without colours.
Span keySpan(const std::string& key, const KeyState& state, const Moment& moment) {
  const bool fresh = isFresh(state, moment);
  return {fmt::format("{}{}=", fresh ? "*" : "", text::printable(key)),
          fresh ? Style::Changed : Style::Faint};
}

// For a dead process the time since its death says more than the time since its last change.
std::string changedText(const ProcessSnapshot& process, int64_t atMs) {
  if (process.deadMs) return "dead " + agoText(atMs - *process.deadMs);
  int64_t newest = 0;
  for (const auto& [key, state] : process.keys) {
    if (!state.known) newest = std::max(newest, state.changedMs);
  }
  return newest == 0 ? "-" : agoText(atMs - newest);
}

}  // namespace

std::vector<ProcessSnapshot> matchingProcesses(const timeline::Timeline& timeline, int64_t atMs,
                                               const std::string& filter) {
  std::vector<ProcessSnapshot> processes = processesAt(timeline, atMs);
  std::erase_if(processes, [&](const ProcessSnapshot& process) { return !matches(process, filter); });
  return processes;
}

// The newest change stands first, because the line is cut at the right edge. Equal times keep the order of
// the keys, so the line does not jump from picture to picture.
Line processLine(const ProcessSnapshot& process, bool open, const Moment& moment) {
  const std::string name = text::cutTo(kNameColumns, text::printable(process.name), "~");
  const std::string padded = name + std::string(kNameColumns - text::columnsOf(name), ' ');
  const Style style = process.deadMs ? Style::Dead : Style::Plain;
  Line line = {{fmt::format("{} {:>7} {} {:>11}  ", open ? '-' : '+', process.pid, padded,
                            changedText(process, moment.atMs)),
                style}};
  if (open) return line;
  std::vector<std::pair<std::string, KeyState>> keys(process.keys.begin(), process.keys.end());
  std::stable_sort(keys.begin(), keys.end(),
                   [](const auto& a, const auto& b) { return a.second.changedMs > b.second.changedMs; });
  for (const auto& [key, state] : keys) {
    line.push_back(keySpan(key, state, moment));
    line.push_back({text::printable(state.value) + "  ", style});
  }
  return line;
}

// The value stands whole in its row and is cut at the edge of the screen.
Line keyLine(const std::string& key, const KeyState& state, const Moment& moment) {
  const std::string ago = state.known ? "-" : agoText(moment.atMs - state.changedMs);
  return {{fmt::format(kHead, "", "", ago), Style::Plain},
          keySpan(key, state, moment),
          {text::printable(state.value), Style::Plain}};
}

// Counts what the filter lets pass, because that is what is listed.
Line processHeads(const std::vector<ProcessSnapshot>& processes) {
  const auto dead = std::count_if(processes.begin(), processes.end(),
                                  [](const ProcessSnapshot& process) { return process.deadMs.has_value(); });
  return {{fmt::format(kHead, "PID", "NAME", "CHANGED") +
               fmt::format("STATES of {} processes, {} dead", processes.size(), dead),
           Style::Title}};
}

// A time that lies ahead counts as now: the view may stand a moment before the newest change.
std::string agoText(int64_t ms) {
  const int64_t seconds = std::max<int64_t>(ms, 0) / 1000;
  const int64_t minutes = seconds / 60;
  if (seconds < 100) return fmt::format("{} s", seconds);
  if (minutes < 100) return fmt::format("{} min", minutes);
  return fmt::format("{} h", seconds / 3600);
}

}  // namespace top
