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

constexpr size_t kMaxFileBytes = size_t{1} << 30;

Result<int64_t> timeOf(const Json::Value& line) {
  const Json::Value* const at = findMember(line, "at");
  if (at == nullptr || !isTime(*at)) {
    return Error() << "at is missing or is no time";
  }
  return at->asInt64();
}

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

// What each kind of line after the first does to the timeline.
Result<void> addPicture(Builder& builder, const Json::Value& line) {
  const auto clocks = clocksFrom(line["clocks"]);
  if (!clocks.ok()) return Error() << clocks.error();
  const auto processes = processesFrom(line["processes"]);
  if (!processes.ok()) return Error() << processes.error();
  builder.addStates(*clocks, *processes);
  return {};
}

Result<void> addContext(Builder& builder, const Json::Value& line) {
  const auto clocks = clocksFrom(line["clocks"]);
  if (!clocks.ok()) return Error() << clocks.error();
  const auto context = textsFrom(line["context"]);
  if (!context.ok()) return Error() << context.error();
  std::map<std::string, Texts> globals;
  if (const Json::Value* const namespaces = findMember(line, "globals");
      namespaces != nullptr && namespaces->isObject()) {
    for (auto states = namespaces->begin(); states != namespaces->end(); ++states) {
      auto texts = textsFrom(*states);
      if (!texts.ok()) return Error() << texts.error();
      globals[states.name()] = *std::move(texts);
    }
  }
  builder.addContext(*clocks, *context, globals);
  return {};
}

Result<void> addEvent(Builder& builder, const Json::Value& line) {
  const auto at = timeOf(line);
  if (!at.ok()) return Error() << at.error();
  if (const Json::Value* const changed = findMember(line, "changed")) {
    const auto changes = changesFrom(*changed);
    if (!changes.ok()) return Error() << changes.error();
    builder.addChanges(*at, *changes);
  } else if (const Json::Value* const names = findMember(line, "names")) {
    const auto texts = textsFrom(*names);
    if (!texts.ok()) return Error() << texts.error();
    for (const auto& [pid, name] : *texts) {
      if (const auto number = parsePid(pid)) builder.setName(*number, name);
    }
  } else if (const Json::Value* const dead = findMember(line, "dead"); dead != nullptr && dead->isArray()) {
    for (const Json::Value& pid : *dead) {
      if (pid.isInt()) builder.addDeath({*at, pid.asInt(), std::nullopt, ""});
    }
  } else if (const Json::Value* const gap = findMember(line, "gap"); gap != nullptr && gap->isString()) {
    builder.addGap(*at, gap->asString());
  }
  return {};  // a kind of line that a later program added changes nothing here
}

Result<void> addLine(Builder& builder, const Json::Value& line) {
  if (!line.isObject()) return Error() << "no JSON object";
  if (line.isMember("processes")) return addPicture(builder, line);
  if (line.isMember("context")) return addContext(builder, line);
  return addEvent(builder, line);
}

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

Result<Timeline> fromRecording(std::string_view text) {
  if (text.empty()) return Error() << "the recording is empty";
  Builder builder;
  for (size_t number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    if (end == std::string_view::npos && number > 1)
      break;  // the recorder was stopped in the middle of a line
    const auto line = Torv::Base::parseJson(text.substr(0, end), Torv::Base::JsonRules::Strict);
    if (!line.ok()) return Error() << "line " << number << ": " << line.error();
    const auto added = number == 1 ? addHeader(builder, *line) : addLine(builder, *line);
    if (!added.ok()) return Error() << "line " << number << ": " << added.error();
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return std::move(builder).finish();
}

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
  const auto report = Torv::Base::parseJson(*text, Torv::Base::JsonRules::Strict);
  if (!report.ok())
    return Error() << path << " is neither a recording nor a crash report: " << report.error();
  auto timeline = fromReport(*report);
  if (!timeline.ok()) return Error() << path << ": " << timeline.error();
  return timeline;
}

}  // namespace timeline
