#include "fixture/Stage.h"

#include <filesystem>
#include <stdexcept>

#include <unistd.h>

#include "fixture/Process.h"
#include "support/TempDir.h"

namespace fixture {
namespace {

namespace fs = std::filesystem;

const test::TempDir& stage() {
  static const test::TempDir dir;
  return dir;
}

void copyToStage(const std::string& name) {
  const fs::path copy = stage().path(name);
  if (fs::exists(copy)) return;
  fs::copy_file(buildDirectory() + "/" + name, copy);
  fs::permissions(copy, fs::perms(0755));
}

void chownTo(uid_t uid, const fs::path& path) {
  if (lchown(path.c_str(), uid, uid) != 0) throw std::runtime_error("lchown " + path.string());
}

}  // namespace

std::string buildDirectory() {
  return fs::read_symlink("/proc/self/exe").parent_path().string();
}

std::string staged(const std::string& program) {
  fs::permissions(stage().path(), fs::perms(0755));
  copyToStage("libossdk.pellux.so");
  copyToStage(program);
  return stage().path(program);
}

void giveToService(const std::string& directory) {
  if (getuid() != 0) return;
  chownTo(serviceUid(), directory);
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
    chownTo(serviceUid(), entry.path());
  }
}

}  // namespace fixture
