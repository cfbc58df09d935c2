#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace OSSDK {

// Text on its way across the module's border: lent, not owned, without a terminating zero, any bytes. It is
// valid for the duration of the call that it is an argument of, or as long as the operation that returns it
// says.
struct String {
  const char* data = nullptr;
  size_t size = 0;

  String() = default;
  String(std::string_view text) : data(text.data()), size(text.size()) {}  // NOLINT: meant to convert
  String(const std::string& text) : String(std::string_view(text)) {}      // NOLINT
  String(const char* text) : String(std::string_view(text)) {}             // NOLINT

  std::string_view view() const { return {data, size}; }
};

// Text that the module gives away: whoever receives it calls release(characters) once it has copied it.
// release is null if there is nothing to release.
struct OwnedText {
  const char* characters = nullptr;
  size_t length = 0;
  void (*release)(const char* characters) = nullptr;
};

}  // namespace OSSDK
