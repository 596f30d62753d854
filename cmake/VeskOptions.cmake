# Compiler and linker settings shared by the daemon, its tests and its tools.

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# The same floating-point results on every processor: no fused multiply-add.
add_compile_options(-ffp-contract=off)

# 64-bit time and file offsets on 32-bit boards too, so that the clock works after 2038.
add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)

# What the checks want of our own code, the daemon's and the tools', and of nothing else.
add_library(vesk_checked_code INTERFACE)

# Every object needs the sanitizers that watch memory or threads. The one for undefined behaviour looks at
# single expressions: it is of use only in our own code, and makes tests slow to build.
if(VESK_SANITIZER)
  string(REGEX REPLACE ",?undefined" "" memory_sanitizers "${VESK_SANITIZER}")
  add_compile_options(-fsanitize=${memory_sanitizers} -fno-omit-frame-pointer)
  target_compile_options(vesk_checked_code INTERFACE
    -fsanitize=${VESK_SANITIZER} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VESK_SANITIZER})
  if(VESK_SANITIZER MATCHES fuzzer)
    # Quicker by a half. The fuzzer would take these checks for branches of the code; the asan build has them,
    # and plays what the fuzzer found. Dictionaries take the place of noted comparisons.
    target_compile_options(vesk_checked_code INTERFACE
      -fno-sanitize=null,alignment,object-size,function -fno-sanitize-coverage=trace-cmp)
  endif()
endif()

if(VESK_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage LINKER:--wrap=_exit)
  add_library(vesk_coverage_end STATIC ${CMAKE_CURRENT_LIST_DIR}/../tests/support/coverage_end.cpp)
endif()

if(VESK_HARDENED)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  if(NOT VESK_TESTS) # the tests replace functions at link time, so calls must stay calls
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
  endif()
  add_compile_options(-fstack-protector-strong -fstack-clash-protection)
  add_compile_definitions($<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=3>)
  add_link_options(-pie LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
  if(CMAKE_SYSTEM_PROCESSOR STREQUAL x86_64)
    # Debian's start files carry no mark of control-flow protection, so the linker would leave it out. They
    # are fit for shadow stacks, but not for checked indirect jumps: these are only compiled in.
    add_compile_options(-fcf-protection=full)
    add_link_options(LINKER:-z,shstk)
  endif()
endif()
add_link_options(LINKER:--as-needed)

add_library(vesk_warnings INTERFACE)
target_compile_options(vesk_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-align
  -Wcast-qual -Wundef -Wdouble-promotion -Wformat=2 -Wimplicit-fallthrough -Wnon-virtual-dtor
  -Woverloaded-virtual -Wmissing-declarations
  $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op -Wduplicated-cond -Wduplicated-branches>
  $<$<BOOL:${VESK_WERROR}>:-Werror>)

# The daemon uses no exceptions and no run-time type information, so the board does not need the C++
# library.
add_library(vesk_daemon_code INTERFACE)
target_compile_options(vesk_daemon_code INTERFACE -fno-exceptions -fno-rtti)
target_link_libraries(vesk_daemon_code INTERFACE vesk_checked_code)
# The same program, and the same debug information, wherever the sources are.
if(VESK_HARDENED)
  foreach(kind compile link) # the linker compiles, too
    cmake_language(CALL target_${kind}_options vesk_daemon_code INTERFACE
      -ffile-prefix-map=${PROJECT_BINARY_DIR}=/build -ffile-prefix-map=${PROJECT_SOURCE_DIR}=/vesk_h264)
  endforeach()
endif()
if(VESK_SANITIZER)
  # Some faults only show in optimised code.
  target_compile_options(vesk_daemon_code INTERFACE -O1)
endif()

# ccache, where it is installed, makes a second build of the same sources quick.
find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # What it has to be told about headers that were compiled ahead.
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endif()
