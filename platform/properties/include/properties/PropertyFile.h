// The text behind system properties on a host: one name=value a line, # comments, as in build.prop. A value
// is everything after the first "=", spaces included; a line may end in CR LF. Where a name occurs twice, the
// last line holds. A line that is neither a property nor a comment, or breaks a rule of setProperty(), is
// ignored. All functions are thread-safe.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <android-base/result.h>

namespace platform {

using PropertyMap = std::map<std::string, std::string, std::less<>>;

// Returns the value that `text` gives a property, or nullopt if it gives none. The value points into `text`.
std::optional<std::string_view> findProperty(std::string_view text, std::string_view name);

// Returns all properties of `text`.
PropertyMap parseProperties(std::string_view text);

// Returns `text` with the property set: rewrites the last line of that name, or appends a line if there is
// none. All other lines stay as they are.
std::string withProperty(std::string_view text, std::string_view name, std::string_view value);

// Returns the present text of the file of the current runtime directory, of at most 1 MiB; "" if there is no
// file. Returns "" and logs it once if the file cannot be read: it is too large or no regular file, or the
// process has no descriptor left. Also logs each line that is ignored, once in the life of the process. Never
// waits.
std::string readPropertyFile();

// Sets a property in the file of the current runtime directory. Replaces the file atomically, under its lock.
// The device's rules hold: legal names, values up to 91 bytes (of read-only properties, "ro.*", also longer),
// valid UTF-8, and a read-only property is set once. A value with a line break is refused too. Returns an
// error of one sentence if a rule is broken or a step fails. Waits for other writers.
[[nodiscard]] android::base::Result<void> setProperty(std::string_view name, std::string_view value);

// Removes a property from the same file, in the same way. Returns an error of one sentence if it is not set
// or read-only, or if a step fails.
[[nodiscard]] android::base::Result<void> unsetProperty(std::string_view name);

}  // namespace platform
