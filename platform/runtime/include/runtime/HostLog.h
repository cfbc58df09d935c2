#pragma once

namespace platform {

// Sends the process's log (<android/log.h>) to standard error, one line for each message, without ever
// blocking: if standard error is a full pipe or a stopped terminal, the line is dropped, and the next line
// that fits is preceded by one that says how many were lost. A line is cut after 4096 bytes. The
// process ignores SIGPIPE from then on, so a reader that goes away does not end it. For the start of a
// service; whatever set a logger before is replaced.
//
// The least priority that is logged comes from the environment: TORV_LOG_LEVEL is verbose, debug, info, warn,
// error, fatal or silent. If it is not set or empty, it is info. Any other value is logged and counts as
// info.
void installHostLog();

}  // namespace platform
