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
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # The archives that are installed hide our names, and a name that the compiler makes unique cannot be hidden.
  string(APPEND CMAKE_CXX_FLAGS_RELEASE " -fno-gnu-unique")
endif()

# The SDK module is opened by its bare name: a program finds it in its own folder, wherever the two are copied.
set(CMAKE_BUILD_RPATH "$ORIGIN")
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
