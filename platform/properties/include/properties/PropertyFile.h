// The text behind system properties on a host: one name=value a line, # comments, as in build.prop. A value
// is everything after the first "=", spaces included; a line may end in CR LF. Where a name occurs twice, the
// last line holds.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <android-base/result.h>

namespace platform {

struct PropertyLine {
  enum class Kind { Blank, Property, Ignored };

  Kind kind = Kind::Blank;
  std::string_view name;         // of a Property
  std::string_view value;        // of a Property
  const char* reason = nullptr;  // of an Ignored one: why, for a log line
};

// Takes one line, without its newline, apart. The result's texts point into the line.
PropertyLine parsePropertyLine(std::string_view line);

// The value that `text` gives a property, pointing into the text. Ignored lines are logged, each once in the
// life of the process.
std::optional<std::string_view> findProperty(std::string_view text, std::string_view name);

using PropertyMap = std::map<std::string, std::string, std::less<>>;

// All properties of `text`; ignored lines are logged as above.
PropertyMap parseProperties(std::string_view text);

// Returns `text` with the property set: rewrites the last line of that name, or appends a line if there is
// none. All other lines stay as they are.
std::string withProperty(std::string_view text, std::string_view name, std::string_view value);

// `text` without any line that sets the property; all other lines stay as they are.
std::string withoutProperty(std::string_view text, std::string_view name);

// Returns the present text of the file of the current runtime directory, of at most 1 MiB; "" if there is no
// file. Returns "" and logs it once if the file cannot be read: it is too large or no regular file, or the
// process has no descriptor left. Never waits.
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
