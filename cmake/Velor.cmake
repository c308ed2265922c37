# SPDX-License-Identifier: MIT
# Warnings, sanitizers, and the kinds of targets: a library a folder, a test
# binary, a fuzz target, a benchmark.

find_program(VELOR_CCACHE ccache)
if(VELOR_CCACHE AND NOT VELOR_ANALYSE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # With precompiled headers it caches nothing unless it may trust them.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${VELOR_CCACHE})
endif()

# Links the many test binaries in a third of the time.
find_program(VELOR_MOLD mold)
if(VELOR_MOLD AND VELOR_TESTS)
  add_link_options(-fuse-ld=mold)
endif()

if(VELOR_ANALYSE)
  if(NOT CMAKE_CXX_CLANG_TIDY)
    message(FATAL_ERROR "VELOR_ANALYSE leaves the libraries to CMAKE_CXX_CLANG_TIDY, which is empty")
  endif()
  # Nothing of such a build is run, so nothing is generated: an empty object or
  # binary says that its sources were found good. What clang-tidy reads it also
  # compiles; beside it, only the headers are still to be told to Ninja.
  set(CMAKE_CXX_COMPILE_OBJECT
      "<CMAKE_CXX_COMPILER> <DEFINES> <INCLUDES> <FLAGS> -Xclang -Eonly -c <SOURCE>"
      "${CMAKE_COMMAND} -E touch <OBJECT>")
  set(CMAKE_CXX_CREATE_STATIC_LIBRARY "${CMAKE_COMMAND} -E touch <TARGET>")
  set(CMAKE_CXX_LINK_EXECUTABLE "${CMAKE_COMMAND} -E touch <TARGET>")
  # Clang alone reads what moc writes there: without any check, its tidy refuses to start.
  file(WRITE ${CMAKE_BINARY_DIR}/generated/.clang-tidy "Checks: '-*,misc-unused-alias-decls'\n")
endif()

add_library(velor_options INTERFACE)
target_compile_options(velor_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow
                                               -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 sees overlaps in the concatenation of strings that are none (its bug
  # 105651).
  target_compile_options(velor_options INTERFACE -Wno-restrict)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(velor_options INTERFACE -Wthread-safety)
endif()
target_include_directories(velor_options INTERFACE ${PROJECT_SOURCE_DIR})
if(VELOR_HARDEN)
  # scripts/check-binary shows that it holds, and that the compiler makes position-independent
  # programs, as Debian's do unasked. (To ask CMake for it would compile with -fPIC, which
  # inlines less.)
  include(CheckCXXCompilerFlag)
  target_compile_options(velor_options INTERFACE
    -D_FORTIFY_SOURCE=2 -fstack-protector-strong -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  check_cxx_compiler_flag(-fstack-clash-protection VELOR_HAS_STACK_CLASH_PROTECTION)
  if(VELOR_HAS_STACK_CLASH_PROTECTION)  # not on every processor
    target_compile_options(velor_options INTERFACE -fstack-clash-protection)
  endif()
  target_link_options(velor_options INTERFACE LINKER:-z,relro LINKER:-z,now)
endif()
if(VELOR_SANITIZE)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # With the sanitizers' own branches GCC 12 takes std::regex for uninitialised.
    target_compile_options(velor_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  # A report ends the program, so that no test passes over one.
  target_compile_options(velor_options INTERFACE -fsanitize=${VELOR_SANITIZE}
                                                 -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(velor_options INTERFACE -fsanitize=${VELOR_SANITIZE})
endif()
if(VELOR_FUZZ)
  # All code tells the fuzzer where it has been; the fuzz targets alone link it.
  target_compile_options(velor_options INTERFACE -fsanitize=fuzzer-no-link)
endif()

# velor_library(NAME SOURCES ... LINKS ...): the library of one folder. LINKS
# are the folders (and outside libraries) that it may include.
function(velor_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC velor_options ${ARG_LINKS})
endfunction()

# velor_share_test_headers(NAME): what nearly all tests include, compiled once for
# a build.
function(velor_share_test_headers name)
  if(VELOR_TEST_PCH)
    target_precompile_headers(${name} REUSE_FROM velor_test_support)
  endif()
endfunction()

# velor_test(NAME SOURCES ... LINKS ... LABELS ...): a test binary, in which an
# allocation or a log call inside a real-time scope ends the run. LABELS:
# unit (simulated time), contract and system (real time and real servers). With
# JACK_SERVER its tests start JACK servers: those run one at a time, since clients
# of one name get into each other's way even on servers of different names. QT says
# that it includes Qt, which compiles differently (-fPIC).
function(velor_test name)
  cmake_parse_arguments(ARG "JACK_SERVER;QT" "" "SOURCES;LINKS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velor_options ${ARG_LINKS} velor_sim velor_test_support)
  if(NOT ARG_QT)
    velor_share_test_headers(${name})
  endif()
  set(lock "")
  if(ARG_JACK_SERVER)
    set(lock RESOURCE_LOCK jack_server)
  endif()
  gtest_discover_tests(${name} NO_PRETTY_VALUES PROPERTIES LABELS "${ARG_LABELS}" TIMEOUT 300
                       DISCOVERY_TIMEOUT 60 ${lock})
endfunction()

# velor_fuzz(NAME LINKS ...): the fuzz target of NAMEFuzz.cpp. With VELOR_FUZZ it
# is a libFuzzer binary; otherwise, a test that runs the files of corpus/NAME.
function(velor_fuzz name)
  cmake_parse_arguments(ARG "" "" "LINKS" ${ARGN})
  set(target ${name}Fuzz)
  add_executable(${target} ${target}.cpp)
  target_link_libraries(${target} PRIVATE velor_options ${ARG_LINKS} velor_sim)
  if(VELOR_FUZZ)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer)
  else()
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/fuzz/StandaloneMain.cpp)
    add_test(NAME Fuzz.${name}Corpus
             COMMAND ${target} ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name})
    set_tests_properties(Fuzz.${name}Corpus PROPERTIES LABELS unit TIMEOUT 300)
  endif()
endfunction()

# velor_bench(NAME SOURCES ... LINKS ...)
function(velor_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINKS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE velor_options ${ARG_LINKS} velor_sim benchmark::benchmark)
endfunction()
