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

// `text` with the property set: its last line is rewritten where it has one, else a line is appended; all
// other lines stay as they are.
std::string withProperty(std::string_view text, std::string_view name, std::string_view value);

// `text` without any line that sets the property; all other lines stay as they are.
std::string withoutProperty(std::string_view text, std::string_view name);

// The file of the current runtime directory as it is now. One that is there but cannot be read is logged once
// and reads as empty, as a missing one does.
std::string readPropertyFile();

// Sets a property in the file of the current runtime directory, atomically and under the file's lock. The
// device's rules hold: legal names, values up to 91 bytes (read-only ones may be longer), valid UTF-8,
// properties whose names begin with "ro." are set once; and no line breaks, which the file cannot hold.
// Returns an error of one sentence if a rule is broken or a step fails.
[[nodiscard]] android::base::Result<void> setProperty(std::string_view name, std::string_view value);

// Removes a property from the same file, in the same way. Returns an error of one sentence if it is not set
// or read-only, or if a step fails.
[[nodiscard]] android::base::Result<void> unsetProperty(std::string_view name);

}  // namespace platform
