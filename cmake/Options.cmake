# What a build holds, and the flags that hold for every file of it.

option(DIAG_TESTS "Build the tests" ON)
option(DIAG_BENCH "Build the benchmarks" OFF)
option(DIAG_FUZZ "Build the fuzz targets (clang only)" OFF)
set(DIAG_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize= takes them")
set(DIAG_BINDER_LIBRARY "" CACHE FILEPATH "A real libbinder to link instead of platform/binder")

set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_FLAGS_DEBUG "-O1 -g1")
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1 -DNDEBUG")

# Programs and the SDK module lie side by side, so that a bare module name is found by RUNPATH.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

add_compile_options(-Wall -Wextra -Werror -fno-omit-frame-pointer)
add_compile_definitions(DO_NOT_CHECK_MANUAL_BINDER_INTERFACES)
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
endif()
# RPATH rather than RUNPATH: under a sanitizer's dlopen only the former is searched for a bare name.
add_link_options(-Wl,--disable-new-dtags -Wl,--as-needed)
if(DIAG_SANITIZE)
  add_compile_options(-fsanitize=${DIAG_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${DIAG_SANITIZE})
  if(DIAG_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize=vptr)
  endif()
endif()
if(DIAG_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(-Wthread-safety)
endif()
