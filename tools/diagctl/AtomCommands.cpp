#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>

#include <fmt/format.h>
#include <statsd/StatsEventWriter.h>
#include <statsd/StatsdStatus.h>
#include <unistd.h>

#include "Calls.h"
#include "Commands.h"
#include "Output.h"

namespace diagctl {
namespace {

using libstatsd::StatsdStatus;
using libstatsd::StatsEventWriter;
using libstatsd::UidCounters;
using libstatsd::WriteResult;

// A stopped service's socket takes connections, but nobody answers.
int refuseUnreached(const android::base::ResultError& error, const Options& options) {
  if (error.code() == EAGAIN) return refuse(unansweredText(options.timeoutSeconds));
  return refuse("no service takes atoms: " + error.message() +
                ". Start one with ./run serve, or set TORV_RUNTIME_DIR to its runtime directory.");
}

// A datagram tells its sender nothing, so the service is asked first whether it will hear this uid.
template <typename Publish>
int publish(const Options& options, const Publish& send) {
  const auto answer = statusWithin(options.timeoutSeconds);
  if (!answer.ok()) return refuseUnreached(answer.error(), options);
  const StatsdStatus& status = *answer;
  if (!status.askerHeard) {
    return refuse("the service does not take atoms of uid " + std::to_string(status.askerUid) +
                  ". It takes those of " + status.allowedSources + "; AID_APP is uids " +
                  status.applicationUids + " and its own, " + std::to_string(status.serviceUid) + ".");
  }
  StatsEventWriter writer;
  // "Sent" means that the kernel has queued the datagram. diagctl status tells what the service did with it.
  switch (send(writer)) {
    case WriteResult::Sent:
      return kDone;
    case WriteResult::TooLarge:
      return refuse("not published: an atom holds at most 4064 bytes, shorten the texts.");
    case WriteResult::QueueFull:
      return refuse("not published: the service's queue is full, try again.");
    case WriteResult::NoService:
      break;
  }
  return refuse("not published: the service has just ended.");
}

// The names of the counters are those of the JSON document, so that people and scripts speak of the same
// ones.
void printStatus(const StatsdStatus& status) {
  Rows rows = {
      {"service", fmt::format("pid {}, uid {}", status.servicePid, status.serviceUid)},
      {"takes atoms of", printable(status.allowedSources)},
      {"AID_APP is", fmt::format("uids {}, and {}", printable(status.applicationUids), status.serviceUid)},
      {"your uid", std::to_string(status.askerUid) + (status.askerHeard ? ", heard" : ", not heard")},
  };
  // Zeros are printed too: "none" is what one hopes to read here.
  libstatsd::forEachCounter(status.counters, [&](const char* name, uint64_t count) {
    rows.emplace_back(name, std::to_string(count));
  });
  for (const UidCounters& uid : status.uids) {
    rows.emplace_back(fmt::format("uid {}", uid.uid),
                      fmt::format("received {}, not heard {}, dropped when full {}, held {}", uid.received,
                                  uid.notHeard, uid.droppedFull, uid.held));
  }
  fputs(table(rows, 0).c_str(), stdout);
}

// The status has a socket and a time-out of its own, so this needs no thread as binder calls do.
int showStatus(const Options& options) {
  const auto status = statusWithin(options.timeoutSeconds);
  if (!status.ok()) return refuseUnreached(status.error(), options);
  options.json ? printJson(libstatsd::toJson(*status)) : printStatus(*status);
  return kDone;
}

}  // namespace

// The arguments live as long as the callbacks that hold them: the parser writes into them after this function
// has returned.
void addAtomCommands(CLI::App& app, const Options& options, int& exitCode) {
  struct Arguments {
    int32_t pid = 0;
    std::string first;
    std::string second;
  };

  const auto state = std::make_shared<Arguments>();
  CLI::App* push = app.add_subcommand("push", "Publish one state of a process, as an application would");
  push->add_option("--pid", state->pid, "The process whose state it is; without it, your shell's")
      ->check(CLI::Range(1, std::numeric_limits<int32_t>::max()));
  push->add_option("KEY", state->first)->required();
  push->add_option("VALUE", state->second)->required();
  push->callback([state, &options, &exitCode] {
    // diagctl itself is gone, and soon taken for dead, when somebody asks.
    const int32_t pid = state->pid != 0 ? state->pid : getppid();
    exitCode = publish(options, [&](StatsEventWriter& writer) {
      return writer.publishApplicationState(pid, state->first, state->second);
    });
  });

  // Both ids go into one atom, so a reader never sees the one of an old session with the other of a new one.
  const auto session = std::make_shared<Arguments>();
  CLI::App* pushSession = app.add_subcommand("push-session", "Publish the ids of the telemetry session");
  pushSession->add_option("SERVICE_ID", session->first, "service_session_id")->required();
  pushSession->add_option("USER_ID", session->second, "user_active_session_id")->required();
  pushSession->callback([session, &options, &exitCode] {
    exitCode = publish(options, [&](StatsEventWriter& writer) {
      return writer.publishTelemetrySession(session->first, session->second);
    });
  });

  CLI::App* status = app.add_subcommand("status", "Show what became of the atoms sent to the service");
  status->callback([&options, &exitCode] { exitCode = showStatus(options); });
}

}  // namespace diagctl
