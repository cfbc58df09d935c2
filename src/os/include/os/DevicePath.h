// The place of the device's own files. On a device that is their path; on a development machine the
// environment variable TORV_DEVICE_ROOT names a directory that holds them instead.
#pragma once

#include <string>
#include <string_view>

namespace Torv::OS {

// Returns the path under which to open the file `absolutePath` ("/proc/stat"): the value of TORV_DEVICE_ROOT
// followed by `absolutePath`, or `absolutePath` alone if the variable is not set. Reads the variable at every
// call. Log messages name the path without the prefix. Safe from any thread as long as no thread changes the
// environment.
std::string devicePath(std::string_view absolutePath);

}  // namespace Torv::OS
