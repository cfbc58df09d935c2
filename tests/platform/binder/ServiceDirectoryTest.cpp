#include "ServiceDirectory.h"

#include <filesystem>
#include <fstream>

#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "LocalSocket.h"
#include "support/TempDir.h"

namespace {

using platform::binder::addressOf;
using platform::binder::contact;
using platform::binder::liveServices;
using platform::binder::publish;

class ServiceDirectoryTest : public testing::Test {
 protected:
  test::TempDir mRuntime;
  test::ScopedEnv mEnv{"TORV_RUNTIME_DIR", mRuntime.path()};
};

TEST_F(ServiceDirectoryTest, NamesBecomeFilesOfTheOneFolder) {
  EXPECT_EQ(addressOf("package.IService/default")->path(),
            mRuntime.path("binder/package.IService%2Fdefault"));
  EXPECT_EQ(addressOf("../..")->file, "%2E.%2F..");
  EXPECT_EQ(addressOf(".lock")->file, "%2Elock");
  for (const char* refused : {"", "a b", "a%2Fb", "\xc3\xa4"}) EXPECT_FALSE(addressOf(refused)) << refused;
  EXPECT_FALSE(addressOf(std::string("a\0b", 3)));
  EXPECT_TRUE(addressOf(std::string(platform::binder::kMaxSocketName, 'a')));
  EXPECT_FALSE(addressOf(std::string(platform::binder::kMaxSocketName + 1, 'a')));
}

TEST_F(ServiceDirectoryTest, TheLongestNameInADirectoryOfALongPathIsReached) {
  const std::string deep = mRuntime.path(std::string(150, 'd'));
  const test::ScopedEnv env("TORV_RUNTIME_DIR", deep);
  const auto address = addressOf(std::string(platform::binder::kMaxSocketName, 'a'));
  const auto publication = publish(*address);
  ASSERT_EQ(publication.status, android::OK) << publication.error;
  EXPECT_TRUE(contact(*address, /*wait=*/true)->socket.ok());
}

TEST_F(ServiceDirectoryTest, OnlyASocketThatNobodyServesIsReplaced) {
  const auto address = *addressOf("service");
  platform::binder::ServiceIdentity first;
  {
    const auto publication = publish(address);
    ASSERT_EQ(publication.status, android::OK);
    first = contact(address, true)->identity;
    const auto second = publish(address);
    EXPECT_EQ(second.status, android::ALREADY_EXISTS);
    EXPECT_NE(second.error.find(address.path()), std::string::npos);
    EXPECT_TRUE(contact(address, true)->identity == first);
  }
  EXPECT_FALSE(contact(address, true));
  const auto successor = publish(address);
  ASSERT_EQ(successor.status, android::OK);
  EXPECT_FALSE(contact(address, true)->identity == first);
}

TEST_F(ServiceDirectoryTest, AServerThatIsTooBusyToTakeConnectionsIsAlive) {
  const auto address = *addressOf("service");
  const auto publication = publish(address);
  ASSERT_EQ(listen(publication.listener.get(), 0), 0);
  std::vector<platform::binder::Contact> waiting;
  do waiting.push_back(std::move(*contact(address, /*wait=*/false)));
  while (waiting.back().socket.ok() && waiting.size() < 16);
  EXPECT_FALSE(waiting.back().socket.ok());
  EXPECT_EQ(publish(address).status, android::ALREADY_EXISTS);
}

TEST_F(ServiceDirectoryTest, ListsTheLiveOnesByName) {
  EXPECT_TRUE(liveServices().empty());
  const auto b = publish(*addressOf("b/2"));
  const auto a = publish(*addressOf(".a"));
  { const auto dead = publish(*addressOf("dead")); }
  std::ofstream(mRuntime.path("binder/text")) << "no socket";
  EXPECT_EQ(liveServices(), (std::vector<std::string>{".a", "b/2"}));
}

TEST_F(ServiceDirectoryTest, ADirectoryOfAnotherUserIsRefusedByName) {
  // Root may give a directory away; others find one of root's.
  const std::string theirs = getuid() == 0 ? mRuntime.path() : "/usr";
  if (getuid() == 0) {
    ASSERT_EQ(chown(theirs.c_str(), 12345, 12345), 0);
  }
  const test::ScopedEnv env("TORV_RUNTIME_DIR", theirs);
  const auto publication = publish(*addressOf("service"));
  EXPECT_EQ(publication.status, android::PERMISSION_DENIED);
  EXPECT_NE(publication.error.find(theirs), std::string::npos) << publication.error;
  EXPECT_FALSE(std::filesystem::exists(theirs + "/binder"));
}

}  // namespace
