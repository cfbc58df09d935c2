#include "properties/PropertyFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>

#include <android/log.h>
#include <sys/system_properties.h>

#include "base/Files.h"
#include "base/Mutex.h"
#include "runtime/Files.h"
#include "runtime/RuntimeDirectory.h"

namespace platform {

using android::base::Error;
using android::base::Result;

namespace {

constexpr char kLogTag[] = "properties";
constexpr size_t kMaxFileBytes = size_t{1} << 20;  // every look-up reads the file

std::string propertyPath() {
  return runtimeDirectory() + "/properties";
}

bool isReadOnly(std::string_view name) {
  return name.substr(0, 3) == "ro.";
}

// A table: every read looks at every name of the file.
constexpr std::array<bool, 256> kNameCharacters = [] {
  std::array<bool, 256> legal{};
  for (const char c :
       std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._@:-")) {
    legal[static_cast<unsigned char>(c)] = true;
  }
  return legal;
}();

bool isLegalName(std::string_view name) {
  return !name.empty() && name.front() != '.' && name.back() != '.' &&
         name.find("..") == std::string_view::npos && std::all_of(name.begin(), name.end(), [](char c) {
           return kNameCharacters[static_cast<unsigned char>(c)];
         });
}

bool isValidUtf8(const std::string& text) {
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = uselocale(utf8);
  const bool valid = mbstowcs(nullptr, text.c_str(), 0) != static_cast<size_t>(-1);
  uselocale(before);
  return valid;
}

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

struct LoggedMessages {
  Torv::Base::Mutex mutex;
  std::set<size_t> hashes GUARDED_BY(mutex);
};

// Logs each message once, because the file is read at every query. After 64 different ones the process logs
// no more, so that a file that is rewritten with ever new faults does not fill the memory.
void logOnce(const std::string& message) {
  constexpr size_t kMaxMessages = 64;
  static auto& logged = *new LoggedMessages();
  {
    const Torv::Base::LockGuard lock(logged.mutex);
    const bool isFull = logged.hashes.size() >= kMaxMessages;
    if (isFull || !logged.hashes.insert(std::hash<std::string>()(message)).second) return;
  }
  __android_log_print(ANDROID_LOG_WARN, kLogTag, "%s", message.c_str());
}

void logIgnored(std::string_view line, const char* reason) {
  constexpr size_t kShown = 80;
  logOnce(propertyPath() + ": ignoring the line \"" + std::string(line.substr(0, kShown)) +
          (line.size() > kShown ? "...\": " : "\": ") + reason);
}

// Calls visit(line, offset of the line) for each line, without its newline.
template <typename Visit>
void forEachLine(std::string_view text, const Visit& visit) {
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    visit(text.substr(start, end - start), start);
    start = end + 1;
  }
}

// Calls visit(property, its whole line, offset of the line) for each property, in the order of the file.
template <typename Visit>
void forEachProperty(std::string_view text, const Visit& visit) {
  forEachLine(text, [&](std::string_view line, size_t offset) {
    const PropertyLine property = parsePropertyLine(line);
    if (property.kind == PropertyLine::Kind::Ignored) logIgnored(line, property.reason);
    if (property.kind == PropertyLine::Kind::Property) visit(property, line, offset);
  });
}

Result<void> checkAssignment(std::string_view name, std::string_view value) {
  if (!isLegalName(name)) {
    return Error()
           << '"' << name
           << "\" is no property name: letters, digits and . _ @ : - without a dot at either end or two "
              "in a row";
  }
  if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) {
    return Error() << "the value of " << name
                   << " holds a line break or NUL, which the property file cannot keep";
  }
  if (!isReadOnly(name) && value.size() >= PROP_VALUE_MAX) {
    return Error() << "the value of " << name << " has " << value.size()
                   << " bytes; only read-only properties (ro.*) may have more than 91";
  }
  if (!isValidUtf8(std::string(value))) return Error() << "the value of " << name << " is not valid UTF-8";
  return {};
}

// A missing file is an empty property area.
Result<std::string> readText(const std::string& path) {
  Result<std::string> text = Torv::Base::readFile(path, kMaxFileBytes);
  if (!text.ok() && text.error().code() == ENOENT) return std::string();
  return text;
}

}  // namespace

PropertyLine parsePropertyLine(std::string_view line) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  const std::string_view content = trimmed(line);
  if (content.empty() || content.front() == '#') return {};
  PropertyLine result;
  result.kind = PropertyLine::Kind::Ignored;
  const size_t equals = line.find('=');
  if (equals == std::string_view::npos) {
    result.reason = "it has no \"=\"";
    return result;
  }
  result.name = trimmed(line.substr(0, equals));
  result.value = line.substr(equals + 1);
  if (!isLegalName(result.name)) {
    result.reason = "the name is not legal";
  } else if (result.value.find('\0') != std::string_view::npos) {
    result.reason = "the value holds a NUL";
  } else if (result.value.size() >= PROP_VALUE_MAX && !isReadOnly(result.name)) {
    result.reason = "the value has more than 91 bytes";
  } else {
    result.kind = PropertyLine::Kind::Property;
  }
  return result;
}

std::optional<std::string_view> findProperty(std::string_view text, std::string_view name) {
  std::optional<std::string_view> found;
  forEachProperty(text, [&](const PropertyLine& property, std::string_view, size_t) {
    if (property.name == name) found = property.value;
  });
  return found;
}

PropertyMap parseProperties(std::string_view text) {
  PropertyMap all;
  forEachProperty(text, [&](const PropertyLine& property, std::string_view, size_t) {
    all.insert_or_assign(std::string(property.name), std::string(property.value));
  });
  return all;
}

std::string withProperty(std::string_view text, std::string_view name, std::string_view value) {
  const std::string line = std::string(name) + "=" + std::string(value);
  std::optional<size_t> start;
  size_t length = 0;
  forEachProperty(text, [&](const PropertyLine& property, std::string_view whole, size_t offset) {
    if (property.name != name) return;
    start = offset;
    length = whole.size();
  });
  std::string changed(text);
  if (start) return changed.replace(*start, length, line);
  if (!changed.empty() && changed.back() != '\n') changed += '\n';
  return changed + line + "\n";
}

std::string withoutProperty(std::string_view text, std::string_view name) {
  std::string rest;
  size_t kept = 0;
  forEachProperty(text, [&](const PropertyLine& property, std::string_view whole, size_t offset) {
    if (property.name != name) return;
    rest += text.substr(kept, offset - kept);
    kept = std::min(offset + whole.size() + 1, text.size());
  });
  return rest.append(text.substr(kept));
}

std::string readPropertyFile() {
  Result<std::string> text = readText(propertyPath());
  if (text.ok()) return *std::move(text);
  logOnce(text.error().message());
  return {};
}

Result<void> setProperty(std::string_view name, std::string_view value) {
  if (auto legal = checkAssignment(name, value); !legal.ok()) return legal;
  const std::string path = propertyPath();
  auto lock = lockFile(path + ".lock");
  if (!lock.ok()) return lock.error();
  Result<std::string> text = readText(path);
  if (!text.ok()) return text.error();
  if (isReadOnly(name) && findProperty(*text, name)) {
    return Error() << name << " is read-only and has a value already";
  }
  return replaceFile(path, withProperty(*text, name, value));
}

Result<void> unsetProperty(std::string_view name) {
  const std::string path = propertyPath();
  auto lock = lockFile(path + ".lock");
  if (!lock.ok()) return lock.error();
  Result<std::string> text = readText(path);
  if (!text.ok()) return text.error();
  if (!findProperty(*text, name)) return Error() << name << " is not set";
  if (isReadOnly(name)) return Error() << name << " is read-only";
  return replaceFile(path, withoutProperty(*text, name));
}

}  // namespace platform
