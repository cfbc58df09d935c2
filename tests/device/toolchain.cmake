# Builds for the emulated machine's architecture: DIAG_DEVICE_ARCH (aarch64 or x86_64) says which. A machine of
# that architecture builds against itself; for any other one DIAG_DEVICE_SYSROOT holds Debian's libraries.

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES DIAG_DEVICE_ARCH DIAG_DEVICE_SYSROOT)
set(CMAKE_CXX_COMPILER ${DIAG_DEVICE_ARCH}-linux-gnu-g++)
if(DIAG_DEVICE_SYSROOT)
  set(CMAKE_SYSTEM_NAME Linux)
  set(CMAKE_SYSTEM_PROCESSOR ${DIAG_DEVICE_ARCH})
  set(CMAKE_SYSROOT ${DIAG_DEVICE_SYSROOT})
  set(CMAKE_LIBRARY_ARCHITECTURE ${DIAG_DEVICE_ARCH}-linux-gnu)
  # Programs (protoc, aidl-cpp) are this machine's, all else is the other one's.
  set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
  # Libraries that other libraries need, in the folder that the linker does not know of.
  add_link_options(-Wl,-rpath-link,${DIAG_DEVICE_SYSROOT}/usr/lib/${DIAG_DEVICE_ARCH}-linux-gnu/android)
endif()
