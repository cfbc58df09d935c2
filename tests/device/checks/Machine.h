#pragma once

#include <map>
#include <string>
#include <vector>

#include "Child.h"
#include "fixture/Daemon.h"

inline constexpr char kDaemonLog[] = "/tmp/daemon.log";
inline constexpr char kTelemetryLog[] = "/run/torv/telemetry.jsonl";

using dev::kerno::internal::diagnostics::IDiagnosticsNotificationEventCode;
using fixture::countOf;
using fixture::Daemon;
using fixture::IDiagnosticsCollectorService;
using fixture::IDiagnosticsNotificationService;

// What stands before the first check and serves all of them.
class Machine {
 public:
  // Lays out the runtime directory, listens for registrations and starts the daemon. False, with a word on
  // the console, if that fails.
  static bool start();
  static void stop();

  static fixture::Process& daemon();
  // Starts it and waits until both its services answer.
  static bool startDaemon();
  // The names that the service manager announced since start(), in its order.
  static std::vector<std::string> registrations();
};

// A bundle tree as one map: "outer/inner" to the text of a string, or to "int 5" for an int. An empty nested
// bundle stands as "outer/" with an empty text; an entry of any other type as "?".
using Flat = std::map<std::string, std::string>;
Flat flatten(const android::os::PersistableBundle& bundle);
// The part of `flat` below `prefix`, without it.
Flat below(const Flat& flat, const std::string& prefix);
