#include "sdkloader/OsSdkLoader.h"

#include <android/dlext.h>
#include <android/log.h>
#include <dlfcn.h>

namespace Torv::OS {
namespace {

constexpr char kTag[] = "OsSdkLoader";
constexpr char kModuleName[] = "libossdk.pellux.so";
// The dynamic linker's own name for android_get_exported_namespace(), which no public header declares.
constexpr char kGetExportedNamespace[] = "__loader_android_get_exported_namespace";
constexpr char kNamespaceName[] = "default";

// A native daemon's own linker namespace may not contain the module; the exported default namespace does.
// Returns null if there is no such namespace, as on a host, or the module is not in it.
void* openInDefaultNamespace() {
  using GetExportedNamespace = android_namespace_t*(const char* name);
  auto* getExportedNamespace =
      reinterpret_cast<GetExportedNamespace*>(dlsym(RTLD_DEFAULT, kGetExportedNamespace));
  if (getExportedNamespace == nullptr) return nullptr;
  android_namespace_t* defaultNamespace = getExportedNamespace(kNamespaceName);
  if (defaultNamespace == nullptr) return nullptr;
  android_dlextinfo info{};
  info.flags = ANDROID_DLEXT_USE_NAMESPACE;
  info.library_namespace = defaultNamespace;
  return android_dlopen_ext(kModuleName, RTLD_LAZY, &info);
}

// Returns null and logs an error if the module cannot be found or loaded.
void* openModule() {
  __android_log_print(ANDROID_LOG_DEBUG, kTag, "OSSDK loading module '%s'", kModuleName);
  void* module = openInDefaultNamespace();
  if (module == nullptr) module = dlopen(kModuleName, RTLD_LAZY);
  if (module == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "OSSDK module '%s' not found", kModuleName);
  }
  return module;
}

void* moduleHandle() {
  static void* const module = openModule();  // by the first caller; others wait for it
  return module;
}

}  // namespace

void* OsSdkSymbol::address() {
  std::call_once(mOnce, [this] {
    void* module = moduleHandle();
    if (module == nullptr) return;
    dlerror();  // clears the error of an earlier failure
    mAddress = dlsym(module, mName);
  });
  return mAddress;
}

}  // namespace Torv::OS
