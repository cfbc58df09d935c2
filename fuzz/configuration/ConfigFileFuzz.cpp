// A configuration file of any bytes. Every getter can be called for every member of a file that is accepted,
// and a text that both grammars accept has the same value in both.
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <android/log.h>

#include "base/Json.h"
#include "configuration/DefaultConfiguration.h"
#include "configuration/JSONConfiguration.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto strict = Torv::Base::parseJson(text, Torv::Base::JsonRules::Strict);
  const auto root = Torv::Base::parseJson(text);
  if (strict.ok() && (!root.ok() || *root != *strict)) abort();
  if (!root.ok()) {
    if (root.error().message().empty()) abort();
    return 0;
  }
  const Torv::JSONConfiguration configuration(*root, std::make_unique<Torv::DefaultConfiguration>());
  for (const std::string& key : root->isObject() ? root->getMemberNames() : Json::Value::Members{"a"}) {
    (void)configuration.getUint(key);
    (void)configuration.getInt(key);
    (void)configuration.getBool(key);
    (void)configuration.getLocalStrMap(key);
    const std::string answer = configuration.getString(key);
    const Json::Value* member = Torv::Base::findMember(*root, key);
    if (member != nullptr && member->isString() && answer != member->asString()) abort();
  }
  return 0;
}
