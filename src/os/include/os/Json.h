// Reading JSON that comes from outside: files and other processes' texts.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <json/value.h>

namespace Torv::OS {

// What a document may hold: far above any honest one, low enough that a hostile one costs a few megabytes.
inline constexpr size_t kMaxJsonBytes = size_t{4} << 20;
inline constexpr size_t kMaxJsonDepth = 100;      // levels of arrays and objects
inline constexpr size_t kMaxJsonValues = 100000;  // of all kinds and levels

enum class JsonRules {
  Lenient,  // comments, trailing commas and text behind the document pass; the last of two equal names counts
  Strict,   // none of these does
};

// Parses one JSON document of any kind. Nothing for a text that does not parse or is past a limit;
// `error` then says, on one line, what is wrong and where. Never throws or asserts, whatever the text holds.
// Thread-safe.
std::optional<Json::Value> parseJson(std::string_view text, std::string& error,
                                     JsonRules rules = JsonRules::Lenient);

// The text behind `fd`, from where it stands to its end, for parseJson(): reading stops one byte past
// kMaxJsonBytes, so an endless file costs no more than that. Nothing where a read fails; errno says why.
std::optional<std::string> readJsonText(int fd);

// The member `name` of `object`, null where there is none or where `object` is no object.
const Json::Value* findMember(const Json::Value& object, std::string_view name);

}  // namespace Torv::OS
