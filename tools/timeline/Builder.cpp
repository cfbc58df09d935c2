#include <algorithm>
#include <utility>

#include "History.h"
#include "base/Json.h"
#include "timeline/Sources.h"

namespace timeline {
namespace {

// Returns the series of that name, which is made if it is new. The reference is valid until the next call:
// `series` is ordered by source and metric.
Series& seriesFor(std::vector<Series>& series, const std::string& source, const std::string& metric,
                  Unit unit) {
  const auto at =
      std::lower_bound(series.begin(), series.end(), std::pair(source, metric),
                       [](const Series& one, const std::pair<std::string, std::string>& name) {
                         return std::tie(one.source, one.metric) < std::tie(name.first, name.second);
                       });
  if (at != series.end() && at->source == source && at->metric == metric) return *at;
  return *series.insert(at, Series{source, metric, unit, {}});
}

// A time that is not in order would make views draw backwards: conversions of clocks may differ by a
// millisecond.
//
// Moving the later sample by a millisecond is harmless: samples are at least a second apart.
void append(Series& series, int64_t bootMs, std::optional<double> value) {
  if (!series.points.empty()) bootMs = std::max(bootMs, series.points.back().bootMs + 1);
  series.points.push_back({bootMs, value});
}

// Puts `kept` in the place of the events before `bootMs`.
template <typename Event>
void replaceBefore(std::vector<Event>& events, int64_t bootMs, int64_t Event::*time,
                   std::vector<Event> kept) {
  std::sort(kept.begin(), kept.end(), [&](const Event& a, const Event& b) { return a.*time < b.*time; });
  const auto first =
      std::find_if(events.begin(), events.end(), [&](const Event& event) { return event.*time >= bootMs; });
  events.erase(events.begin(), first);
  events.insert(events.begin(), kept.begin(), kept.end());
}

}  // namespace

// Most of two answers is equal, so nothing is copied but what differs.
Changes difference(const std::map<int32_t, Texts>& before, const std::map<int32_t, Texts>& after) {
  static const Texts kNone;
  Changes changes;
  for (const auto& [pid, states] : after) {
    const auto old = before.find(pid);
    const Texts& oldStates = old == before.end() ? kNone : old->second;
    for (const auto& [key, value] : states) {
      const auto oldValue = oldStates.find(key);
      if (oldValue == oldStates.end() || oldValue->second != value) changes[pid][key] = value;
    }
  }
  for (const auto& [pid, states] : before) {
    const auto now = after.find(pid);
    for (const auto& [key, value] : states) {
      if (now == after.end() || !now->second.contains(key)) changes[pid][key] = std::nullopt;
    }
  }
  return changes;
}

// Behind a pointer, so that the header needs no History.h and a builder is cheap to move.
struct Builder::State {
  Timeline timeline;
  Answer last;  // what the next answer is compared with
  bool first = true;
  bool inGap = false;
  std::map<std::string, HistoryReader> histories;  // by source

  // Everything that has a time moves the ends of the timeline. An open gap lasts until the newest of it.
  void sawAt(int64_t bootMs) {
    if (timeline.endMs == 0 && timeline.beginMs == 0) timeline.beginMs = bootMs;
    timeline.beginMs = std::min(timeline.beginMs, bootMs);
    timeline.endMs = std::max(timeline.endMs, bootMs);
    if (!timeline.gaps.empty() && inGap) timeline.gaps.back().toMs = timeline.endMs;
  }

  // The service gave an answer, so a gap ends here.
  void answered(int64_t bootMs) {
    sawAt(bootMs);
    inGap = false;
  }
};

Builder::Builder() : mState(std::make_unique<State>()) {}
Builder::Builder(Builder&&) noexcept = default;
Builder& Builder::operator=(Builder&&) noexcept = default;
Builder::~Builder() = default;

void Builder::addStates(const Clocks& clocks, const std::map<int32_t, Texts>& processes) {
  mState->timeline.clocks = clocks;
  mState->last.clocks = clocks;
  addChanges(clocks.bootMs, difference(mState->last.processes, processes));
}

// The first answer of all says what holds, but not since when: its values are `known` and not changes. A
// process without keys leaves `last`, so that a full picture that lacks it is no change.
void Builder::addChanges(int64_t bootMs, const Changes& changes) {
  mState->answered(bootMs);
  for (const auto& [pid, keys] : changes) {
    Texts& states = mState->last.processes[pid];
    for (const auto& [key, value] : keys) {
      mState->timeline.changes.push_back({bootMs, pid, key, value, mState->first});
      if (value) {
        states[key] = *value;
      } else {
        states.erase(key);
      }
    }
    if (states.empty()) mState->last.processes.erase(pid);
  }
  mState->first = false;
}

// Histories become series; every other value of the context replaces the one of the answer before.
void Builder::addContext(const Clocks& clocks, const Texts& context,
                         const std::map<std::string, Texts>& globals) {
  State& state = *mState;
  state.timeline.clocks = clocks;
  state.last.clocks = clocks;
  state.last.context = context;
  state.last.globals = globals;
  state.answered(clocks.bootMs);
  state.timeline.context.clear();
  for (const auto& [name, text] : context) {
    const std::optional<History> history = parseHistory(text);
    if (!history) {
      state.timeline.context[name] = text;
      continue;
    }
    // Each source has a reader of its own, which knows what of it was taken already.
    for (const Sample& sample : state.histories[name].newSamples(*history, clocks)) {
      state.sawAt(sample.bootMs);
      append(seriesFor(state.timeline.series, name, sample.metric, sample.unit), sample.bootMs, sample.value);
    }
  }
  for (const auto& [nameSpace, states] : globals) addGlobals(clocks, nameSpace, states);
}

// Global states carry their age, so they are dated with the time of their publication. Texts without an age
// are passed over: a later service may add others.
void Builder::addGlobals(const Clocks& clocks, const std::string& nameSpace, const Texts& states) {
  for (const auto& [key, text] : states) {
    if (const std::optional<AgedText> aged = parseAged(text)) {
      addGlobal({clocks.bootMs - aged->ageMs, nameSpace, key, aged->value});
    }
  }
}

// The same value published again is no change.
void Builder::addGlobal(const GlobalChange& change) {
  auto& globals = mState->timeline.globals;
  const auto last = std::find_if(globals.rbegin(), globals.rend(), [&](const GlobalChange& other) {
    return other.nameSpace == change.nameSpace && other.key == change.key;
  });
  if (last != globals.rend() && last->value == change.value) return;
  const auto later = [](const GlobalChange& a, const GlobalChange& b) {
    return a.publishedMs < b.publishedMs;
  };
  globals.insert(std::upper_bound(globals.begin(), globals.end(), change, later), change);
}

void Builder::add(const Answer& answer) {
  addStates(answer.clocks, answer.processes);
  if (!answer.context.empty()) addContext(answer.clocks, answer.context, answer.globals);
}

// A death says nothing about the keys: the service remembers them for a minute more.
void Builder::addDeath(const Death& death) {
  mState->sawAt(death.seenMs);
  mState->timeline.deaths.push_back(death);
}

// A gap has no end yet. sawAt() moves it along, and the next answer closes it.
void Builder::addGap(int64_t fromMs, const std::string& reason) {
  if (mState->inGap) return;
  mState->sawAt(fromMs);
  mState->inGap = true;
  mState->timeline.gaps.push_back({fromMs, fromMs, reason});
}

// Not dated: a recorder reads a name when it likes, and a pid seldom changes it.
void Builder::setName(int32_t pid, const std::string& name) {
  mState->timeline.names[pid] = name;
}

void Builder::setMachine(const std::string& machine) {
  mState->timeline.machine = machine;
}

// A change that still holds keeps its own time, so that a view can say how old a value is. It stands before
// `bootMs` then, which is why beginMs is set and not computed.
void Builder::dropBefore(int64_t bootMs) {
  Timeline& timeline = mState->timeline;
  std::vector<KeyChange> kept;
  std::vector<Death> keptDeaths;
  for (const ProcessSnapshot& process : processesAt(timeline, bootMs - 1)) {
    for (const auto& [key, state] : process.keys) {
      kept.push_back({state.changedMs, process.pid, key, state.value, state.known});
    }
    if (process.deadMs) keptDeaths.push_back({*process.deadMs, process.pid, std::nullopt, ""});
  }
  replaceBefore(timeline.changes, bootMs, &KeyChange::seenMs, kept);
  replaceBefore(timeline.deaths, bootMs, &Death::seenMs, keptDeaths);
  replaceBefore(timeline.gaps, bootMs, &Gap::toMs, {});
  for (Series& series : timeline.series) replaceBefore(series.points, bootMs, &Point::bootMs, {});
  timeline.beginMs = std::max(timeline.beginMs, bootMs);
}

const Timeline& Builder::timeline() const {
  return mState->timeline;
}

Timeline Builder::finish() && {
  mState->timeline.document = toDocument(mState->last);
  return std::move(mState->timeline);
}

}  // namespace timeline
