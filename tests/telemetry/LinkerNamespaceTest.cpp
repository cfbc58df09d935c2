// The road that a device takes to the module: the program exports what a device's dynamic linker does.
#include <android/dlext.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "sdkloader/OsSdkLoader.h"
#include "support/LogCapture.h"

namespace {

struct {
  bool offersNamespace, opens;
  std::string askedNamespace, openedFile;
  int mode;
  android_dlextinfo info;
} gLinker;
char gNamespace;  // stands for the namespace; only its address counts

}  // namespace

extern "C" android_namespace_t* __loader_android_get_exported_namespace(const char* name) {
  gLinker.askedNamespace = name;
  return gLinker.offersNamespace ? reinterpret_cast<android_namespace_t*>(&gNamespace) : nullptr;
}

void* android_dlopen_ext(const char* file, int mode, const android_dlextinfo* info) {
  gLinker.openedFile = file;
  gLinker.mode = mode;
  gLinker.info = *info;
  return gLinker.opens ? dlopen(file, mode) : nullptr;
}

namespace {

Torv::OS::OsSdkSymbol gEntryPoint("createTelemetryHandler");
Torv::OS::OsSdkSymbol gMissing("noSuchEntryPoint");

// The module is opened once a process, so each case runs in one of its own and ends with what it found.
[[noreturn]] void useModule(bool offersNamespace, bool opens) {
  const test::LogCapture log;
  gLinker.offersNamespace = offersNamespace;
  gLinker.opens = opens;
  EXPECT_NE(gEntryPoint.address(), nullptr);
  EXPECT_EQ(gMissing.address(), nullptr);
  EXPECT_EQ(gLinker.askedNamespace, "default");
  EXPECT_EQ(gLinker.openedFile, offersNamespace ? "libossdk.pellux.so" : "");
  EXPECT_EQ(gLinker.mode, offersNamespace ? RTLD_LAZY : 0);
  EXPECT_EQ(gLinker.info.flags, offersNamespace ? uint64_t{ANDROID_DLEXT_USE_NAMESPACE} : 0);
  void* const given = offersNamespace ? &gNamespace : nullptr;
  EXPECT_EQ(gLinker.info.library_namespace, given);
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
