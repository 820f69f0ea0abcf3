# Language level, warnings and sanitizers: set once, on the target that every other one links.

option(DORSAL3_BUILD_TESTS "Build the tests" ON)
option(DORSAL3_BUILD_BENCHMARKS "Build the benchmarks" OFF)
set(DORSAL3_SANITIZE "" CACHE STRING "Sanitizers: empty, address (with undefined) or thread")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
# The installed programs find their libraries from where they lie themselves.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib;$ORIGIN/..")

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

add_library(dorsal3_base INTERFACE)
target_include_directories(dorsal3_base INTERFACE "${CMAKE_SOURCE_DIR}/src")
target_compile_options(dorsal3_base INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wcast-align -Wunused -Wconversion -Wno-sign-conversion -Wno-missing-field-initializers -Wimplicit-fallthrough -Wformat=2
  # No build path may stand in a message.
  "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/src/="
  "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/=")
target_compile_definitions(dorsal3_base INTERFACE BOOST_ALL_NO_LIB)

if(DORSAL3_SANITIZE STREQUAL "address")
  target_compile_options(dorsal3_base INTERFACE -fsanitize=address,undefined -fno-omit-frame-pointer
    -fno-sanitize-recover=undefined)
  target_link_options(dorsal3_base INTERFACE -fsanitize=address,undefined)
elseif(DORSAL3_SANITIZE STREQUAL "thread")
  target_compile_options(dorsal3_base INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
  # The sanitizer does not know fences: g++ warns of each, and Asio works without its own.
  target_compile_definitions(dorsal3_base INTERFACE BOOST_ASIO_DISABLE_FENCED_BLOCK)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(dorsal3_base INTERFACE -Wno-tsan)
  endif()
  target_link_options(dorsal3_base INTERFACE -fsanitize=thread)
elseif(NOT DORSAL3_SANITIZE STREQUAL "")
  message(FATAL_ERROR "DORSAL3_SANITIZE is '${DORSAL3_SANITIZE}': use address, thread or nothing")
endif()
