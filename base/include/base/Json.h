// Reading JSON that comes from outside: files, and texts of other processes.
#pragma once

#include <cstddef>
#include <string_view>

#include <android-base/result.h>
#include <json/value.h>

namespace Torv::Base {

// What one document may hold. The limits are far above honest documents, and low enough that a hostile one
// costs a few megabytes at most.
inline constexpr size_t kMaxJsonBytes = size_t{4} << 20;
inline constexpr size_t kMaxJsonDepth = 100;      // levels of arrays and objects
inline constexpr size_t kMaxJsonValues = 100000;  // of all kinds and levels

enum class JsonRules {
  // For files that people write. Accepts comments, trailing commas and text after the document. The last of
  // two equal names counts.
  Lenient,
  // For texts that programs write. Accepts none of these.
  Strict,
};

// Parses one JSON document of any kind. Returns an error of one line if the text is not JSON (with the place)
// or exceeds a limit (with its name). Never throws or asserts, whatever the text holds. Thread-safe.
[[nodiscard]] android::base::Result<Json::Value> parseJson(std::string_view text,
                                                           JsonRules rules = JsonRules::Lenient);

// Returns the member `name` of `object`, or null if it has none or is no object. The pointer is valid as long
// as the object is neither changed nor destroyed.
[[nodiscard]] const Json::Value* findMember(const Json::Value& object, std::string_view name);

}  // namespace Torv::Base
