#include <cstring>

#include "RecordingStore.h"

namespace v4 = OSSDK::Preferences::v4;

namespace {

test::RecordingStore gStore;

void note(const std::string& operation, OSSDK::String key, const std::string& rest = "") {
  gStore.calls.push_back(operation + " " + std::string(key.view()) + rest);
}

template <typename Value>
v4::Status get(const std::map<std::string, Value>& values, OSSDK::String key, Value* value) {
  const auto found = values.find(std::string(key.view()));
  if (found == values.end()) return v4::kNotFound;
  *value = found->second;
  return v4::kOk;
}

class RecordingManager final : public v4::IPreferencesManager {
 public:
  v4::Status getString(OSSDK::String key, OSSDK::OwnedText* value) override {
    note("getString", key);
    std::string text;
    const v4::Status status = get(gStore.strings, key, &text);
    if (status != v4::kOk) return status;
    ++gStore.ownedTexts;
    // Not terminated: whoever reads on past the length is caught.
    char* characters = static_cast<char*>(malloc(text.size()));
    memcpy(characters, text.data(), text.size());
    *value = {characters, text.size(), [](const char* owned) {
                --gStore.ownedTexts;
                free(const_cast<char*>(owned));
              }};
    return v4::kOk;
  }
  v4::Status getUint(OSSDK::String key, uint32_t* value) override {
    note("getUint", key);
    return get(gStore.uints, key, value);
  }
  v4::Status getInt(OSSDK::String key, int32_t* value) override {
    note("getInt", key);
    return get(gStore.ints, key, value);
  }
  v4::Status getBool(OSSDK::String key, uint8_t* value) override {
    note("getBool", key);
    return get(gStore.bools, key, value);
  }
  v4::Status setString(OSSDK::String key, OSSDK::String value) override {
    note("setString", key, "=" + std::string(value.view()));
    return v4::kOk;
  }
  v4::Status setUint(OSSDK::String key, uint32_t value) override {
    note("setUint", key, "=" + std::to_string(value));
    return v4::kOk;
  }
  v4::Status setInt(OSSDK::String key, int32_t value) override {
    note("setInt", key, "=" + std::to_string(value));
    return v4::kOk;
  }
  v4::Status setBool(OSSDK::String key, bool value) override {
    note("setBool", key, value ? "=true" : "=false");
    return v4::kOk;
  }
  v4::Status registerListener(v4::IPreferencesListener* listener, OSSDK::Array<OSSDK::String> keys) override {
    gStore.listener = listener;
    std::string names;
    for (const OSSDK::String& key : keys) names += " " + std::string(key.view());
    gStore.calls.push_back("listen" + names);
    return v4::kOk;
  }
};

}  // namespace

extern "C" test::RecordingStore& recordingStore() {
  return gStore;
}

extern "C" v4::IPreferencesManager* createPreferencesManager(int version) {
  gStore.calls.push_back("create" + std::to_string(version));
  return new RecordingManager;
}

extern "C" void destroyPreferencesManager(int version, v4::IPreferencesManager* manager) {
  gStore.calls.push_back("destroy" + std::to_string(version));
  gStore.listener = nullptr;
  delete static_cast<RecordingManager*>(manager);
}
