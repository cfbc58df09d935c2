// A host's substitute for bionic's header of this name: the same layout, and of the flags the one that a host
// can take. A host has no linker namespaces, so any namespace stands for the only one.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

extern "C" {

struct android_namespace_t;

enum { ANDROID_DLEXT_USE_NAMESPACE = 0x200 };

typedef struct {
  uint64_t flags;
  void* reserved_addr;
  size_t reserved_size;
  int relro_fd;
  int library_fd;
  off64_t library_fd_offset;
  struct android_namespace_t* library_namespace;
} android_dlextinfo;

// Calls dlopen(file, mode) if `info` is null, has no flags, or asks for a namespace only. Returns null if
// that namespace is null, and for every other flag, known or not; dlerror() then says nothing about it.
void* android_dlopen_ext(const char* file, int mode, const android_dlextinfo* info);

}  // extern "C"
