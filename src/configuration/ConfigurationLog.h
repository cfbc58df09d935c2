// The tag of all log lines of this folder.
#pragma once

namespace Torv {

inline constexpr char kConfigurationLogTag[] = "libDiagnosticConfiguration";

}  // namespace Torv
