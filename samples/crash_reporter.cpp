// A crash reporter as the author of a client would write one: asks the diagnostics collector service what was
// going on when a process died, prints it, and writes it as JSON.
//
//   crash_reporter --pid PID --out FILE [--signal N] [--program PATH] [--timeout SECONDS]
//
// docs/crash_report.schema.json is the form of what it writes.
//
// Exits with 0 when the report is written, 1 when the service or the file fails it, 2 on wrong usage.

#include <chrono>
#include <cstdio>
#include <fstream>
#include <future>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

#include <time.h>
#include <unistd.h>

#include <binder/IServiceManager.h>
#include <binder/PersistableBundle.h>
#include <json/json.h>
#include <utils/String8.h>

#include <CLI/CLI.hpp>

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"

using android::sp;
using android::String16;
using android::binder::Status;
using android::os::PersistableBundle;
using dev::kerno::internal::diagnostics::IDiagnosticsCollectorService;

namespace {

// The three clocks in milliseconds. The service's histories are told in monotonic time, which stands still in
// suspend; the boot clock orders them with everything else, and people read the wall clock.
Json::Value clocks() {
  const auto ms = [](clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return Json::Int64{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
  };
  Json::Value readings(Json::objectValue);
  readings["boot_ms"] = ms(CLOCK_BOOTTIME);
  readings["monotonic_ms"] = ms(CLOCK_MONOTONIC);
  readings["wall_ms"] = ms(CLOCK_REALTIME);
  return readings;
}

// What the service said, and when.
struct Answers {
  PersistableBundle process;
  PersistableBundle allProcesses;
  PersistableBundle system;
  Json::Value asked;  // the clocks when the answers were there
};

void require(const Status& status, const char* what) {
  if (!status.isOk()) throw std::runtime_error(std::string(what) + ": " + status.toString8().string());
}

// Three calls, in the order of their worth: if the service ends in between, the report fails as a whole.
// checkService() returns at once if no service runs; getService() would wait for one.
Answers ask(int pid) {
  const sp<android::IBinder> binder =
      android::defaultServiceManager()->checkService(String16(IDiagnosticsCollectorService::kServiceName));
  if (binder == nullptr) throw std::runtime_error("the diagnostics collector service is not running");
  const auto service = android::interface_cast<IDiagnosticsCollectorService>(binder);
  Answers answers;
  require(service->getApplicationStateDataForProcess(pid, String16("crash_reporter"), &answers.process),
          "the states of the process");
  require(service->getAllAvailableApplicationStateData(&answers.allProcesses), "the states of all");
  require(service->getSystemContextData(&answers.system), "the system context");
  answers.asked = clocks();
  return answers;
}

// A binder call has no time-out of its own, and a crash reporter must not hang with the system it reports on:
// the calls are made on a thread that is left behind when they take too long.
Answers askWithin(int pid, double seconds) {
  std::packaged_task<Answers()> task([pid] { return ask(pid); });
  std::future<Answers> answers = task.get_future();
  std::thread(std::move(task)).detach();
  if (answers.wait_for(std::chrono::duration<double>(seconds)) == std::future_status::timeout) {
    std::cerr << "crash_reporter: the service did not answer within " << seconds << " s\n";
    _exit(1);
  }
  return answers.get();
}

// Bundles hold UTF-16. Malformed text becomes U+FFFD, so the report stays valid JSON.
std::string utf8(const String16& text) {
  const android::String8 narrow(text);
  return {narrow.string(), narrow.size()};
}

// Histories and aged values are JSON texts; they go into the report as JSON.
Json::Value nested(const std::string& text) {
  if (text.empty() || (text[0] != '{' && text[0] != '[')) return text;
  Json::CharReaderBuilder settings;
  Json::CharReaderBuilder::strictMode(&settings.settings_);
  const std::unique_ptr<Json::CharReader> reader(settings.newCharReader());
  Json::Value value;
  try {
    if (reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return value;
  } catch (const std::exception&) {
    // Nested too deep to be any of ours: some application's text, kept as it is.
  }
  return text;
}

// The service's answers hold numbers, strings and further bundles, and nothing else. getInt() and the like
// leave their result alone if the type is another, so every value has one here first.
Json::Value toJson(const PersistableBundle& bundle) {
  Json::Value object(Json::objectValue);
  for (const String16& key : bundle.getIntKeys()) {
    int32_t value = 0;
    bundle.getInt(key, &value);
    object[utf8(key)] = value;
  }
  for (const String16& key : bundle.getStringKeys()) {
    String16 value;
    bundle.getString(key, &value);
    object[utf8(key)] = nested(utf8(value));
  }
  for (const String16& key : bundle.getPersistableBundleKeys()) {
    PersistableBundle value;
    bundle.getPersistableBundle(key, &value);
    object[utf8(key)] = toJson(value);
  }
  return object;
}

// What a double holds for certain: with more, 93.6 would be written as 93.599999999999994.
constexpr int kDigits = 15;

// One line without control characters: what applications publish does not drive the terminal.
std::string oneLine(const Json::Value& value) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "";
  settings["precision"] = kDigits;
  std::string text = value.isString() ? value.asString() : Json::writeString(settings, value);
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
  }
  return text;
}

// Histories are left out: printHistory() gives one line for each of them.
void printMembers(const Json::Value& object) {
  for (const std::string& name : object.getMemberNames()) {
    const Json::Value& value = object[name];
    if (value.isObject() && value.isMember("time_series")) continue;
    printf("    %-24s %s\n", oneLine(name).c_str(), oneLine(value).c_str());
  }
}

// The newest sample of a history, and how far back it reaches.
void printHistory(const std::string& name, const Json::Value& history) {
  const Json::Value& samples = history["time_series"];
  if (samples.empty()) return;
  const Json::Value& oldest = samples[samples.size() - 1];
  printf("    %-24s %u samples over %.0f s; the last: %s\n", name.c_str(), samples.size(),
         oldest["dt_ms"].asDouble() / 1000, oneLine(samples[0]["v"]).c_str());
}

// For whoever stands at the terminal: the report in short. The file has all of it.
void print(int pid, const Json::Value& report) {
  printf("Crash report of process %d\n\n", pid);
  const Json::Value& states = report["process"]["ApplicationStateData"];
  puts(states.empty() ? "  It had published no state." : "  It had last published:");
  printMembers(states);
  printf("\n  Processes that have published states: %u\n", report["all_processes"].size());
  const Json::Value& context = report["system"]["SystemContextData"];
  puts("\n  The system:");
  printMembers(context);
  for (const std::string& name : context.getMemberNames()) {
    if (context[name].isObject() && context[name].isMember("time_series")) {
      printHistory(name, context[name]);
    }
  }
  const Json::Value& globals = report["system"]["GlobalStateData"];
  for (const std::string& name : globals.getMemberNames()) {
    printf("\n  Global states, %s:\n", oneLine(name).c_str());
    printMembers(globals[name]["GlobalStateData"]);
  }
}

// A report that was not written whole is an error: a stream tells of a full disk at its close only.
void write(const std::string& path, const Json::Value& report) {
  Json::StreamWriterBuilder settings;
  settings["indentation"] = "  ";
  settings["precision"] = kDigits;
  std::ofstream file(path);
  file << Json::writeString(settings, report) << '\n';
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
  printf("\nWritten to %s\n", path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Reports what was going on when a process died.", "crash_reporter");
  int pid = 0;
  // 0 and empty: not known. The report lacks these members then.
  int signal = 0;
  std::string program;
  std::string path;
  double timeoutSeconds = 5;
  app.add_option("--pid", pid, "The process that died")->required();
  app.add_option("--signal", signal, "The signal that ended it")->check(CLI::Range(1, 64));
  app.add_option("--program", program, "The program that it ran");
  app.add_option("--out", path, "Where to write the report as JSON")->required();
  app.add_option("--timeout", timeoutSeconds, "Seconds to wait for the service")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }

  // A reporter is started by the death, so this is when it happened.
  const Json::Value died = clocks();
  try {
    const Answers answers = askWithin(pid, timeoutSeconds);
    Json::Value report(Json::objectValue);
    report["format"] = "diagnostics-crash-report";
    report["version"] = 1;
    report["died"] = died;
    report["asked"] = answers.asked;
    report["pid"] = pid;
    if (signal != 0) report["signal"] = signal;
    if (!program.empty()) report["program"] = program;
    report["process"] = toJson(answers.process);
    report["all_processes"] = toJson(answers.allProcesses);
    report["system"] = toJson(answers.system);
    print(pid, report);
    write(path, report);
  } catch (const std::exception& error) {
    std::cerr << "crash_reporter: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
