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
  if (!death->program.empty()) timeline.names[death->pid] = death->program;
  timeline.document = report;
  return timeline;
}

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
