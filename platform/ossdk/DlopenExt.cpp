#include <android/dlext.h>

#include <dlfcn.h>

static_assert(sizeof(android_dlextinfo) == 48 || sizeof(void*) != 8);

void* android_dlopen_ext(const char* file, int mode, const android_dlextinfo* info) {
  if (info != nullptr && info->flags != 0) {
    if (info->flags != ANDROID_DLEXT_USE_NAMESPACE || info->library_namespace == nullptr) return nullptr;
  }
  return dlopen(file, mode);
}
