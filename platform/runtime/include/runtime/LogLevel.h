#pragma once

namespace platform {

// Sets the process's least log priority from TORV_LOG_LEVEL: verbose, debug, info, warn, error, fatal or
// silent; info where it is not set. A value that is none of these is logged and counts as info.
void applyLogLevel();

}  // namespace platform
