# dorsal3_add_test(<name> SOURCES ... LIBS ... [LABELS ...] [TIMEOUT seconds])
#   one GoogleTest executable; CTest sees every case by its own name.

function(dorsal3_add_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  add_executable(${name} ${T_SOURCES})
  target_include_directories(${name} PRIVATE "${CMAKE_SOURCE_DIR}/tests" "${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE tests_support ${T_LIBS} dorsal3_base GTest::gtest GTest::gmock GTest::gmock_main)
  include(GoogleTest)
  gtest_discover_tests(${name}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${T_TIMEOUT} LABELS "${T_LABELS}")
endfunction()
