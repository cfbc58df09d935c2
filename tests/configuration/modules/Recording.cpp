#include <cstring>

#include "RecordingStore.h"

using OSSDK::String;
namespace v4 = OSSDK::Preferences::v4;

namespace {

constexpr std::string_view kPrefix = "crash-reporter-";

test::RecordingStore gStore;

std::string shortened(String key) {
  const std::string_view name = key.view();
  return name.starts_with(kPrefix) ? "~" + std::string(name.substr(kPrefix.size())) : std::string(name);
}

v4::Status set(const char* operation, String key, const std::string& value) {
  gStore.calls += operation + (" " + shortened(key)) + "=" + value + ", ";
  return v4::kOk;
}

template <typename Map, typename Value>
v4::Status get(const char* operation, const Map& values, String key, Value* value) {
  gStore.calls += operation + (" " + shortened(key)) + ", ";
  const auto found = values.find(std::string(key.view()));
  if (found == values.end()) return v4::kNotFound;
  *value = static_cast<Value>(found->second);
  return v4::kOk;
}

class RecordingManager final : public v4::IPreferencesManager {
 public:
  v4::Status getString(String key, OSSDK::OwnedText* value) override {
    std::string text;
    const v4::Status status = get("getString", gStore.strings, key, &text);
    if (status != v4::kOk) return status;
    // Not terminated, so that AddressSanitizer reports a reader who goes past the length. It also reports one
    // who does not release the text.
    char* characters = static_cast<char*>(malloc(text.size()));
    memcpy(characters, text.data(), text.size());
    *value = {characters, text.size(), [](const char* owned) { free(const_cast<char*>(owned)); }};
    return v4::kOk;
  }
  v4::Status getUint(String key, uint32_t* value) override {
    return get("getUint", gStore.numbers, key, value);
  }
  v4::Status getInt(String key, int32_t* value) override { return get("getInt", gStore.numbers, key, value); }
  v4::Status getBool(String key, uint8_t* value) override {
    return get("getBool", gStore.numbers, key, value);
  }
  v4::Status setString(String key, String text) override {
    return set("setString", key, std::string(text.view()));
  }
  v4::Status setUint(String key, uint32_t value) override {
    return set("setUint", key, std::to_string(value));
  }
  v4::Status setInt(String key, int32_t value) override { return set("setInt", key, std::to_string(value)); }
  v4::Status setBool(String key, bool value) override {
    return set("setBool", key, value ? "true" : "false");
  }
  v4::Status registerListener(v4::IPreferencesListener* listener, OSSDK::Array<String> keys) override {
    gStore.listener = listener;
    gStore.calls += "listen";
    for (const String& key : keys) gStore.calls += " " + shortened(key);
    gStore.calls += ", ";
    return v4::kOk;
  }
};

}  // namespace

extern "C" test::RecordingStore& recordingStore() {
  return gStore;
}

extern "C" v4::IPreferencesManager* createPreferencesManager(int version) {
  gStore.calls += "create" + std::to_string(version) + ", ";
  return new RecordingManager;
}

extern "C" void destroyPreferencesManager(int version, v4::IPreferencesManager* manager) {
  gStore.calls += "destroy" + std::to_string(version) + ", ";
  delete static_cast<RecordingManager*>(manager);
}
