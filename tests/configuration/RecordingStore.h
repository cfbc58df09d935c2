// A preferences store that records its calls. It is in a module with the name of the SDK's, beside the test
// program, which finds it through the real loader.
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
