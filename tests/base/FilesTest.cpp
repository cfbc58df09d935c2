#include "base/Files.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/Result.h"
#include "support/TempDir.h"

namespace Torv::Base {
namespace {

TEST(FilesTest, aFileIsReadWholeUpToTheLimit) {
  const test::TempDir dir;
  const std::string text(200000, 'x');  // more than one read takes
  const std::string path = dir.write("file", text);
  EXPECT_EQ(readFile(path, text.size()).value(), text);
  EXPECT_EQ(test::errorOf(readFile(path, text.size() - 1)),
            path + ": more than 199999 bytes: File too large");
  EXPECT_FALSE(readFile("/proc/self/status", 1 << 20).value().empty());  // its size is given as 0
}

TEST(FilesTest, anythingElseIsRefusedByNameWithoutWaitingOrReadingIt) {
  const test::TempDir dir;
  ASSERT_EQ(mkfifo(dir.path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(truncate(dir.write("sparse", "").c_str(), off_t{1} << 40), 0);
  const std::pair<std::string, int> cases[] = {{dir.path("fifo"), EINVAL},
                                               {dir.path(), EINVAL},
                                               {"/dev/zero", EINVAL},
                                               {dir.path("none"), ENOENT},
                                               {dir.path("sparse"), EFBIG}};
  for (const auto& [path, code] : cases) {
    const auto text = readFile(path, 1000);
    ASSERT_FALSE(text.ok()) << path;
    EXPECT_EQ(text.error().code(), code) << path;
    EXPECT_NE(text.error().message().find(path), std::string::npos) << text.error();
  }
}

}  // namespace
}  // namespace Torv::Base
