#pragma once

namespace Torv::OS::Diagnostics {

inline constexpr char kStartUpTag[] = "DiagnosticsCollector";
inline constexpr char kServiceTag[] = "DiagnosticsCollectorService";

}  // namespace Torv::OS::Diagnostics
