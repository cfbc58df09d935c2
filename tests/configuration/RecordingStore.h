// A preferences store that records its calls. It is in a module with the name of the SDK's, beside the test
// program, which finds it through the real loader.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include <ossdk/Preferences.h>

namespace test {

struct RecordingStore {
  std::string calls;  // "create4, setInt ~key=7, getBool key, listen ~key ~key, ", ~ for "crash-reporter-"
  std::map<std::string, std::string> strings;
  std::map<std::string, int64_t> numbers;
  OSSDK::Preferences::v4::IPreferencesListener* listener = nullptr;  // the one that was registered last
};

// Looked up in the module by this name.
using GetRecordingStore = RecordingStore&();
inline constexpr char kGetRecordingStore[] = "recordingStore";

}  // namespace test
