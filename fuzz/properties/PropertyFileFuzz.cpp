// A property file of any bytes. Looking one property up gives the value that the list of all has, and setting
// one changes no other.
#include "Fuzz.h"
#include "properties/PropertyFile.h"

FUZZ(text) {
  const platform::PropertyMap properties = platform::parseProperties(text);
  for (const auto& [name, value] : properties) check(platform::findProperty(text, name) == value, "look-up");
  for (const char* name : {"a", "ro.b"}) {
    platform::PropertyMap expected = properties;
    expected[name] = "new";
    check(platform::parseProperties(platform::withProperty(text, name, "new")) == expected, "setting");
  }
}
