// The module as a client has it: entry points looked up by name.
#include <chrono>
#include <filesystem>
#include <mutex>
#include <semaphore>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ossdk/Preferences.h>
#include <unistd.h>

#include "support/TempDir.h"

namespace {

namespace v4 = OSSDK::Preferences::v4;

template <typename Function>
Function* entryPoint(const char* name) {
  void* module = dlopen(OSSDK_MODULE, RTLD_LAZY);
  EXPECT_NE(module, nullptr) << dlerror();
  return reinterpret_cast<Function*>(dlsym(module, name));
}

using Manager = std::shared_ptr<v4::IPreferencesManager>;

Manager makeManager() {
  auto* destroy = entryPoint<v4::DestroyPreferencesManager>(v4::kDestroyPreferencesManager);
  return {entryPoint<v4::CreatePreferencesManager>(v4::kCreatePreferencesManager)(v4::kVersion),
          [destroy](v4::IPreferencesManager* manager) { destroy(v4::kVersion, manager); }};
}

class Listener : public v4::IPreferencesListener {
 public:
  void onConnected() override { note("connected"); }
  void onDisconnected() override { note("disconnected"); }
  void onChanged(OSSDK::Utils::IListString* keys) override {
    std::string names = "changed";
    for (size_t i = 0; i < keys->size(); ++i) names += " " + std::string(keys->at(i).view());
    note(names);
  }

  // The next notification, or a complaint if it does not come.
  std::string next() {
    if (!mArrived.try_acquire_for(std::chrono::seconds(60))) return "nothing";
    const std::lock_guard lock(mMutex);
    return mNotes[mTaken++];
  }

 private:
  void note(const std::string& text) {
    const std::lock_guard lock(mMutex);
    mNotes.push_back(text);
    mArrived.release();
  }

  std::counting_semaphore<> mArrived{0};
  std::mutex mMutex;
  std::vector<std::string> mNotes;
  size_t mTaken = 0;
};

class ModuleTest : public ::testing::Test {
 protected:
  test::HostDir mDir;
};

TEST_F(ModuleTest, aNumberAnswersAsEachTypeThatHoldsIt) {
  const Manager manager = makeManager();
  uint32_t uintValue = 0;
  int32_t intValue = 5;
  EXPECT_EQ(manager->setUint("u", 4294967295U), v4::kOk);
  EXPECT_EQ(manager->getUint("u", &uintValue), v4::kOk);
  EXPECT_EQ(manager->getInt("u", &intValue), v4::kNotFound) << "out of an int's range";
  mDir.write("preferences.json", R"({"int": -2, "real": 1.5, "null": null, "object": {}, "huge": 1e300})");
  for (const char* key : {"absent", "int", "real", "null", "object", "huge"}) {
    EXPECT_EQ(manager->getUint(key, &uintValue), v4::kNotFound) << key;
  }
  EXPECT_EQ(uintValue, 4294967295U) << "untouched by a failure";
  EXPECT_EQ(intValue, 5);
}

TEST_F(ModuleTest, aStoreThatCannotBeUsedAnswersWithAnError) {
  const test::ScopedEnv nowhere("TORV_RUNTIME_DIR", mDir.write("file", ""));
  Listener listener;
  const Manager manager = makeManager();
  int32_t value = 0;
  EXPECT_EQ(manager->getInt("a", &value), v4::kStoreError);
  EXPECT_EQ(manager->setInt("a", 1), v4::kStoreError);
  EXPECT_EQ(manager->registerListener(&listener, {}), v4::kStoreError);
}

TEST_F(ModuleTest, aListenerHearsOfItsKeysWhoeverChangesThem) {
  mDir.write("preferences.json", R"({"kept": 1, "changed": 1, "removed": true})");
  Listener listener;
  const Manager manager = makeManager();  // gone before its listener
  const OSSDK::String keys[] = {"added", "removed", "changed", "kept"};
  ASSERT_EQ(manager->registerListener(&listener, {keys, 4}), v4::kOk);
  EXPECT_EQ(listener.next(), "connected");
  const std::string temporary = mDir.write("new", R"({"kept": 1, "changed": 2, "added": "x"})");
  ASSERT_EQ(rename(temporary.c_str(), mDir.path("preferences.json").c_str()), 0);
  EXPECT_EQ(listener.next(), "changed added removed changed");
  EXPECT_EQ(manager->setInt("unheard", 1), v4::kOk);
  EXPECT_EQ(manager->setInt("kept", 2), v4::kOk);
  EXPECT_EQ(listener.next(), "changed kept");
  ASSERT_EQ(unlink(mDir.path("preferences.json").c_str()), 0);
  EXPECT_EQ(listener.next(), "changed added changed kept");
  mDir.write("preferences.json", R"({"kept": 3})");  // not by a rename, as an editor might
  EXPECT_EQ(listener.next(), "changed kept");
  std::filesystem::remove_all(mDir.path());
  EXPECT_EQ(listener.next(), "changed kept");
  EXPECT_EQ(listener.next(), "disconnected");
}

}  // namespace
