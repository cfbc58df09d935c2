// What crosses the module's border. All of it is lent for the duration of the call that it is an argument of,
// or for as long as the operation that returns it says.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Said of a function that clients look up in the module by name; everything else in it is hidden.
#define OSSDK_ENTRY_POINT extern "C" __attribute__((visibility("default")))

namespace OSSDK {

// Text of any bytes, without a terminating zero.
struct String {
  const char* data = nullptr;
  size_t size = 0;

  String() = default;
  String(std::string_view text) : data(text.data()), size(text.size()) {}  // NOLINT: meant to convert
  String(const std::string& text) : String(std::string_view(text)) {}      // NOLINT
  String(const char* text) : String(std::string_view(text)) {}             // NOLINT

  std::string_view view() const { return {data, size}; }
};

// Text that the module gives away, the one thing that is not lent: whoever receives it calls
// release(characters) once it has copied it. release is null if there is nothing to release.
struct OwnedText {
  const char* characters = nullptr;
  size_t length = 0;
  void (*release)(const char* characters) = nullptr;
};

// Elements of a kind that crosses the border.
template <typename T>
struct Array {
  const T* items = nullptr;
  size_t count = 0;

  const T* begin() const { return items; }
  const T* end() const { return items + count; }
};

namespace Utils {

// A list of texts that the SDK owns.
class IListString {
 public:
  virtual size_t size() const = 0;
  // Returns an empty text for an index past the end.
  virtual String at(size_t index) const = 0;

 protected:
  ~IListString() = default;
};

}  // namespace Utils
}  // namespace OSSDK
