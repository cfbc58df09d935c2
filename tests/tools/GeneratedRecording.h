#pragma once

#include <string>

namespace recordings {

// Writes the recording of ten minutes of a busy machine: 300 processes with 20 keys each, of which some
// change in each second; 12 deaths; a service that is away from second 200 to 220 and has forgotten
// everything afterwards; histories of pressure (with stall totals, samples without values and a counter that
// restarts), CPU and memory. The same text at every call. Throws if the file cannot be written.
void writeGeneratedRecording(const std::string& path);

}  // namespace recordings
