#pragma once

#include <string>

namespace test {

// The message of a failed android::base::Result, or "" if it succeeded.
template <typename Result>
std::string errorOf(const Result& result) {
  return result.ok() ? "" : result.error().message();
}

}  // namespace test
