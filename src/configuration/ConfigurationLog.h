#pragma once

namespace Torv {

inline constexpr char kConfigurationLogTag[] = "libDiagnosticConfiguration";

}  // namespace Torv
