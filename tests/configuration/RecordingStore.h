// A preferences store that writes down what is asked of it. It lives in a module of the SDK's name beside the
// test program, which comes to it through the real loader.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace test {

struct RecordingStore {
  std::string calls;  // "create4, setInt ~key=7, getBool key, listen ~key ~key, ", ~ for "crash-reporter-"
  std::map<std::string, std::string> strings;
  std::map<std::string, int64_t> numbers;
};

// Looked up in the module by this name.
using GetRecordingStore = RecordingStore&();
inline constexpr char kGetRecordingStore[] = "recordingStore";

}  // namespace test
