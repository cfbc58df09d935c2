// A preferences store that writes down what is asked of it. It lives in a module of the SDK's name beside the
// test program, which comes to it through the real loader.
#pragma once

#include <map>
#include <string>
#include <vector>

#include <ossdk/Preferences.h>

namespace test {

struct RecordingStore {
  std::vector<std::string> calls;  // "create", "setInt key=7", "listen key key", "destroy", ...
  std::map<std::string, std::string> strings;
  std::map<std::string, uint32_t> uints;
  std::map<std::string, int32_t> ints;
  std::map<std::string, uint8_t> bools;
  OSSDK::Preferences::v4::IPreferencesListener* listener = nullptr;
  int ownedTexts = 0;  // given away and not released yet
};

// Looked up in the module by this name.
using GetRecordingStore = RecordingStore&();
inline constexpr char kGetRecordingStore[] = "recordingStore";

}  // namespace test
