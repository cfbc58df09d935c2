#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "runtime/Files.h"
#include "runtime/LogLevel.h"
#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"
#include "support/LogCapture.h"
#include "support/TempDir.h"

namespace platform {
namespace {

using android::base::unique_fd;
using testing::HasSubstr;
using testing::Optional;

TEST(RuntimeDirectoryTest, IsTheNamedOneElseTheUsersElseOneOfItsUid) {
  {
    const test::ScopedEnv named("TORV_RUNTIME_DIR", "/somewhere/else");
    EXPECT_EQ(runtimeDirectory(), "/somewhere/else");
  }
  if (std::filesystem::exists("/run/torv")) GTEST_SKIP() << "this machine has a directory for its service";
  const test::ScopedEnv unnamed("TORV_RUNTIME_DIR", "");
  {
    const test::ScopedEnv user("XDG_RUNTIME_DIR", "/run/user/5");
    EXPECT_EQ(runtimeDirectory(), "/run/user/5/torv");
  }
  const test::ScopedEnv user("XDG_RUNTIME_DIR", "");
  EXPECT_EQ(runtimeDirectory(), "/tmp/torv-" + std::to_string(getuid()));
}

TEST(RuntimeDirectoryTest, IsMadeWithItsParentsForAllToEnter) {
  const test::TempDir base;
  const std::string directory = base.path("a/b/runtime");
  const mode_t before = umask(0077);
  EXPECT_EQ(prepareRuntimeDirectory(directory), std::nullopt);
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(directory.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0755U);
  EXPECT_EQ(prepareRuntimeDirectory(directory), std::nullopt) << "as it is";
}

TEST(RuntimeDirectoryTest, RefusesWhatIsNotTheServicesOwnDirectory) {
  const test::TempDir base;
  const std::string file = base.write("file", "");
  EXPECT_THAT(prepareRuntimeDirectory(file), Optional(HasSubstr(file + " is not a directory")));
  EXPECT_THAT(prepareRuntimeDirectory(file + "/below"), Optional(HasSubstr(file + "/below")));
  std::filesystem::create_directory(base.path("real"));
  std::filesystem::create_symlink(base.path("real"), base.path("link"));
  EXPECT_THAT(prepareRuntimeDirectory(base.path("link")), Optional(HasSubstr("is not a directory")))
      << "a link in a directory of everybody's may be anyone's";
  EXPECT_THAT(holdServiceLock(file), Optional(HasSubstr(file)));
}

TEST(FilesTest, ReplacesAFileWholeAndCleansUpWhenItCannot) {
  const test::TempDir directory;
  const std::string path = directory.write("text", "old");
  EXPECT_EQ(replaceFile(path, "new"), std::nullopt);
  EXPECT_EQ(readFile(path).value_or(""), "new");
  std::filesystem::create_directory(directory.path("taken"));
  EXPECT_THAT(replaceFile(directory.path("taken"), "x"), Optional(HasSubstr(directory.path("taken"))));
  EXPECT_EQ(readFile(directory.path("none")), std::nullopt);
  size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory.path())) entries++;
  EXPECT_EQ(entries, 2U) << "a temporary file is left";
}

TEST(FilesTest, ALockIsHeldByOneAtATime) {
  const test::TempDir directory;
  std::atomic<int> counter = 0;  // updates get lost where two hold the lock
  const auto count = [&] {
    for (int i = 0; i < 200; i++) {
      const FileLock lock(directory.path("lock"));
      ASSERT_TRUE(lock.holds()) << lock.error();
      const int seen = counter;
      std::this_thread::yield();
      counter = seen + 1;
    }
  };
  std::thread other(count);
  count();
  other.join();
  EXPECT_EQ(counter, 400);
  const FileLock impossible(directory.path("none/lock"));
  EXPECT_FALSE(impossible.holds());
  EXPECT_THAT(impossible.error(), HasSubstr("none/lock: No such file"));
}

TEST(SocketPathTest, NamesSocketsInDirectoriesOfAnyDepth) {
  const test::TempDir base;
  for (const size_t length : {1U, 107U, 200U}) {
    const std::string directory = base.path(std::string(length, 'd'));
    std::filesystem::create_directory(directory);
    const unique_fd server(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const unique_fd client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const SocketPath path(directory, "socket");
    ASSERT_TRUE(path.ok()) << path.error();
    EXPECT_EQ(bind(server.get(), path.address(), path.size()), 0) << length;
    EXPECT_EQ(listen(server.get(), 1), 0);
    EXPECT_EQ(connect(client.get(), path.address(), path.size()), 0) << length;
    EXPECT_TRUE(std::filesystem::is_socket(directory + "/socket"));
  }
  EXPECT_THAT(SocketPath(base.path("none"), "s").error(), HasSubstr(base.path("none")));
  EXPECT_THAT(SocketPath(base.path(), std::string(200, 's')).error(), HasSubstr("too long"));
}

TEST(LogLevelTest, FollowsTheVariable) {
  test::LogCapture log;
  const auto loggableWith = [](const std::string& level, int priority) {
    const test::ScopedEnv variable("TORV_LOG_LEVEL", level);
    applyLogLevel();
    return __android_log_is_loggable(priority, nullptr, ANDROID_LOG_INFO) != 0;
  };
  EXPECT_FALSE(loggableWith("", ANDROID_LOG_DEBUG));
  EXPECT_TRUE(loggableWith("", ANDROID_LOG_INFO));
  EXPECT_TRUE(loggableWith("debug", ANDROID_LOG_DEBUG));
  EXPECT_FALSE(loggableWith("error", ANDROID_LOG_WARN));
  EXPECT_FALSE(loggableWith("silent", ANDROID_LOG_FATAL));
  EXPECT_FALSE(loggableWith("loud", ANDROID_LOG_DEBUG));
  EXPECT_THAT(log.texts(ANDROID_LOG_WARN), testing::ElementsAre(HasSubstr("TORV_LOG_LEVEL=loud")));
}

}  // namespace
}  // namespace platform
