// Calls into the service, each with an error that says what to do. Functions that return a Result print
// nothing; those that return an int have printed what went wrong, and the int is the exit code.
#pragma once

#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include <android-base/result.h>

#include "dev/kerno/internal/diagnostics/IDiagnosticsCollectorService.h"
#include "dev/kerno/internal/diagnostics/IDiagnosticsNotificationService.h"
#include "timeline/Sources.h"

namespace diagctl {

using android::base::Result;

// The binder of a service. Returns an error that names the runtime directory if none is registered there.
[[nodiscard]] Result<android::sp<android::IBinder>> serviceBinder(const char* name);

// The same as a proxy.
[[nodiscard]] Result<android::sp<dev::kerno::internal::diagnostics::IDiagnosticsCollectorService>>
collector();
[[nodiscard]] Result<android::sp<dev::kerno::internal::diagnostics::IDiagnosticsNotificationService>>
notifier();

// The error that a call's status stands for; none if the call worked.
[[nodiscard]] Result<void> outcomeOf(const android::binder::Status& status);

// Asks for the states of all processes and, if wanted, for the system context.
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

// What is said of a service that exists but does not answer in time.
std::string unansweredText(double timeoutSeconds);

}  // namespace diagctl
