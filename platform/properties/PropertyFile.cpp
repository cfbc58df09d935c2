#include "properties/PropertyFile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <clocale>
#include <cstdlib>
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

constexpr size_t kMaxFileBytes = size_t{1} << 20;  // every look-up reads the file

// One line of the file. `value` is absent if the line has no "=".
struct Line {
  std::string_view text;  // the whole line, without its newline
  std::string_view name;
  std::optional<std::string_view> value;
};

struct LoggedMessages {
  Torv::Base::Mutex mutex;
  std::set<size_t> hashes GUARDED_BY(mutex);
};

std::string propertyPath() {
  return runtimeDirectory() + "/properties";
}

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
  __android_log_print(ANDROID_LOG_WARN, "properties", "%s", message.c_str());
}

bool isReadOnly(std::string_view name) {
  return name.substr(0, 3) == "ro.";
}

bool isLegalName(std::string_view name) {
  constexpr std::string_view kLegal = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._@:-";
  return !name.empty() && name.front() != '.' && name.back() != '.' &&
         name.find("..") == std::string_view::npos &&
         name.find_first_not_of(kLegal) == std::string_view::npos;
}

// Returns the rule that forbids a property of this name and value, or null if none does.
const char* brokenRule(std::string_view name, std::string_view value) {
  if (!isLegalName(name)) {
    return "a name has letters, digits and . _ @ : - without a dot at either end or two in a row";
  }
  if (value.find('\0') != std::string_view::npos) return "a value holds no NUL";
  if (value.size() >= PROP_VALUE_MAX && !isReadOnly(name)) {
    return "only the value of a read-only property (ro.*) may have more than 91 bytes";
  }
  return nullptr;
}

// Returns why the line sets no property, or null if it sets one.
const char* problemOf(const Line& line) {
  return line.value ? brokenRule(line.name, *line.value) : "it has no \"=\"";
}

// Loops, because this runs for every line at every look-up, and the library's searches cost more.
std::string_view trimmed(std::string_view text) {
  const auto isSpace = [](char c) { return c == ' ' || c == '\t'; };
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

// Decides nothing: problemOf() says whether the line sets a property, for the few lines that matter to a
// look-up.
Line parseLine(std::string_view text) {
  std::string_view content = text;
  if (!content.empty() && content.back() == '\r') content.remove_suffix(1);
  const size_t equals = content.find('=');
  Line line{text, trimmed(content.substr(0, equals)), std::nullopt};
  if (equals != std::string_view::npos) line.value = content.substr(equals + 1);
  return line;
}

template <typename Visit>
void forEachLine(std::string_view text, const Visit& visit) {
  while (!text.empty()) {
    const Line line = parseLine(text.substr(0, text.find('\n')));
    visit(line);
    text.remove_prefix(std::min(line.text.size() + 1, text.size()));
  }
}

// Returns the line that decides on the property: the last of that name.
std::optional<Line> lineOf(std::string_view text, std::string_view name) {
  std::optional<Line> last;
  forEachLine(text, [&](const Line& line) {
    if (line.name == name && problemOf(line) == nullptr) last = line;
  });
  return last;
}

// Looks at the lines only if the last text was another one, because every look-up comes here.
void logIgnoredLines(const std::string& path, const std::string& text) {
  static std::atomic<size_t> lastText{0};
  const size_t hash = std::hash<std::string>()(text);
  if (lastText.exchange(hash) == hash) return;
  forEachLine(text, [&](const Line& line) {
    const bool isBlank = line.name.empty() && !line.value;
    const char* problem = problemOf(line);
    if (problem == nullptr || isBlank || line.name.substr(0, 1) == "#") return;
    const std::string_view begin = line.text.substr(0, 80);
    logOnce(path + ": ignoring the line \"" + std::string(begin) + "\": " + problem);
  });
}

bool isValidUtf8(const std::string& text) {
  static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  const locale_t before = uselocale(utf8);
  const bool valid = mbstowcs(nullptr, text.c_str(), 0) != static_cast<size_t>(-1);
  uselocale(before);
  return valid;
}

// A missing file is an empty property area.
Result<std::string> readText(const std::string& path) {
  Result<std::string> text = Torv::Base::readFile(path, kMaxFileBytes);
  if (!text.ok() && text.error().code() == ENOENT) return std::string();
  if (text.ok()) logIgnoredLines(path, *text);
  return text;
}

// Replaces the file's text by what `change` makes of it, while no other process can.
Result<void> changeFile(const std::function<Result<std::string>(const std::string&)>& change) {
  const std::string path = propertyPath();
  auto lock = lockFile(path + ".lock");
  if (!lock.ok()) return lock.error();
  Result<std::string> text = readText(path);
  if (!text.ok()) return text.error();
  Result<std::string> changed = change(*text);
  if (!changed.ok()) return changed.error();
  return replaceFile(path, *changed);
}

}  // namespace

std::optional<std::string_view> findProperty(std::string_view text, std::string_view name) {
  const std::optional<Line> line = lineOf(text, name);
  return line ? line->value : std::nullopt;
}

PropertyMap parseProperties(std::string_view text) {
  PropertyMap all;
  forEachLine(text, [&](const Line& line) {
    if (problemOf(line) == nullptr) all.insert_or_assign(std::string(line.name), std::string(*line.value));
  });
  return all;
}

std::string withProperty(std::string_view text, std::string_view name, std::string_view value) {
  const std::string assignment = std::string(name).append("=").append(value);
  std::string changed(text);
  if (const std::optional<Line> old = lineOf(text, name)) {
    return changed.replace(static_cast<size_t>(old->text.data() - text.data()), old->text.size(), assignment);
  }
  if (!changed.empty() && changed.back() != '\n') changed += '\n';
  return changed.append(assignment).append("\n");
}

std::string readPropertyFile() {
  Result<std::string> text = readText(propertyPath());
  if (text.ok()) return *std::move(text);
  logOnce(text.error().message());
  return {};
}

Result<void> setProperty(std::string_view name, std::string_view value) {
  if (const char* rule = brokenRule(name, value)) return Error() << "cannot set " << name << ": " << rule;
  if (value.find_first_of("\r\n") != std::string_view::npos || !isValidUtf8(std::string(value))) {
    return Error() << "cannot set " << name << ": a value is UTF-8 without a line break";
  }
  return changeFile([&](const std::string& text) -> Result<std::string> {
    if (isReadOnly(name) && findProperty(text, name)) {
      return Error() << name << " is read-only and has a value already";
    }
    return withProperty(text, name, value);
  });
}

Result<void> unsetProperty(std::string_view name) {
  return changeFile([&](const std::string& text) -> Result<std::string> {
    if (!findProperty(text, name)) return Error() << name << " is not set";
    if (isReadOnly(name)) return Error() << name << " is read-only";
    std::string rest;
    forEachLine(text, [&](const Line& line) {
      const bool isRemoved = line.name == name && problemOf(line) == nullptr;
      if (!isRemoved) rest.append(line.text).append("\n");
    });
    return rest;
  });
}

}  // namespace platform
