#pragma once

#include <functional>
#include <stdexcept>
#include <string>

#include "dev/kerno/internal/diagnostics/BinderHeaders.h"

namespace diagctl {

// Why a command cannot be carried out, in a sentence that says what to do.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The binder of a service. Throws a Refusal where none is registered.
android::sp<android::IBinder> serviceBinder(const char* name);

// Throws a Refusal where a call failed.
void requireOk(const android::binder::Status& status);

// Runs `calls` and gives it `timeoutSeconds`. Calls into a service that is stopped, or stuck, never return
// and cannot be called off: they are made on a thread of their own, and where the time runs out the process
// says so and exits with 1. A Refusal thrown by `calls` is printed. Returns the exit code.
int within(double timeoutSeconds, const std::function<int()>& calls);

}  // namespace diagctl
