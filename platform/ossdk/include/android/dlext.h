// A host's substitute for bionic's header of this name: the same layout and flag values, and of the flags
// only ANDROID_DLEXT_USE_NAMESPACE in effect (a host has no linker namespaces: any is taken for the one).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

extern "C" {

struct android_namespace_t;

enum {
  ANDROID_DLEXT_RESERVED_ADDRESS = 0x1,
  ANDROID_DLEXT_RESERVED_ADDRESS_HINT = 0x2,
  ANDROID_DLEXT_WRITE_RELRO = 0x4,
  ANDROID_DLEXT_USE_RELRO = 0x8,
  ANDROID_DLEXT_USE_LIBRARY_FD = 0x10,
  ANDROID_DLEXT_USE_LIBRARY_FD_OFFSET = 0x20,
  ANDROID_DLEXT_FORCE_LOAD = 0x40,
  ANDROID_DLEXT_USE_NAMESPACE = 0x200,
  ANDROID_DLEXT_RESERVED_ADDRESS_RECURSIVE = 0x400,
};

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
