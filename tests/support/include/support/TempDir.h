#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace test {

// A new directory for one test, removed with its contents at the end of the scope.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir& operator=(TempDir&&) = delete;  // nor any other copy or move

  const std::string& path() const { return mPath; }
  std::string path(std::string_view name) const { return mPath + "/" + std::string(name); }
  // Writes a file below the directory and creates missing directories. Returns the file's path. Ends the
  // process if it cannot.
  std::string write(std::string_view name, std::string_view contents) const;

 private:
  std::string mPath;
};

// Returns the file's contents, or "" if it cannot be read.
std::string readFile(const std::string& path);

// Sets an environment variable for a scope and puts the old value back.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value);
  ~ScopedEnv();
  ScopedEnv& operator=(ScopedEnv&&) = delete;  // nor any other copy or move

 private:
  const char* mName;
  std::optional<std::string> mOld;
};

// A directory for one test that is the device root and the runtime directory of this process.
class HostDir : public TempDir {
 public:
  HostDir() {}  // not defaulted, so that a const one may be made without an initialiser

 private:
  const ScopedEnv mDeviceRoot{"TORV_DEVICE_ROOT", path()};
  const ScopedEnv mRuntimeDir{"TORV_RUNTIME_DIR", path()};
};

}  // namespace test
