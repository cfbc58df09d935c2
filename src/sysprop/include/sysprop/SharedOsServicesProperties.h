// Remotely managed feature flags of the shared OS services.
#pragma once

#include <optional>

// Each function reads one device-configuration property, anew at every call. It returns true for "1" and
// "true", false for "0" and "false", ignoring the case of letters, and nullopt for any other value and for a
// property that does not exist: the caller decides what an unset flag means. Nothing is logged. Thread-safe.
namespace pellux::sysprop::SharedOsServicesProperties {

std::optional<bool> crash_report_collect_logs();
std::optional<bool> crash_report_extended_logs_enabled();
// Whether the system's state is sampled and reported with each system context. Counts at start-up only.
std::optional<bool> enable_diagnostics_collector_correlation();

}  // namespace pellux::sysprop::SharedOsServicesProperties
