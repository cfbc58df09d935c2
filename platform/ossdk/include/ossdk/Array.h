#pragma once

#include <cstddef>

namespace OSSDK {

// Elements on their way across the module's border, lent for the duration of a call.
template <typename T>
struct Array {
  const T* items = nullptr;
  size_t count = 0;

  const T* begin() const { return items; }
  const T* end() const { return items + count; }
};

}  // namespace OSSDK
