#pragma once

#include <cstddef>

#include "ossdk/String.h"

namespace OSSDK::Utils {

// A list of texts that the SDK owns; it and its texts are valid for the duration of the call that hands it
// over.
class IListString {
 public:
  virtual size_t size() const = 0;
  // An empty text for an index past the end.
  virtual String at(size_t index) const = 0;

 protected:
  ~IListString() = default;
};

}  // namespace OSSDK::Utils
