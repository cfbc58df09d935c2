// The road that a device takes to the module: the program exports what a device's dynamic linker does.
#include <android/dlext.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "sdkloader/OsSdkLoader.h"
#include "support/LogCapture.h"

static bool gOffersNamespace = false, gOpens = false;
static std::string gAsked;  // of the linker, in order
static char gNamespace;     // stands for the namespace; only its address counts

extern "C" android_namespace_t* __loader_android_get_exported_namespace(const char* name) {
  gAsked += name;
  return gOffersNamespace ? reinterpret_cast<android_namespace_t*>(&gNamespace) : nullptr;
}

void* android_dlopen_ext(const char* file, int mode, const android_dlextinfo* info) {
  const void* const given = info->library_namespace;
  EXPECT_EQ(given, &gNamespace);
  EXPECT_EQ(info->flags, uint64_t{ANDROID_DLEXT_USE_NAMESPACE});
  EXPECT_EQ(mode, RTLD_LAZY);
  gAsked += std::string(" ") + file;
  return gOpens ? dlopen(file, mode) : nullptr;
}

namespace {

Torv::OS::OsSdkSymbol gEntryPoint("createTelemetryHandler");
Torv::OS::OsSdkSymbol gMissing("noSuchEntryPoint");

// The module is opened once a process, so each case runs in one of its own and ends with what it found.
[[noreturn]] void useModule(bool offersNamespace, bool opens) {
  const test::LogCapture log;
  gOffersNamespace = offersNamespace;
  gOpens = opens;
  EXPECT_NE(gEntryPoint.address(), nullptr);
  EXPECT_EQ(gMissing.address(), nullptr);
  EXPECT_EQ(gAsked, offersNamespace ? "default libossdk.pellux.so" : "default");
  EXPECT_TRUE(log.has(ANDROID_LOG_DEBUG, "OsSdkLoader", "OSSDK loading module 'libossdk.pellux.so'"));
  EXPECT_EQ(log.lines().size(), 1u);
  exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(LinkerNamespaceTest, opensTheModuleInTheDefaultNamespaceOrElsePlainly) {
  EXPECT_EXIT(useModule(true, true), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(useModule(true, false), testing::ExitedWithCode(0), "") << "not in the namespace";
  EXPECT_EXIT(useModule(false, true), testing::ExitedWithCode(0), "") << "no such namespace";
}

}  // namespace
