#include "support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <android-base/logging.h>

// The tests that run on a device are built without exceptions, so a fault of the test's own surroundings ends
// it.
namespace test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "diag-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) PLOG(FATAL) << "cannot make " << pattern;
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
  if (!stream) PLOG(FATAL) << "cannot write " << file;
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
