#pragma once

namespace Torv::OS::Diagnostics {

inline constexpr char kStatsTag[] = "libdiagnostics-stats";

}  // namespace Torv::OS::Diagnostics
