#include <string>
#include <utility>

#include "Json.h"
#include "base/Files.h"
#include "base/Json.h"
#include "timeline/Sources.h"

namespace timeline {
namespace {

using android::base::Error;
using android::base::Result;
using Torv::Base::findMember;

// The largest recording that `record` writes is 512 MiB. A file above twice that is something else.
constexpr size_t kMaxFileBytes = size_t{1} << 30;

// Anything but a string, null first of all, says that the key is no longer known.
Result<Changes> changesFrom(const Json::Value& json) {
  if (!json.isObject()) return Error() << "changed is no object";
  Changes changes;
  for (auto process = json.begin(); process != json.end(); ++process) {
    const std::optional<int32_t> pid = parsePid(process.name());
    if (!pid || !process->isObject()) return Error() << "changed names no process";
    for (auto value = process->begin(); value != process->end(); ++value) {
      changes[*pid][value.name()] = value->isString() ? std::optional(value->asString()) : std::nullopt;
    }
  }
  return changes;
}

// A line without globals is whole: a service that nobody told of a session has none.
Result<std::map<std::string, Texts>> globalsFrom(const Json::Value& line) {
  std::map<std::string, Texts> globals;
  const Json::Value* const namespaces = findMember(line, "globals");
  if (namespaces == nullptr || !namespaces->isObject()) return globals;
  for (auto states = namespaces->begin(); states != namespaces->end(); ++states) {
    auto texts = textsFrom(*states);
    if (!texts.ok()) return Error() << texts.error();
    globals[states.name()] = *std::move(texts);
  }
  return globals;
}

// Adds the lines of a recording to a builder, one after the other.
class RecordingReader {
 public:
  Result<void> addLine(const Json::Value& line) {
    if (!line.isObject()) return Error() << "no JSON object";
    if (const Json::Value* const clocks = findMember(line, "clocks")) return addAnswer(line, *clocks);
    return addEvent(line);
  }

  Builder& builder() { return mBuilder; }

 private:
  // A line with clocks is an answer: the states of all processes, the system context, or both.
  Result<void> addAnswer(const Json::Value& line, const Json::Value& readings) {
    const auto clocks = clocksFrom(readings);
    if (!clocks.ok()) return Error() << clocks.error();
    if (auto ordered = advance(clocks->bootMs); !ordered.ok()) return ordered;
    if (const Json::Value* const pictured = findMember(line, "processes")) {
      const auto processes = processesFrom(*pictured);
      if (!processes.ok()) return Error() << processes.error();
      mBuilder.addStates(*clocks, *processes);
    }
    if (const Json::Value* const values = findMember(line, "context")) {
      const auto context = textsFrom(*values);
      if (!context.ok()) return Error() << context.error();
      const auto globals = globalsFrom(line);
      if (!globals.ok()) return Error() << globals.error();
      mBuilder.addContext(*clocks, *context, *globals);
    }
    return {};
  }

  // A line with a single time tells one kind of event. The times of all lines must not run backwards.
  Result<void> addEvent(const Json::Value& line) {
    const Json::Value* const at = findMember(line, "at");
    if (at == nullptr || !isTime(*at)) return Error() << "at is missing or is no time";
    const int64_t atMs = at->asInt64();
    if (auto ordered = advance(atMs); !ordered.ok()) return ordered;
    if (const Json::Value* const changed = findMember(line, "changed")) {
      const auto changes = changesFrom(*changed);
      if (!changes.ok()) return Error() << changes.error();
      mBuilder.addChanges(atMs, *changes);
    } else if (const Json::Value* const names = findMember(line, "names")) {
      return addNames(*names);
    } else if (const Json::Value* const dead = findMember(line, "dead"); dead != nullptr && dead->isArray()) {
      for (const Json::Value& pid : *dead) {
        if (pid.isInt()) mBuilder.addDeath({atMs, pid.asInt(), std::nullopt, ""});
      }
    } else if (const Json::Value* const gap = findMember(line, "gap"); gap != nullptr && gap->isString()) {
      mBuilder.addGap(atMs, gap->asString());
    }
    return {};  // a kind of line that a later program added changes nothing here
  }

  // Names are for people, so one under something that is no pid is passed over and not refused.
  Result<void> addNames(const Json::Value& names) {
    const auto texts = textsFrom(names);
    if (!texts.ok()) return Error() << texts.error();
    for (const auto& [pid, name] : *texts) {
      if (const auto number = parsePid(pid)) mBuilder.setName(*number, name);
    }
    return {};
  }

  // Everything that draws relies on the order of the times.
  Result<void> advance(int64_t bootMs) {
    if (bootMs < mLastMs) return Error() << "the line is older than the one before";
    mLastMs = bootMs;
    return {};
  }

  Builder mBuilder;
  int64_t mLastMs = 0;
};

// The machine is the only thing of the first line that a timeline holds.
Result<void> addHeader(Builder& builder, const Json::Value& line) {
  if (const auto format = requireFormat(line, kRecordingFormat, kRecordingVersion); !format.ok())
    return Error() << format.error();
  if (const Json::Value* const machine = findMember(line, "machine");
      machine != nullptr && machine->isString()) {
    builder.setMachine(machine->asString());
  }
  return {};
}

}  // namespace

// Only the last line may be cut, because each line is written by one call. Damage in the middle is an error:
// a timeline with a hole that nobody marked would be believed.
Result<Timeline> fromRecording(std::string_view text) {
  if (text.empty()) return Error() << "the recording is empty";
  RecordingReader reader;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    if (end == std::string_view::npos && number > 1)
      break;  // the recorder was stopped in the middle of a line
    const auto line = Torv::Base::parseJson(text.substr(0, end), Torv::Base::JsonRules::Strict);
    if (!line.ok()) return Error() << "line " << number << ": " << line.error();
    const auto added = number == 1 ? addHeader(reader.builder(), *line) : reader.addLine(*line);
    if (!added.ok()) return Error() << "line " << number << ": " << added.error();
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return std::move(reader.builder()).finish();
}

// A recording may be larger than what one JSON document may hold, so it is told by its first line.
Result<Timeline> fromFile(const std::string& path) {
  const auto text = Torv::Base::readFile(path, kMaxFileBytes);
  if (!text.ok()) return Error() << text.error();
  // A recording says what it is in its first line; a crash report is one document of many lines.
  const auto first = Torv::Base::parseJson(text->substr(0, text->find('\n')), Torv::Base::JsonRules::Strict);
  if (first.ok() && requireFormat(*first, kRecordingFormat, kRecordingVersion).ok()) {
    auto timeline = fromRecording(*text);
    if (!timeline.ok()) return Error() << path << ": " << timeline.error();
    return timeline;
  }
  // The text may begin like a recording of a later version: then it is no report either, and the error says
  // so.
  const auto report = Torv::Base::parseJson(*text, Torv::Base::JsonRules::Strict);
  if (!report.ok())
    return Error() << path << " is neither a recording nor a crash report: " << report.error();
  auto timeline = fromReport(*report);
  if (!timeline.ok()) return Error() << path << ": " << timeline.error();
  return timeline;
}

// A crash report in the place of the recording works too: it is the timeline of one moment.
Result<Timeline> fromFiles(const std::string& path, const std::string& reportPath) {
  // The report is read as strictly as the recording: half of a report would look like a process without
  // states.
  auto recorded = fromFile(path);
  if (!recorded.ok()) return recorded;
  const auto text = Torv::Base::readFile(reportPath, kMaxFileBytes);
  if (!text.ok()) return Error() << text.error();
  const auto report = Torv::Base::parseJson(*text, Torv::Base::JsonRules::Strict);
  if (!report.ok()) return Error() << reportPath << " is no crash report: " << report.error();
  auto timeline = withReport(*std::move(recorded), *report);
  if (!timeline.ok()) return Error() << reportPath << ": " << timeline.error();
  return timeline;
}

}  // namespace timeline
