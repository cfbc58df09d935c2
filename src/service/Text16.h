#pragma once

#include <string_view>

#include <utils/String16.h>

namespace Torv::OS::Diagnostics {

// Converts `utf8` to the UTF-16 text that binder carries. Cannot fail: each malformed byte becomes U+FFFD and
// the rest stays. The platform's own conversion returns "" if the last character is cut, and makes surrogates
// of other malformed bytes. NUL is a character like others. Safe from any thread.
android::String16 toString16(std::string_view utf8);

}  // namespace Torv::OS::Diagnostics
