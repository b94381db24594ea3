# How a floor of the house, a program and a test become targets.

# The standard headers nearly every file uses, compiled once.
add_library(velorin_pch OBJECT "${CMAKE_SOURCE_DIR}/cmake/pch.cpp")
target_link_libraries(velorin_pch PUBLIC velorin_flags Threads::Threads)
target_precompile_headers(velorin_pch PRIVATE "${CMAKE_SOURCE_DIR}/cmake/pch.h")

function(velorin_configure target)
  target_link_libraries(${target} PUBLIC velorin_flags Threads::Threads)
  target_precompile_headers(${target} REUSE_FROM velorin_pch)
endfunction()

# velorin_floor(<name> SOURCES … FLOORS <floors below> [LIBRARIES …]) makes velorin_<name>.
function(velorin_floor name)
  cmake_parse_arguments(ARG "" "" "SOURCES;FLOORS;LIBRARIES" ${ARGN})
  add_library(velorin_${name} STATIC ${ARG_SOURCES})
  velorin_configure(velorin_${name})
  list(TRANSFORM ARG_FLOORS PREPEND velorin_)
  target_link_libraries(velorin_${name} PUBLIC ${ARG_FLOORS} PRIVATE ${ARG_LIBRARIES})
endfunction()

# velorin_test(<name> SOURCES … LIBRARIES … [TIMEOUT s] [LABELS …] [SERIAL]) makes one gtest program and
# registers it as one ctest test: a test program is a subject, its table of cases is inside.
# SERIAL: it runs a sound server against the clock and wants the machine for itself.
function(velorin_test name)
  cmake_parse_arguments(ARG "SERIAL" "TIMEOUT" "SOURCES;LIBRARIES;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  velorin_configure(${name})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests")
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name})
  # What the thread sanitizer is worth running over, as one target.
  if(NOT TARGET threaded_tests)
    add_custom_target(threaded_tests)
  endif()
  if("threads" IN_LIST ARG_LABELS)
    add_dependencies(threaded_tests ${name})
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}"
    RUN_SERIAL ${ARG_SERIAL}
    ENVIRONMENT "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1;LSAN_OPTIONS=print_suppressions=0:suppressions=${CMAKE_SOURCE_DIR}/tests/support/lsan.supp;UBSAN_OPTIONS=print_stacktrace=1;TSAN_OPTIONS=halt_on_error=1:suppressions=${CMAKE_SOURCE_DIR}/tests/support/tsan.supp")
endfunction()
