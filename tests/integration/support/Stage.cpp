#include "fixture/Stage.h"

#include <filesystem>

#include "support/TempDir.h"

namespace fixture {
namespace {

namespace fs = std::filesystem;

const test::TempDir& stage() {
  static const test::TempDir dir;
  return dir;
}

}  // namespace

std::string buildDirectory() {
  return fs::read_symlink("/proc/self/exe").parent_path().string();
}

std::string staged(const std::string& program) {
  fs::permissions(stage().path(), fs::perms(0755));
  for (const std::string& name : {std::string("libossdk.pellux.so"), program}) {
    const fs::path copy = stage().path(name);
    if (fs::exists(copy)) continue;
    fs::copy_file(buildDirectory() + "/" + name, copy);
    fs::permissions(copy, fs::perms(0755));
  }
  return stage().path(program);
}

}  // namespace fixture
