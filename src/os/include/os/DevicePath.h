// Where the device's own files are found. On a device that is where they are; on a development machine the
// environment variable TORV_DEVICE_ROOT names a directory that holds them instead.
#pragma once

#include <string>
#include <string_view>

namespace Torv::OS {

// The path under which to open `absolutePath` ("/proc/stat"): TORV_DEVICE_ROOT in front of it where that is
// set, else the path itself. The variable is read at every call; safe from any thread as long as none
// changes the environment. Messages name the path without the prefix.
std::string devicePath(std::string_view absolutePath);

}  // namespace Torv::OS
