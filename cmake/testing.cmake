# dorsal3_add_test(<name> SOURCES ... LIBS ... [LABELS ...] [TIMEOUT seconds])
#   one GoogleTest executable; CTest sees every case by its own name.
# dorsal3_add_test_again(<name> SUFFIX text FILTER pattern [ZONE zone] [BEGIN "YYYY-MM-DDTHH:MM:SS"] [CLOCKS back|forward])
#   cases of that executable once more, with the suffix behind their names: in a time zone, from a moment on, or, where
#   processes keep the world's time, in a zone whose clocks are about to change (tests/support/changing_zone.h).
# dorsal3_add_test_in_zones(<name> FILTER pattern)
#   the same in another time zone, and over both changes of daylight saving: there the time of tests that set theirs
#   themselves begins seconds before the change (tests/support/first_moment.h).

function(dorsal3_add_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_executable(${name} ${T_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests" "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE tests_support ${T_LIBS} dorsal3_base GTest::gtest GTest::gmock GTest::gmock_main)
  set_target_properties(${name} PROPERTIES DORSAL3_TEST_TIMEOUT ${T_TIMEOUT} DORSAL3_TEST_LABELS "${T_LABELS}")
  include(GoogleTest)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${T_TIMEOUT} LABELS "${T_LABELS}")
endfunction()

function(dorsal3_add_test_again name)
  cmake_parse_arguments(T "" "SUFFIX;FILTER;ZONE;BEGIN;CLOCKS" "" ${ARGN})
  get_target_property(timeout ${name} DORSAL3_TEST_TIMEOUT)
  get_target_property(labels ${name} DORSAL3_TEST_LABELS)
  set(environment "")
  if(T_ZONE)
    set(environment ENVIRONMENT "TZ=${T_ZONE}")
  endif()
  # The script of the discovery would lose the second variable of one property.
  set(begin "")
  if(T_BEGIN)
    set(begin ENVIRONMENT_MODIFICATION "DORSAL3_TESTS_BEGIN=set:${T_BEGIN}")
  elseif(T_CLOCKS)
    set(begin ENVIRONMENT_MODIFICATION "DORSAL3_TESTS_CLOCKS=set:${T_CLOCKS}")
  endif()
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    TEST_SUFFIX "${T_SUFFIX}"
    TEST_FILTER "${T_FILTER}"
    TEST_LIST ${name}${T_SUFFIX}
    PROPERTIES TIMEOUT ${timeout} ${environment} ${begin} LABELS "${labels}")
endfunction()

function(dorsal3_add_test_in_zones name)
  cmake_parse_arguments(T "" "FILTER" "" ${ARGN})
  dorsal3_add_test_again(${name} SUFFIX ".In_Asia_Kolkata" FILTER "${T_FILTER}" ZONE Asia/Kolkata)
  dorsal3_add_test_again(${name} SUFFIX ".When_Clocks_Go_Back" FILTER "${T_FILTER}"
    ZONE Europe/Berlin BEGIN 2025-10-26T00:59:55)
  dorsal3_add_test_again(${name} SUFFIX ".When_Clocks_Go_Forward" FILTER "${T_FILTER}"
    ZONE Europe/Berlin BEGIN 2026-03-29T00:59:55)
endfunction()
