#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace android::os::statsd {

// The one field of an Atom. Its number is the atom's id, its value the serialised atom.
class UnknownFieldSet {
 public:
  // Sets the field.
  void AddLengthDelimited(int number, std::string value) {
    mNumber = number;
    mValue = std::move(value);
  }

  int number() const { return mNumber; }  // 0 if there is no field
  const std::string& length_delimited() const { return mValue; }

 private:
  int mNumber = 0;
  std::string mValue;
};

// The message that carries one vendor atom in statsd's reports, in its unknown fields. On a device this is a
// protobuf message. Here it is a plain value with the same interface for filling it, because a third of the
// instructions that an atom cost went into making and destroying that message.
class Atom {
 public:
  // Protobuf's names. The pointer is never null, and valid as long as the Atom lives.
  const UnknownFieldSet& unknown_fields() const { return mFields; }
  UnknownFieldSet* mutable_unknown_fields() { return &mFields; }

 private:
  UnknownFieldSet mFields;
};

}  // namespace android::os::statsd
