#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>

#include "Json.h"
#include "base/Json.h"
#include "timeline/Sources.h"

namespace timeline {
namespace {

using android::base::Error;
using android::base::Result;
using Torv::Base::findMember;

// The last part of a path, as a recorder would see the program's name.
std::string shortName(const std::string& program) {
  return program.substr(program.rfind('/') + 1);
}

// A stable order: what happened at the same time stays as it was told.
template <typename Event>
void sortByTime(std::vector<Event>& events) {
  std::stable_sort(events.begin(), events.end(),
                   [](const Event& a, const Event& b) { return a.seenMs < b.seenMs; });
}

// The states in the bundle of a process.
Result<Texts> statesOf(const Json::Value& process) {
  const auto states = requiredObject(process, "ApplicationStateData");
  if (!states.ok()) return Error() << states.error();
  return textsFrom(**states);
}

// The three answers of a report, as if they had just come. The one for the dead process alone is in
// all_processes too, if the service knew of it.
Result<Answer> answerFrom(const Json::Value& report) {
  Answer answer;
  const auto asked = requiredObject(report, "asked");
  if (!asked.ok()) return Error() << asked.error();
  const auto clocks = clocksFrom(**asked);
  if (!clocks.ok()) return Error() << "asked: " << clocks.error();
  answer.clocks = *clocks;

  const auto processes = requiredObject(report, "all_processes");
  if (!processes.ok()) return Error() << processes.error();
  for (auto process = (*processes)->begin(); process != (*processes)->end(); ++process) {
    const std::optional<int32_t> pid = parsePid(process.name());
    auto states = statesOf(*process);
    if (!pid || !states.ok()) return Error() << "all_processes: one is not as the service answers";
    answer.processes[*pid] = *std::move(states);
  }

  // Histories are nested JSON in a report. textsFrom() makes texts of them again, as a live answer has them.
  const auto system = requiredObject(report, "system");
  if (!system.ok()) return Error() << system.error();
  const auto context = requiredObject(**system, "SystemContextData");
  if (!context.ok()) return Error() << context.error();
  answer.context = *textsFrom(**context);
  const auto globals = requiredObject(**system, "GlobalStateData");
  if (!globals.ok()) return Error() << globals.error();
  for (auto global = (*globals)->begin(); global != (*globals)->end(); ++global) {
    const auto states = requiredObject(*global, "GlobalStateData");
    if (!states.ok()) return Error() << states.error();
    answer.globals[global.name()] = *textsFrom(**states);
  }
  return answer;
}

// Who died, when and of what. The signal and the program may be unknown.
Result<Death> deathFrom(const Json::Value& report) {
  Death death;
  const auto died = requiredObject(report, "died");
  if (!died.ok()) return Error() << died.error();
  const auto clocks = clocksFrom(**died);
  if (!clocks.ok()) return Error() << "died: " << clocks.error();
  death.seenMs = clocks->bootMs;
  const Json::Value* const pid = findMember(report, "pid");
  if (pid == nullptr || !pid->isInt()) return Error() << "pid is missing or is no number";
  death.pid = pid->asInt();
  const Json::Value* const signal = findMember(report, "signal");
  if (signal != nullptr && signal->isInt()) death.signal = signal->asInt();
  const Json::Value* const program = findMember(report, "program");
  if (program != nullptr && program->isString()) death.program = program->asString();
  return death;
}

// Boot clocks of two boots cannot be compared, and only the wall clock tells them apart. It may be set while
// the machine runs, so a small difference is none.
bool areOfOneBoot(const Clocks& one, const Clocks& other) {
  constexpr int64_t kMostSetMs = 60'000;
  return std::abs((one.wallMs - one.bootMs) - (other.wallMs - other.bootMs)) <= kMostSetMs;
}

// Returns the recorder's note of the same death; the end of the list if it has none. A pid may die twice in a
// recording, but not twice within a minute: the service remembers the first for that long.
std::vector<Death>::iterator sameDeath(std::vector<Death>& deaths, const Death& death) {
  constexpr int64_t kMostApartMs = 60'000;
  return std::find_if(deaths.begin(), deaths.end(), [&](const Death& recorded) {
    return recorded.pid == death.pid && std::abs(recorded.seenMs - death.seenMs) <= kMostApartMs;
  });
}

// The service's own JSON texts, and applications', are easier to read as JSON. Numbers and words stay
// strings.
Json::Value nested(const std::string& text) {
  auto value = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
  if (value.ok() && (value->isObject() || value->isArray())) return *std::move(value);
  return text;
}

Json::Value nested(const Texts& texts) {
  Json::Value json(Json::objectValue);
  for (const auto& [key, value] : texts) json[key] = nested(value);
  return json;
}

}  // namespace

// The builder does all the work; a single answer is the shortest recording.
Timeline fromAnswer(const Answer& answer) {
  Builder builder;
  builder.add(answer);
  return std::move(builder).finish();
}

Result<Timeline> fromReport(const Json::Value& report) {
  if (const auto format = requireFormat(report, kReportFormat, kReportVersion); !format.ok()) {
    return Error() << format.error();
  }
  const auto answer = answerFrom(report);
  if (!answer.ok()) return Error() << answer.error();
  const auto death = deathFrom(report);
  if (!death.ok()) return Error() << death.error();

  Builder builder;
  builder.add(*answer);
  builder.addDeath(*death);
  Timeline timeline = std::move(builder).finish();
  timeline.endMs = death->seenMs;
  if (!death->program.empty()) timeline.names[death->pid] = shortName(death->program);
  timeline.document = report;
  return timeline;
}

// Only the death is moved, never the recorder's samples: both read the same boot clock. The recorder's name
// of the process wins over the report's, because it is what the other views show.
Result<Timeline> withReport(Timeline recorded, const Json::Value& report) {
  auto reported = fromReport(report);
  if (!reported.ok()) return Error() << reported.error();
  if (!areOfOneBoot(recorded.clocks, reported->clocks)) {
    return Error() << "the recording and the crash report are not of the same time since a boot";
  }
  Death death = reported->deaths.front();
  const auto same = sameDeath(recorded.deaths, death);
  if (same != recorded.deaths.end()) {
    const int64_t recordedMs = same->seenMs;
    death.seenMs = std::min(death.seenMs, recordedMs);
    for (KeyChange& change : recorded.changes) {
      if (change.pid == death.pid && change.seenMs > death.seenMs && change.seenMs <= recordedMs) {
        change.seenMs = death.seenMs;
      }
    }
    recorded.deaths.erase(same);
  }
  // The report's death replaces the recorder's note, because it has the signal and the program besides.
  recorded.deaths.push_back(death);
  sortByTime(recorded.deaths);
  sortByTime(recorded.changes);
  recorded.beginMs = std::min(recorded.beginMs, death.seenMs);
  recorded.endMs = std::max(recorded.endMs, death.seenMs);
  recorded.names.merge(reported->names);
  recorded.context = std::move(reported->context);
  recorded.document = report;
  return recorded;
}

// The form is that of the sample reporter, so one schema and one reader serve both. `died`, `pid` and
// `signal` are missing: fromReport() refuses such a document on purpose.
Json::Value toDocument(const Answer& answer) {
  Json::Value document(Json::objectValue);
  document["format"] = kReportFormat;
  document["version"] = kReportVersion;
  document["asked"] = toJson(answer.clocks);
  Json::Value& processes = document["all_processes"] = Json::Value(Json::objectValue);
  for (const auto& [pid, states] : answer.processes) {
    Json::Value& process = processes[std::to_string(pid)];
    process["processId"] = pid;
    process["ApplicationStateData"] = nested(states);
  }
  document["system"]["SystemContextData"] = nested(answer.context);
  Json::Value& globals = document["system"]["GlobalStateData"] = Json::Value(Json::objectValue);
  for (const auto& [nameSpace, states] : answer.globals) {
    globals[nameSpace]["GlobalNamespace"] = nameSpace;
    globals[nameSpace]["GlobalStateData"] = nested(states);
  }
  return document;
}

}  // namespace timeline
