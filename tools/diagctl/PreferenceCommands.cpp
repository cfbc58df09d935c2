#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <json/value.h>
#include "Calls.h"
#include "Commands.h"
#include "Output.h"
#include "Settings.h"
#include "base/Json.h"
#include "ossdkhost/PreferencesFile.h"
#include "runtime/RuntimeDirectory.h"

namespace diagctl {
namespace {

// The service's own class over the same file: its lock, its limits and its way of writing hold here, too.
platform::PreferencesFile& preferences() {
  return platform::PreferencesFile::of(platform::runtimeDirectory());
}

// from_chars checks the range and takes no sign, blank or rest that the type does not have.
template <typename Number>
std::optional<Json::Value> numberFrom(const std::string& text) {
  Number number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return Json::Value(number);
}

// Returns nullopt if the text is not of the type. Booleans are words: 1 and 0 would be taken for numbers
// elsewhere.
std::optional<Json::Value> valueFrom(const std::string& text, SettingType type) {
  switch (type) {
    case SettingType::Bool:
      if (text != "true" && text != "false") return std::nullopt;
      return Json::Value(text == "true");
    case SettingType::Uint:
      return numberFrom<uint32_t>(text);
    case SettingType::Int:
      return numberFrom<int32_t>(text);
    case SettingType::String:
    case SettingType::StringMap:
      break;
  }
  return Json::Value(text);
}

// The type that the readers of `key` ask for; for a key that is not known, the first that `text` fits.
SettingType typeFor(const std::string& key, const std::string& text) {
  for (const Setting& setting : knownSettings()) {
    if (setting.key == key) return setting.type;
  }
  // Int before Uint: a number that both can hold is more often asked for as an int.
  for (const SettingType type : {SettingType::Bool, SettingType::Int, SettingType::Uint}) {
    if (valueFrom(text, type)) return type;
  }
  return SettingType::String;
}

// Returns nullopt for a name that the command line does not know, the empty one too.
std::optional<SettingType> typeNamed(const std::string& name) {
  for (const SettingType type :
       {SettingType::String, SettingType::Bool, SettingType::Uint, SettingType::Int}) {
    if (name == nameOf(type)) return type;
  }
  return std::nullopt;
}

// What is stored is printed, not what holds: a setting of the configuration file hides it. The messages point
// to `config` for that.
int getPreference(const std::string& key, const Options& options) {
  const auto values = preferences().read();
  if (values == nullptr) return kRefused;  // the log has said why
  // Only the file is asked. Whether its value is the one that holds, the layers above it decide.
  const Json::Value* value = Torv::Base::findMember(*values, key);
  if (value == nullptr) {
    return refuse(key + " is not stored; diagctl pref list shows what is, diagctl config what holds.");
  }
  if (options.json) {
    printJson(*value);
  } else {
    printValue(plainText(*value));
  }
  return kDone;
}

// Runs `work` on the stored values under the lock that all writers take.
int change(const std::function<void(Json::Value&)>& work) {
  const auto stored = preferences().update(work);
  if (stored.ok()) return kDone;
  return refuse(
      stored.error().message() +
      ". Preferences are set by the owner of the runtime directory, once the service has made it, or by "
      "root.");
}

// The reader's type decides, because a value of another type would be passed over in silence when it is read.
int setPreference(const std::string& key, const std::string& text, const std::string& typeName) {
  const SettingType type = typeNamed(typeName).value_or(typeFor(key, text));
  if (type == SettingType::StringMap) {
    return refuse(key + " is a map, which only the service configuration can hold.");
  }
  const std::optional<Json::Value> value = valueFrom(text, type);
  if (!value) {
    refuse("'" + text + "' is no " + nameOf(type) + ", which " + key +
           " is; --type stores it under another type.");
    return kWrongUsage;
  }
  // The file's lock is taken for the whole change, so a service that reads meanwhile sees the old or the new.
  return change([&](Json::Value& values) { values[key] = *value; });
}

// A key that is not stored is a refusal: a typing error would look like success.
int unsetPreference(const std::string& key) {
  bool stored = false;
  const int exitCode = change([&](Json::Value& values) { stored = values.removeMember(key, nullptr); });
  if (exitCode != kDone || stored) return exitCode;
  return refuse(key + " is not stored; diagctl pref list shows what is.");
}

// Names and values are whatever the file holds, and others may write it: both are made printable.
int listPreferences(const Options& options) {
  const auto values = preferences().read();
  if (values == nullptr) return kRefused;
  if (options.json) {
    printJson(*values);
    return kDone;
  }
  Rows rows;
  for (auto value = values->begin(); value != values->end(); ++value) {
    rows.emplace_back(printable(value.name()), printable(plainText(*value)));
  }
  fputs(table(rows, 0).c_str(), stdout);
  return kDone;
}

}  // namespace

// These work on the file, so the service need not run. It reads the file anew at each look-up.
void addPreferenceCommands(CLI::App& app, const Options& options, int& exitCode) {
  CLI::App* pref = app.add_subcommand("pref", "Stored preferences, which the service reads anew each time");
  pref->require_subcommand(1);

  struct Arguments {
    std::string key;
    std::string value;
    std::string type;
  };
  const auto arguments = std::make_shared<Arguments>();

  CLI::App* get = pref->add_subcommand("get", "Print a stored value");
  get->add_option("KEY", arguments->key)->required();
  get->callback([arguments, &options, &exitCode] { exitCode = getPreference(arguments->key, options); });

  CLI::App* set = pref->add_subcommand("set", "Store a value under the type that its readers ask for");
  set->add_option("KEY", arguments->key)->required();
  set->add_option("VALUE", arguments->value)->required();
  set->add_option("--type", arguments->type, "Store it as this instead")
      ->check(CLI::IsMember({"string", "bool", "uint", "int"}));
  set->callback([arguments, &exitCode] {
    exitCode = setPreference(arguments->key, arguments->value, arguments->type);
  });

  CLI::App* unset = pref->add_subcommand("unset", "Remove a stored value, so that the default holds again");
  unset->add_option("KEY", arguments->key)->required();
  unset->callback([arguments, &exitCode] { exitCode = unsetPreference(arguments->key); });

  CLI::App* list = pref->add_subcommand("list", "Print all stored values");
  list->callback([&options, &exitCode] { exitCode = listPreferences(options); });
}

}  // namespace diagctl
