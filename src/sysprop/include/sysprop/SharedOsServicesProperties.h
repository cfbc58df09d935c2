// Remotely managed feature flags of the shared OS services.
#pragma once

#include <optional>

// Each reads its device-configuration property anew: "1" and "true" are true, "0" and "false" are false, in
// whatever case; anything else, and a property that does not exist, is unset. Thread-safe.
namespace pellux::sysprop::SharedOsServicesProperties {

std::optional<bool> crash_report_collect_logs();
std::optional<bool> crash_report_extended_logs_enabled();
std::optional<bool> enable_diagnostics_collector_correlation();

}  // namespace pellux::sysprop::SharedOsServicesProperties
