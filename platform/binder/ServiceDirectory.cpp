#include "ServiceDirectory.h"

#include <algorithm>
#include <filesystem>

#include <android-base/strings.h>

#include "runtime/RuntimeDirectory.h"
#include "runtime/SocketPath.h"

namespace platform::binder {
namespace {

using android::base::Error;
using android::base::StringReplace;

constexpr size_t kMaxName = 127;
constexpr char kNameCharacters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_./-";
constexpr char kSlash[] = "%2F";
constexpr char kDot[] = "%2E";

std::string directoryOfServices() {
  return runtimeDirectory() + "/binder";
}

}  // namespace

android::base::Result<ServiceAddress> addressOf(const std::string& name) {
  if (name.empty() || name.size() > kMaxName ||
      name.find_first_not_of(kNameCharacters) != std::string::npos) {
    return Error() << "a service's name is 1 to " << kMaxName << " letters, digits and _./-";
  }
  std::string file = StringReplace(name, "/", kSlash, /*all=*/true);
  if (file.front() == '.') file.replace(0, 1, kDot);
  if (file.size() > SocketPath::kMaxName) return Error() << "a service's name has to fit a socket's name";
  return ServiceAddress{directoryOfServices(), std::move(file)};
}

std::vector<std::string> publishedNames() {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directoryOfServices(), error), end; !error && entry != end;
       entry.increment(error)) {
    if (!entry->is_socket(error)) continue;
    const std::string file = StringReplace(entry->path().filename().string(), kSlash, "/", /*all=*/true);
    names.push_back(StringReplace(file, kDot, ".", /*all=*/false));
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace platform::binder
