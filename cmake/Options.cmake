# Language level, build options, warnings and sanitizers: one place for every target.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")

option(VELORIN_TESTS "Build the tests" ON)
option(VELORIN_BENCH "Build the benches" OFF)
option(VELORIN_FUZZ "Build the libFuzzer targets (clang only)" OFF)
option(VELORIN_WERROR "Treat warnings as errors" ON)
set(VELORIN_SANITIZE "" CACHE STRING "Value for -fsanitize=, e.g. address,undefined")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  # The precompiled header carries a timestamp; without this ccache would never hit.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      "${CMAKE_COMMAND};-E;env;CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime;${CCACHE_PROGRAM}")
endif()

add_library(velorin_flags INTERFACE)
target_compile_options(velorin_flags INTERFACE
  -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wundef
  # Bit-exact work: no contraction of a*b+c behind our back, no -ffast-math anywhere.
  -ffp-contract=off
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  $<$<BOOL:${VELORIN_WERROR}>:-Werror>)
target_include_directories(velorin_flags INTERFACE "${CMAKE_SOURCE_DIR}/VelorinLib")
if(VELORIN_SANITIZE)
  target_compile_options(velorin_flags INTERFACE
    -fsanitize=${VELORIN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # GCC says of itself that instrumented code makes it warn of what is none.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(velorin_flags INTERFACE -Wno-maybe-uninitialized)
  endif()
  target_link_options(velorin_flags INTERFACE -fsanitize=${VELORIN_SANITIZE})
  if(VELORIN_SANITIZE MATCHES "thread")
    # Boost.Asio's fences are not modelled; its locks, which order the same accesses, are.
    target_compile_options(velorin_flags INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
  endif()
endif()
if(VELORIN_FUZZ)
  # Coverage feedback for everything; the fuzzers themselves link libFuzzer's main.
  target_compile_options(velorin_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
