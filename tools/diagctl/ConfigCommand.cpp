#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "Calls.h"
#include "Commands.h"
#include "Output.h"
#include "Settings.h"
#include "configuration/ConfigurationChain.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"
#include "configuration/PreferencesConfiguration.h"

namespace diagctl {
namespace {

using Torv::DefaultConfiguration;
using Torv::IConfiguration;

// Stands below one layer and notes whether a look-up was handed on to it.
// Layers do not say who answered. They hand on what they do not have, and that can be seen from below.
class Witness : public DefaultConfiguration {
 public:
  explicit Witness(bool& asked) : mAsked(asked) {}

  // One look-up for each type. The service asks with the setting's own type, so all of them must be noted.
  std::string getString(const std::string& key) const override {
    mAsked = true;
    return DefaultConfiguration::getString(key);
  }
  uint16_t getUint(const std::string& key) const override {
    mAsked = true;
    return DefaultConfiguration::getUint(key);
  }
  int32_t getInt(const std::string& key) const override {
    mAsked = true;
    return DefaultConfiguration::getInt(key);
  }
  bool getBool(const std::string& key) const override {
    mAsked = true;
    return DefaultConfiguration::getBool(key);
  }
  std::map<std::string, std::string> getLocalStrMap(const std::string& key) const override {
    mAsked = true;
    return DefaultConfiguration::getLocalStrMap(key);
  }

 private:
  bool& mAsked;
};

// A look-up has to ask for the type that the service asks for: layers hand on a value of another type.
Json::Value valueOf(const IConfiguration& configuration, const Setting& setting) {
  switch (setting.type) {
    case SettingType::String:
      return configuration.getString(setting.key);
    case SettingType::Bool:
      return configuration.getBool(setting.key);
    case SettingType::Uint:
      return configuration.getUint(setting.key);
    case SettingType::Int:
      return configuration.getInt(setting.key);
    case SettingType::StringMap:
      break;
  }
  Json::Value map(Json::objectValue);
  for (const auto& [name, value] : configuration.getLocalStrMap(setting.key)) map[name] = value;
  return map;
}

// The layers that can answer, in the chain's order, each over a witness instead of the next one.
// Must not be moved: the witnesses refer to a member.
class Layers {
 public:
  explicit Layers(Json::Value file)
      : mFile(std::move(file), std::make_unique<Witness>(mHandedOn)),
        mPreferences(std::make_unique<Witness>(mHandedOn), Torv::PreferencesConfiguration::kServiceFlags) {}

  // The layer that answers, by name, and its answer.
  std::pair<const char*, Json::Value> ask(const Setting& setting) {
    const std::pair<const char*, const IConfiguration*> layers[] = {{"file", &mFile},
                                                                    {"preferences", &mPreferences}};
    for (const auto& [name, layer] : layers) {
      mHandedOn = false;
      Json::Value value = valueOf(*layer, setting);
      if (!mHandedOn) return {name, std::move(value)};
    }
    return {"default", valueOf(mDefaults, setting)};
  }

 private:
  // Set by the witnesses below the layers; declared first, because they hold a reference to it.
  bool mHandedOn = false;
  Torv::JSONConfiguration mFile;
  Torv::PreferencesConfiguration mPreferences;
  DefaultConfiguration mDefaults;
};

// Uses the service's own layers over the same files, so what is printed is what the service would find now.
// It works while the service is away.
int showConfiguration(const Options& options) {
  auto file = Torv::readServiceConfiguration();
  if (!file.ok()) {
    return refuse(
        std::string("the service configuration ") + Torv::kServiceConfigurationPath +
        " cannot be used: " + file.error().message() +
        ". The service does not start without a JSON object there; TORV_DEVICE_ROOT names the directory "
        "that it is looked for in.");
  }
  // Every known setting is asked for, also those that nobody has set: the answer names the default then.
  Layers layers(std::move(*file));
  Json::Value document(Json::objectValue);
  Rows rows;
  for (const Setting& setting : knownSettings()) {
    auto [layer, value] = layers.ask(setting);
    std::string answer = layer;
    answer.resize(std::string("preferences  ").size(), ' ');
    rows.emplace_back(setting.key, answer + printable(plainText(value)));
    document[setting.key]["type"] = nameOf(setting.type);
    document[setting.key]["layer"] = layer;
    document[setting.key]["value"] = std::move(value);
  }
  if (options.json) {
    printJson(document);
  } else {
    fputs(table(rows, 0).c_str(), stdout);
  }
  return kDone;
}

}  // namespace

// No filter by name: the list is short, and grep does the same.
void addConfigCommand(CLI::App& app, const Options& options, int& exitCode) {
  CLI::App* config = app.add_subcommand("config", "Print every setting and the layer that answers for it");
  config->callback([&options, &exitCode] { exitCode = showConfiguration(options); });
}

}  // namespace diagctl
