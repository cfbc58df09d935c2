// A configuration file of any bytes. Every getter can be called for every member of a file that is accepted,
// and a text that both grammars accept has the same value in both.
#include <memory>

#include "Fuzz.h"
#include "base/Json.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"

FUZZ(text) {
  const auto strict = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
  const auto root = Torv::Base::parseJson(text);
  check(!strict.ok() || (root.ok() && *root == *strict), "both grammars");
  check(root.ok() || !root.error().message().empty(), "a reason");
  if (!root.ok()) return;
  const Torv::JSONConfiguration configuration(*root, std::make_unique<Torv::DefaultConfiguration>());
  for (const std::string& key : root->isObject() ? root->getMemberNames() : Json::Value::Members{"a"}) {
    (void)configuration.getUint(key);
    (void)configuration.getInt(key);
    (void)configuration.getBool(key);
    (void)configuration.getLocalStrMap(key);
    const std::string answer = configuration.getString(key);
    const Json::Value* member = Torv::Base::findMember(*root, key);
    check(member == nullptr || !member->isString() || answer == member->asString(), "a string member");
  }
}
