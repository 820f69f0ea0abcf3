# A folder below src/ is one layer and one static library.
#
# dorsal3_layer(<name> SOURCES ... [USES <layers>] [EXTERNAL <libraries>])
#   <name>      the static library of the folder alone. It names no other layer, so that the programs can take the
#               host layers from libdorsal3.so.
#   <name>_all  the same with every layer below it: what a unit test links.
#
# dorsal3_program(<name> SOURCES ... [LAYERS <own layers>] [EXTERNAL ...])
#   a program over libdorsal3.so and the layers named.

function(dorsal3_layer name)
  cmake_parse_arguments(L "" "" "SOURCES;USES;EXTERNAL" ${ARGN})
  add_library(${name} STATIC ${L_SOURCES})
  target_link_libraries(${name} PUBLIC dorsal3_base Threads::Threads ${L_EXTERNAL})
  add_library(${name}_all INTERFACE)
  target_link_libraries(${name}_all INTERFACE ${name})
  foreach(used IN LISTS L_USES)
    target_link_libraries(${name}_all INTERFACE ${used}_all)
  endforeach()
endfunction()

function(dorsal3_program name)
  cmake_parse_arguments(P "" "" "SOURCES;LAYERS;EXTERNAL" ${ARGN})
  add_executable(${name} ${P_SOURCES})
  target_link_libraries(${name} PRIVATE ${P_LAYERS} dorsal3 ${P_EXTERNAL})
endfunction()
