# The shared library's exported names against the public surface: `nm -D
# --defined-only` must list exactly the names of exports.txt (the 19 methods
# of VEXOR, the portable automation helpers and interface ids, the host
# settings and the C interface), and each of those must be declared by an
# installed header.
#   cmake -DNM=<nm> -DLIB=<libvexor.so> -DEXPECTED=<exports.txt>
#         -DHEADERS=<api/include/vexor> -P exports.cmake
execute_process(COMMAND ${NM} -D --defined-only -C ${LIB}
                OUTPUT_VARIABLE out RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${NM} failed on ${LIB}")
endif()
string(REPLACE "\n" ";" lines "${out}")
set(actual "")
foreach(line IN LISTS lines)
  # "<address> <type> <name>": the name is everything after the type.
  if(line MATCHES "^[0-9a-fA-F]+ [A-Za-z] (.*)$")
    list(APPEND actual "${CMAKE_MATCH_1}")
  endif()
endforeach()
list(SORT actual)
file(STRINGS ${EXPECTED} expected)
list(SORT expected)
if(NOT actual STREQUAL expected)
  set(extra ${actual})
  list(REMOVE_ITEM extra ${expected})
  set(missing ${expected})
  list(REMOVE_ITEM missing ${actual})
  list(JOIN extra "\n  " extra)
  list(JOIN missing "\n  " missing)
  message(FATAL_ERROR "exported names differ from exports.txt\nexported, not expected:\n  ${extra}\nexpected, not exported:\n  ${missing}")
endif()
file(READ ${HEADERS}/vexor.h vexorh)
file(READ ${HEADERS}/automation.h automationh)
file(READ ${HEADERS}/vexor_c.h ch)
foreach(name IN LISTS expected)
  # The bare name: "VEXOR::Compute(VARIANT*)" -> "Compute", "vexor::cancel()" -> "cancel".
  string(REGEX REPLACE "\\(.*$" "" bare "${name}")
  string(REGEX REPLACE "^.*::" "" bare "${bare}")
  string(FIND "${vexorh}${automationh}${ch}" "${bare}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "${name} is exported but no public header declares ${bare}")
  endif()
endforeach()
list(LENGTH actual count)
message(STATUS "libvexor.so exports ${count} names, all of the public headers")
