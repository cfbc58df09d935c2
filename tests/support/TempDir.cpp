#include "support/TempDir.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace test {
namespace {

// The tests that run on a device are built without exceptions, so a fault of the test's own surroundings ends
// it.
[[noreturn]] void fail(const char* what, const std::string& path) {
  fprintf(stderr, "%s %s: %s\n", what, path.c_str(), strerror(errno));
  abort();
}

}  // namespace

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "diag-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) fail("cannot make", pattern);
  mPath = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;  // a test may have taken away its own right to remove
  std::filesystem::remove_all(mPath, ignored);
}

std::string TempDir::write(std::string_view name, std::string_view contents) const {
  const std::filesystem::path file = path(name);
  std::filesystem::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << contents << std::flush;
  if (!stream) fail("cannot write", file.string());
  return file.string();
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : mName(name) {
  if (const char* old = getenv(name)) mOld = old;
  setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
  unsetenv(mName);
  if (mOld) setenv(mName, mOld->c_str(), 1);
}

}  // namespace test
