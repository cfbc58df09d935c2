#include "sysprop/SharedOsServicesProperties.h"

#include <cstdint>
#include <string>

#include <strings.h>
#include <sys/system_properties.h>

namespace pellux::sysprop::SharedOsServicesProperties {
namespace {

// Returns the property's value, or "" if there is no such property. Only the callback delivers values of any
// length.
std::string readText(const char* name) {
  std::string text;
  const prop_info* property = __system_property_find(name);
  if (property == nullptr) return text;
  __system_property_read_callback(
      property,
      [](void* cookie, const char*, const char* value, uint32_t) {
        *static_cast<std::string*>(cookie) = value;
      },
      &text);
  return text;
}

template <typename T>
T GetProp(const char* name);

template <>
std::optional<bool> GetProp(const char* name) {
  const std::string text = readText(name);
  const auto is = [&text](const char* word) { return strcasecmp(text.c_str(), word) == 0; };
  if (is("1") || is("true")) return true;
  if (is("0") || is("false")) return false;
  return std::nullopt;
}

}  // namespace

std::optional<bool> crash_report_collect_logs() {
  return GetProp<std::optional<bool>>(
      "persist.device_config.pellux_shared_os_services.tvk_crash_report_collect_logs");
}

std::optional<bool> crash_report_extended_logs_enabled() {
  return GetProp<std::optional<bool>>(
      "persist.device_config.pellux_shared_os_services.crash_report_extended_logs_enabled");
}

std::optional<bool> enable_diagnostics_collector_correlation() {
  return GetProp<std::optional<bool>>(
      "persist.device_config.pellux_shared_os_services.oscontrol_enable_diagnostic_collector_service_corr");
}

}  // namespace pellux::sysprop::SharedOsServicesProperties
