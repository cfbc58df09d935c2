#include "ServiceAddress.h"

#include <fstream>

#include <sys/socket.h>

#include <gtest/gtest.h>

#include "runtime/SocketPath.h"
#include "support/TempDir.h"

namespace platform::binder {
namespace {

class ServiceAddressTest : public testing::Test {
 protected:
  test::HostDir mRuntime;
};

TEST_F(ServiceAddressTest, namesBecomeFilesOfTheOneFolder) {
  EXPECT_EQ(addressOf("package.IService/default")->path(),
            mRuntime.path("binder/package.IService%2Fdefault"));
  EXPECT_EQ(addressOf("../..")->file, "%2E.%2F..");
  for (const char* refused : {"", "a b", "a%2Fb", "\xc3\xa4"})
    EXPECT_FALSE(addressOf(refused).ok()) << refused;
  EXPECT_FALSE(addressOf(std::string("a\0b", 3)).ok());
  EXPECT_TRUE(addressOf(std::string(SocketPath::kMaxName, 'a')).ok());
  EXPECT_FALSE(addressOf(std::string(SocketPath::kMaxName + 1, 'a')).ok());
}

TEST_F(ServiceAddressTest, theLongestNameInADirectoryOfALongPathIsReached) {
  const std::string deep = mRuntime.path(std::string(150, 'd'));
  const test::ScopedEnv env("TORV_RUNTIME_DIR", deep);
  const auto address = addressOf(std::string(SocketPath::kMaxName, 'a'));
  const auto listener = listenAt(*address);
  ASSERT_TRUE(listener.ok()) << listener.error();
  EXPECT_TRUE(connectTo(*address).ok());
}

TEST_F(ServiceAddressTest, aServerThatDoesNotAcceptIsBusyAndNotDead) {
  const auto address = *addressOf("service");
  const auto listener = listenAt(address);
  ASSERT_EQ(listen(listener->get(), 0), 0);
  const auto first = connectTo(address);
  EXPECT_TRUE(first.ok());
  const auto second = connectTo(address);
  ASSERT_FALSE(second.ok());
  EXPECT_EQ(second.error().code(), EAGAIN);
}

TEST_F(ServiceAddressTest, namesAreListedInOrder) {
  EXPECT_TRUE(publishedNames().empty());
  const auto b = listenAt(*addressOf("b/2"));
  const auto a = listenAt(*addressOf(".a"));
  std::ofstream(mRuntime.path("binder/text")) << "no socket";
  EXPECT_EQ(publishedNames(), (std::vector<std::string>{".a", "b/2"}));
}

}  // namespace
}  // namespace platform::binder
