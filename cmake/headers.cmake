# Target `headers` (not part of the default build): every header below src/ compiles alone, with the flags of the tree.
# One tiny unit a header, so that the build tool runs them side by side and only again for what has changed.

file(GLOB_RECURSE all_headers RELATIVE "${CMAKE_SOURCE_DIR}/src" CONFIGURE_DEPENDS "${CMAKE_SOURCE_DIR}/src/*.h")
set(header_units "")
foreach(header IN LISTS all_headers)
  set(unit "${CMAKE_BINARY_DIR}/headers/${header}.cpp")
  # Twice: a header without a guard fails.
  file(CONFIGURE OUTPUT "${unit}" CONTENT "#include \"${header}\"\n#include \"${header}\"\n")
  list(APPEND header_units "${unit}")
endforeach()

add_library(headers OBJECT EXCLUDE_FROM_ALL ${header_units})
target_link_libraries(headers PRIVATE dorsal3_base Threads::Threads OpenSSL::SSL Boost::headers SQLite::SQLite3
  PkgConfig::ACE PkgConfig::YAJL PkgConfig::ZSTD PkgConfig::XXHASH)
