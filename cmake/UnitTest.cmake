# A test program: GoogleTest over named rooms, on the fake platform unless told otherwise.
#
#   add_unit_test(<name> SOURCES ... USES <rooms> [PLATFORM <platform room>] [LINKS <libraries>]
#                 [NO_WIRING] [TIMEOUT s] [SERIAL])
#
# Rooms are seen exactly as rooms see each other. NO_WIRING leaves the stub wiring (the six timer
# records and an empty request table) out, for tests that link the daemon's own. Programs lie in
# build/tests; each TEST is one ctest entry.

# Test code is built for a quick build: little optimised, with line numbers only, over one
# precompiled header.
add_library(test_flags INTERFACE)
target_compile_options(test_flags INTERFACE $<IF:$<BOOL:${RCMD_QUICK_BUILD}>,-O0,-O1> -g1)
target_compile_definitions(test_flags INTERFACE
  PROGRAM_DIR="${CMAKE_RUNTIME_OUTPUT_DIRECTORY}" SOURCE_DIR="${CMAKE_SOURCE_DIR}")
target_link_libraries(test_flags INTERFACE house_free GTest::gmock GTest::gtest Threads::Threads)

add_library(test_headers OBJECT ${CMAKE_SOURCE_DIR}/tests/house/empty_main.cpp)
target_link_libraries(test_headers PRIVATE test_flags)
target_precompile_headers(test_headers PRIVATE
  <gmock/gmock.h> <gtest/gtest.h> <deque> <functional> <map> <memory> <string> <vector>)

function(add_unit_test name)
  cmake_parse_arguments(T "NO_WIRING;SERIAL" "PLATFORM;TIMEOUT" "SOURCES;USES;LINKS" ${ARGN})
  set(fixture)
  if(NOT T_PLATFORM)
    set(T_PLATFORM fake_platform)
    set(fixture fake_fixture)
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_executable(${name} ${T_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  room_sees(${name} ${T_USES} ${T_PLATFORM} ${fixture} stub_wiring platform_api)
  target_link_libraries(${name} PRIVATE test_flags)
  target_precompile_headers(${name} REUSE_FROM test_headers)
  if(NOT T_NO_WIRING)
    target_link_libraries(${name} PRIVATE stub_wiring)
  endif()
  target_link_libraries(${name} PRIVATE ${T_USES} ${T_PLATFORM} ${fixture} core_base ${T_LINKS}
                        GTest::gmock GTest::gtest_main Threads::Threads)
  set(properties TIMEOUT ${T_TIMEOUT})
  if(T_SERIAL)
    list(APPEND properties RUN_SERIAL TRUE)
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()
