// The OS SDK is a closed library that is opened at run time by name. It is opened when the first of its entry
// points is needed, once per process, and never closed. If it is missing, that is logged once.
#pragma once

#include <mutex>

namespace Torv::OS {

// One entry point of the module, looked up at most once. Objects are meant to have static storage.
// Thread-safe: concurrent first uses wait for the thread that looks it up.
class OsSdkSymbol {
 public:
  // `name` must outlive the object.
  constexpr explicit OsSdkSymbol(const char* name) : mName(name) {}

  // Returns the entry point's address, or null if the module is missing or has no such symbol.
  void* address();

 private:
  const char* const mName;
  std::once_flag mOnce;
  void* mAddress = nullptr;
};

// The same, as a pointer to a function of the given type.
template <typename Function>
class OsSdkFunction {
 public:
  constexpr explicit OsSdkFunction(const char* name) : mSymbol(name) {}

  // Returns the function, or null, as OsSdkSymbol::address() does.
  Function* get() { return reinterpret_cast<Function*>(mSymbol.address()); }

 private:
  OsSdkSymbol mSymbol;
};

}  // namespace Torv::OS
