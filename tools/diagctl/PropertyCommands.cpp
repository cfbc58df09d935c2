#include <cstdio>
#include <memory>
#include <string>

#include "Calls.h"
#include "Commands.h"
#include "Output.h"
#include "properties/PropertyFile.h"

namespace diagctl {
namespace {

// Reads the file itself, so it works while the service is away.
int getProperty(const std::string& name, const Options& options) {
  const std::string text = platform::readPropertyFile();
  const auto value = platform::findProperty(text, name);
  if (!value) return refuse(name + " is not set; diagctl prop list shows what is.");
  if (options.json) {
    printJson(std::string(*value));
  } else {
    printValue(*value);
  }
  return kDone;
}

// In the order of the names. Lines of the file that are no property are left out, as the service leaves them
// out.
int listProperties(const Options& options) {
  const platform::PropertyMap properties = platform::parseProperties(platform::readPropertyFile());
  if (options.json) {
    Json::Value document(Json::objectValue);
    for (const auto& [name, value] : properties) document[name] = value;
    printJson(document);
    return kDone;
  }
  Rows rows;
  for (const auto& [name, value] : properties) rows.emplace_back(printable(name), printable(value));
  fputs(table(rows, 0).c_str(), stdout);
  return kDone;
}

}  // namespace

// The library checks names, lengths and the rule for ro. and says what is wrong; nothing is checked twice
// here.
void addPropertyCommands(CLI::App& app, const Options& options, int& exitCode) {
  CLI::App* prop = app.add_subcommand("prop", "System properties, which the service reads anew each time");
  prop->require_subcommand(1);

  struct Arguments {
    std::string name;
    std::string value;
  };
  const auto arguments = std::make_shared<Arguments>();

  CLI::App* get = prop->add_subcommand("get", "Print a property's value");
  get->add_option("NAME", arguments->name)->required();
  get->callback([arguments, &options, &exitCode] { exitCode = getProperty(arguments->name, options); });

  CLI::App* set = prop->add_subcommand("set", "Set a property; one whose name begins with ro. only once");
  set->add_option("NAME", arguments->name)->required();
  set->add_option("VALUE", arguments->value)->required();
  set->callback([arguments, &exitCode] {
    exitCode = exitCodeOf(platform::setProperty(arguments->name, arguments->value));
  });

  CLI::App* unset = prop->add_subcommand("unset", "Remove a property");
  unset->add_option("NAME", arguments->name)->required();
  unset->callback(
      [arguments, &exitCode] { exitCode = exitCodeOf(platform::unsetProperty(arguments->name)); });

  CLI::App* list = prop->add_subcommand("list", "Print all properties");
  list->callback([&options, &exitCode] { exitCode = listProperties(options); });
}

}  // namespace diagctl
