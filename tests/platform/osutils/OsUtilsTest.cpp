#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <osutils/Properties.h>
#include <osutils/Telemetry.h>
#include <osutils/Thread.h>
#include <pthread.h>

#include "support/TempDir.h"

namespace {

using Torv::OS::Telemetry::parseAtom;

TEST(ThreadTest, CutsANameToWhatTheKernelKeeps) {
  std::promise<void> done;
  std::thread thread([end = done.get_future()] { end.wait(); });
  const auto nameAfter = [&](std::string_view name) {
    Torv::OS::Thread::setName(thread, name);
    char kept[16] = {};
    EXPECT_EQ(pthread_getname_np(thread.native_handle(), kept, sizeof(kept)), 0);
    return std::string(kept);
  };
  EXPECT_EQ(nameAfter("ApplicationStateManagerCleanupThread"), "ApplicationStat");
  EXPECT_EQ(nameAfter("123456789012345"), "123456789012345");
  EXPECT_EQ(nameAfter(std::string_view("short-and-more").substr(0, 5)), "short");
  done.set_value();
  thread.join();
  Torv::OS::Thread::setName(thread, "no thread");
}

TEST(TelemetryTest, FindsTheVendorAtomInAReportsAtom) {
  android::os::statsd::Atom atom;
  EXPECT_EQ(parseAtom(atom).id, 0);
  EXPECT_EQ(parseAtom(atom).payload, "");
  ASSERT_TRUE(atom.ParseFromString("\x08\x01\xd2\xdb\x35\x02\x08\x05"));  // a stray number, then the atom
  EXPECT_EQ(parseAtom(atom).id, 110010);
  EXPECT_EQ(parseAtom(atom).payload, "\x08\x05");
  EXPECT_EQ(parseAtom(atom).payload.data(), atom.unknown_fields().field(1).length_delimited().data())
      << "it is copied";
  ASSERT_TRUE(atom.ParseFromString(std::string("\xd2\xdb\x35\x00", 4)));
  EXPECT_EQ(parseAtom(atom).id, 110010) << "an empty payload is one too";
}

TEST(SystemPropertyTest, GivesValuesOfAnyLength) {
  const test::TempDir directory;
  const test::ScopedEnv environment("TORV_RUNTIME_DIR", directory.path());
  EXPECT_EQ(Torv::Utils::getSystemProperty("ro.tags"), "");
  const std::string tags(64 << 10, 't');
  directory.write("properties", "ro.tags=" + tags + "\nempty=\n");
  EXPECT_EQ(Torv::Utils::getSystemProperty("ro.tags"), tags);
  EXPECT_EQ(Torv::Utils::getSystemProperty("empty"), "");
}

}  // namespace
