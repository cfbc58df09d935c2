#pragma once

#include <string_view>

#include <utils/String16.h>

namespace Torv::OS::Diagnostics {

// `utf8` as binder carries text. The platform's own conversion makes "" of text whose last character is cut
// short, and surrogates of other malformed bytes; here each malformed byte becomes U+FFFD and the rest stays.
android::String16 toString16(std::string_view utf8);

}  // namespace Torv::OS::Diagnostics
