#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "runtime/Files.h"
#include "runtime/RuntimeDirectory.h"
#include "support/TempDir.h"

namespace platform {
namespace {

using testing::HasSubstr;
using testing::Optional;

TEST(RuntimeDirectoryTest, IsTheNamedOneElseTheUsersElseOneOfItsUid) {
  const auto directoryWith = [](const char* named, const char* users) {
    const test::ScopedEnv first("TORV_RUNTIME_DIR", named);
    const test::ScopedEnv second("XDG_RUNTIME_DIR", users);
    return runtimeDirectory();
  };
  EXPECT_EQ(directoryWith("/somewhere/else", "/run/user/5"), "/somewhere/else");
  if (std::filesystem::exists("/run/torv")) GTEST_SKIP() << "this machine has a directory for its service";
  EXPECT_EQ(directoryWith("", "/run/user/5"), "/run/user/5/torv");
  EXPECT_EQ(directoryWith("", ""), "/tmp/torv-" + std::to_string(getuid()));
}

TEST(RuntimeDirectoryTest, IsMadeWithItsParentsButNotWhereSomethingElseIs) {
  const test::TempDir base;
  for (int i = 0; i < 2; i++) EXPECT_EQ(prepareRuntimeDirectory(base.path("a/b/c")), std::nullopt);
  const std::string file = base.write("file", "");
  EXPECT_THAT(prepareRuntimeDirectory(file), Optional(HasSubstr(file + " is not a directory")));
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
  EXPECT_THAT(FileLock(directory.path("none/lock")).error(), HasSubstr("none/lock: No such file"));
  const std::filesystem::directory_iterator entries(directory.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 2) << "a temporary file is left";
}

}  // namespace
}  // namespace platform
