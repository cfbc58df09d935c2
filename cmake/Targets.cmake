# How each kind of target is built.

# diag_library(<name> SOURCES <file>... [PUBLIC <target>...] [PRIVATE <target>...])
# A folder of base/ or src/. It ships on the device, so it is C++17 without exceptions and RTTI. Its public
# headers are in include/; headers beside the sources are private.
function(diag_library name)
  diag_add_library(${name} 17 ${ARGN})
  target_compile_options(${name} PRIVATE -fno-exceptions)
endfunction()

# platform_library(...): the same for a folder of platform/ or tools/, which only runs on a Linux host.
function(platform_library name)
  diag_add_library(${name} 20 ${ARGN})
endfunction()

function(diag_add_library name standard)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "" "SOURCES;PUBLIC;PRIVATE")
  if(arg_SOURCES)
    add_library(${name} STATIC ${arg_SOURCES})
    target_include_directories(${name} PUBLIC include)
    target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
    diag_common(${name} ${standard})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE include)
    target_link_libraries(${name} INTERFACE ${arg_PUBLIC})
  endif()
endfunction()

# diag_program(<name> SOURCES <file>... [LIBS <target>...] [STANDARD 17|20])
function(diag_program name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "STANDARD" "SOURCES;LIBS")
  if(NOT arg_STANDARD)
    set(arg_STANDARD 20)
  endif()
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_LIBS})
  diag_common(${name} ${arg_STANDARD})
endfunction()

# diag_test(<name> IN <folder> SOURCES <file>... [LIBS <target>...] [DIRS <folder>...] [TIMEOUT <s>]
#           [LABELS <label>...] [NEEDS <target>...])
# One googletest program, run shuffled as one ctest test. Sources are relative to IN, which is relative to
# tests/. DIRS are include folders of the project: they let a test see a folder's private headers. NEEDS are
# programs and modules that the test starts or opens.
function(diag_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "IN;TIMEOUT" "SOURCES;LIBS;DIRS;LABELS;NEEDS")
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  diag_folder_program(${name} "${arg_IN}" "${arg_SOURCES}" "${arg_LIBS};test_support;gmock;gtest;gtest_main" "${arg_DIRS}")
  add_test(NAME ${name} COMMAND ${name} --gtest_shuffle --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
  if(arg_NEEDS)
    add_dependencies(${name} ${arg_NEEDS})
  endif()
endfunction()

# diag_bench(<name> IN <folder> SOURCES <file>... [LIBS <target>...] [DIRS <folder>...] [NEEDS <target>...])
# A google-benchmark program, from a folder of bench/.
function(diag_bench name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "IN" "SOURCES;LIBS;DIRS;NEEDS")
  diag_folder_program(${name} "${arg_IN}" "${arg_SOURCES}" "${arg_LIBS};bench_support" "${arg_DIRS}")
  if(arg_NEEDS)
    add_dependencies(${name} ${arg_NEEDS})
  endif()
endfunction()

# diag_fuzz(<name> IN <folder> SOURCES <file>... [LIBS <target>...] [DIRS <folder>...])
# A libFuzzer target, from a folder of fuzz/. Its corpus is corpus/<name>.
function(diag_fuzz name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "IN" "SOURCES;LIBS;DIRS")
  diag_folder_program(${name} "${arg_IN}" "${arg_SOURCES}" "${arg_LIBS}" "${arg_DIRS};fuzz")
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
endfunction()

# diag_embed(<output> NAMESPACE <name> TEXTS <variable> <file> ...)
# A source file in the build folder that holds files as std::string_view constants. It includes the header of
# the same name, which declares them.
function(diag_embed output)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAMESPACE" "TEXTS")
  string(REGEX REPLACE "\\.cpp$" ".h" header ${CMAKE_CURRENT_SOURCE_DIR}/${output})
  set(files ${arg_TEXTS})
  list(FILTER files INCLUDE REGEX "/")
  add_custom_command(
    OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${output}
    COMMAND ${CMAKE_COMMAND} -D OUT=${CMAKE_CURRENT_BINARY_DIR}/${output} -D HEADER=${header}
            -D NAMESPACE=${arg_NAMESPACE} -D "TEXTS=${arg_TEXTS}" -P ${PROJECT_SOURCE_DIR}/cmake/Embed.cmake
    DEPENDS ${files} ${PROJECT_SOURCE_DIR}/cmake/Embed.cmake
    VERBATIM)
endfunction()

function(diag_folder_program name folder sources libs dirs)
  list(TRANSFORM sources PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/)
  list(TRANSFORM dirs PREPEND ${PROJECT_SOURCE_DIR}/)
  diag_program(${name} SOURCES ${sources} LIBS ${libs})
  target_include_directories(${name} PRIVATE ${dirs})
endfunction()

function(diag_common name standard)
  set_target_properties(${name} PROPERTIES CXX_STANDARD ${standard})
  target_compile_options(${name} PRIVATE -fno-rtti)
endfunction()
