#pragma once

#include <string>

namespace diagctl {

// The file in the runtime directory in which whoever starts a service says what environment it has, one
// TORV_NAME=value a line.
inline constexpr char kEnvironmentFile[] = "environment";

// Sets TORV_DEVICE_ROOT as that file says, so that diagctl sees the device root that the service sees. Does
// nothing if the variable is set already, if there is no such file, or if neither root, nor this user, nor
// the owner of the runtime directory has written it. Call it before any thread starts.
void adoptServiceEnvironment();

}  // namespace diagctl
