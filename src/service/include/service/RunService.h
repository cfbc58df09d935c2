#pragma once

namespace Torv::OS::Diagnostics {

// The whole life of the daemon: builds the handler, registers both binder services, starts the periodic work,
// and serves on the calling thread until the binder thread pool ends (android::IPCThreadState::stopProcess()
// ends it; a device never does). Then stops the periodic work, releases everything and returns 0, the
// process's exit status. Call it once, from the main thread.
//
// If a manager could not be built, the log has said why, and the first use of the handler ends the process.
int runService();

}  // namespace Torv::OS::Diagnostics
