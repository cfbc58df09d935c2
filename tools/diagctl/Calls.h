// Calls into the service, each with an error that says what to do. Functions that return a Result print
// nothing; those that return an int have printed what went wrong, and the int is the exit code.
#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include <android-base/result.h>
#include <statsd/StatsdStatus.h>

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"
#include "timeline/Sources.h"

namespace diagctl {

using android::base::Result;

// The binder of a service. Returns an error that names the runtime directory if none is registered there.
[[nodiscard]] Result<android::sp<android::IBinder>> serviceBinder(const char* name);

// A question to the collector: one call of its interface that fills in a bundle.
using Question = std::function<android::binder::Status(
    dev::kerno::internal::diagnostics::IDiagnosticsCollectorService&, android::os::PersistableBundle*)>;

// The questions for the states of all processes and for the system context.
android::binder::Status askStates(dev::kerno::internal::diagnostics::IDiagnosticsCollectorService& service,
                                  android::os::PersistableBundle* answer);
android::binder::Status askSystem(dev::kerno::internal::diagnostics::IDiagnosticsCollectorService& service,
                                  android::os::PersistableBundle* answer);

// Asks the collector and returns its answer. Returns an error that says what to do if no service runs or the
// call fails. Blocks for as long as the service takes.
[[nodiscard]] Result<android::os::PersistableBundle> answerTo(const Question& question);

// The error that a call's status stands for; none if the call worked.
[[nodiscard]] Result<void> outcomeOf(const android::binder::Status& status);

// Asks for the states of all processes and, if wanted, for the system context. Blocks as answerTo() does.
[[nodiscard]] Result<timeline::Answer> askService(bool withContext);

// The timeline of a file (a recording or a crash report); of a live answer if `path` is empty.
[[nodiscard]] Result<timeline::Timeline> timelineFrom(const std::string& path);

// Prints "diagctl: " and the sentence to stderr. Returns the exit code for a refusal.
int refuse(const std::string& sentence);

// The exit code of a result; an error is printed.
int exitCodeOf(const Result<void>& result);

// Runs `calls` and gives them `timeoutSeconds`. Calls into a service that is stopped never return and cannot
// be called off, so they are made on a thread of their own, and if the time runs out, the process says so and
// exits with 1. Returns the exit code; prints an error.
int within(double timeoutSeconds, const std::function<Result<void>()>& calls);

// Asks the service's statsd feed who is heard and what was dropped. Returns an error with the code EAGAIN if
// the service exists but does not answer within `seconds`, with another code if there is none.
[[nodiscard]] Result<libstatsd::StatsdStatus> statusWithin(double seconds);

// What is said of a service that exists but does not answer in time.
std::string unansweredText(double timeoutSeconds);

}  // namespace diagctl
