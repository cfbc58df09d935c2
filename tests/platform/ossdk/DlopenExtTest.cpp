#include <android/dlext.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

TEST(DlopenExtTest, takesANamespaceAndNoOtherFlag) {
  int here = 0;
  android_dlextinfo info{};
  const auto open = [&info] { return android_dlopen_ext(OSSDK_MODULE, RTLD_LAZY, &info); };
  EXPECT_NE(android_dlopen_ext(OSSDK_MODULE, RTLD_LAZY, nullptr), nullptr);
  EXPECT_NE(open(), nullptr);
  info.flags = ANDROID_DLEXT_USE_NAMESPACE;
  EXPECT_EQ(open(), nullptr);
  info.library_namespace = reinterpret_cast<android_namespace_t*>(&here);
  EXPECT_NE(open(), nullptr);
  EXPECT_EQ(android_dlopen_ext("no such module", RTLD_LAZY, &info), nullptr);
  for (const uint64_t flag : {0x1ULL, 0x10ULL, 0x80ULL, 0x400ULL, 1ULL << 40}) {
    info.flags = ANDROID_DLEXT_USE_NAMESPACE | flag;
    EXPECT_EQ(open(), nullptr) << flag;
  }
}

}  // namespace
