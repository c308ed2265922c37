# SPDX-License-Identifier: MIT
# Warnings, sanitizers, and the three kinds of targets: a library a folder, a
# test binary, a benchmark.

find_program(VELOR_CCACHE ccache)
if(VELOR_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${VELOR_CCACHE})
endif()

add_library(velor_options INTERFACE)
target_compile_options(velor_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                                               -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(velor_options INTERFACE -Wthread-safety)
endif()
target_include_directories(velor_options INTERFACE ${PROJECT_SOURCE_DIR})
if(VELOR_SANITIZE)
  # A report ends the program, so that no test passes over one.
  target_compile_options(velor_options INTERFACE -fsanitize=${VELOR_SANITIZE}
                                                 -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velor_options INTERFACE -fsanitize=${VELOR_SANITIZE})
endif()

# velor_library(NAME SOURCES ... LINKS ...): the library of one folder. LINKS
# are the folders (and outside libraries) that it may include.
function(velor_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC velor_options ${ARG_LINKS})
endfunction()

# velor_test(NAME SOURCES ... LINKS ... LABELS ...): a test binary, in which an
# allocation or a log call inside a real-time scope ends the run. LABELS:
# unit (simulated time), contract and system (real time and real servers).
function(velor_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velor_options ${ARG_LINKS} velor_test_support)
  gtest_discover_tests(${name} NO_PRETTY_VALUES PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 300 DISCOVERY_TIMEOUT 60)
endfunction()

# velor_bench(NAME SOURCES ... LINKS ...)
function(velor_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velor_options ${ARG_LINKS} benchmark::benchmark)
endfunction()
