#include "base/Files.h"

#include <cerrno>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/TempDir.h"

namespace Torv::Base {
namespace {

TEST(FilesTest, aFileIsReadWholeUpToTheLimit) {
  const test::TempDir dir;
  const std::string text(200000, 'x');  // more than one read takes
  const std::string path = dir.write("file", text);
  EXPECT_EQ(readFile(path, text.size()).value(), text);
  const auto tooLarge = readFile(path, text.size() - 1);
  ASSERT_FALSE(tooLarge.ok());
  EXPECT_EQ(tooLarge.error().code(), EFBIG);
  EXPECT_EQ(tooLarge.error().message(), path + ": more than 199999 bytes: File too large");
  EXPECT_FALSE(readFile("/proc/self/status", 1 << 20).value().empty());  // its size is given as 0
}

TEST(FilesTest, whatIsNoRegularFileIsRefusedWithoutWaiting) {
  const test::TempDir dir;
  const std::string fifo = dir.path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {fifo, dir.path(), std::string("/dev/zero")}) {
    const auto text = readFile(path, 100);
    ASSERT_FALSE(text.ok()) << path;
    EXPECT_EQ(text.error().code(), EINVAL);
    EXPECT_NE(text.error().message().find(path), std::string::npos) << text.error();
  }
  const auto missing = readFile(dir.path() + "/none", 100);
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().code(), ENOENT);
}

TEST(FilesTest, aSparseFileCostsOnlyTheLimit) {
  const test::TempDir dir;
  const std::string path = dir.write("sparse", "");
  ASSERT_EQ(truncate(path.c_str(), off_t{1} << 40), 0);
  EXPECT_EQ(readFile(path, 1000).error().code(), EFBIG);
}

}  // namespace
}  // namespace Torv::Base
