# Installs the build tree into a folder of its own, builds examples/host (C++)
# and examples/c-host (C) against the installed package (find_package(vexor)
# through CMAKE_PREFIX_PATH), runs them and checks their output; then, when
# pkg-config is there, checks vexor.pc and builds the same hosts with its
# flags alone.
#
# -DBUILD=<build tree> -DSRC=<source tree> -DWORK=<scratch folder>
# -DCXX=<C++ compiler> -DCC=<C compiler> -DGENERATOR=<generator>
# -DFLAGS=<extra compile and link flags>
set(prefix ${WORK}/stage)
file(REMOVE_RECURSE ${WORK}/stage ${WORK}/host ${WORK}/c-host)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

# Lines the host must print.  The estimates, the sum of squares and the
# model's values are the least-squares solution of the same problem found
# independently (Gauss-Newton in double precision, outside this project):
# a = 925.87918, k = 0.376870, bg = 114.31193, SSE = 608.5595,
# counts(2.5) = 475.1999, counts(20) = 114.8052.
function(checkoutput text)
  foreach(pattern
      "Compute returned [3-6]\n"
      "a   = +925\\.8792  \\(standard error [0-9.]+, limits [0-9.]+ to [0-9.]+\\)\n"
      "k   = +0\\.3769 "
      "bg  = +114\\.3119 "
      "observations       12\n"
      "sum of squares     608\\.559\n"
      "version            5\\.4\n"
      "correlation\\(t, counts\\) = -0\\.[0-9]+\n"
      "covariance row 2:"
      "counts\\(2\\.5\\) = 475\\.20\n"
      "counts\\(20\\.0\\) = 114\\.81\n"
      "   1: TITLE \"Decay of a counting sample\";\n"
      "Final Results")
    if(NOT text MATCHES "${pattern}")
      message(FATAL_ERROR "host output lacks /${pattern}/:\n${text}")
    endif()
  endforeach()
endfunction()

# Lines the C host must print: the same solution, through the C interface.
function(checkcoutput text)
  foreach(pattern
      "result code [3-6]: "
      "a   = +925\\.8792  \\(standard error [0-9.]+, limits [0-9.]+ to [0-9.]+\\)\n"
      "k   = +0\\.3769 "
      "bg  = +114\\.3119 "
      "observations 12, sum of squares 608\\.559\n"
      "var\\(k\\) = [0-9.]+e-0[0-9]\n"
      "counts\\(2\\.5\\) = 475\\.20\n"
      "counts\\(20\\.0\\) = 114\\.81\n"
      "   1: TITLE \"Decay of a counting sample\";\n"
      "Final Results"
      "compile error on line 3: ")
    if(NOT text MATCHES "${pattern}")
      message(FATAL_ERROR "C host output lacks /${pattern}/:\n${text}")
    endif()
  endforeach()
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
foreach(f include/vexor/vexor.h include/vexor/automation.h include/vexor/vexor_c.h bin/vexor)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
file(GLOB_RECURSE installed RELATIVE ${prefix} ${prefix}/*)
foreach(f IN LISTS installed)
  if(f MATCHES "^include/" AND NOT f MATCHES "^include/vexor/(vexor|automation|vexor_c)\\.h$")
    message(FATAL_ERROR "a header that is not public was installed: ${f}")
  endif()
endforeach()
file(GLOB_RECURSE configs ${prefix}/*/vexorConfig.cmake)
file(GLOB_RECURSE pcs ${prefix}/*/vexor.pc)
if(NOT configs OR NOT pcs)
  message(FATAL_ERROR "no CMake package or pkg-config file in ${installed}")
endif()

# The CMake package.
run(${CMAKE_COMMAND} -S ${SRC}/examples/host -B ${WORK}/host -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK}/host)
run(${WORK}/host/vexor_host)
checkoutput("${out}")
run(${CMAKE_COMMAND} -S ${SRC}/examples/c-host -B ${WORK}/c-host -G ${GENERATOR}
    -DCMAKE_C_COMPILER=${CC} -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_C_FLAGS=${FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}")
run(${CMAKE_COMMAND} --build ${WORK}/c-host)
run(${WORK}/c-host/vexor_c_host)
checkcoutput("${out}")
message(STATUS "CMake package: the C++ and C hosts ran")

# pkg-config.
find_program(PKG_CONFIG pkg-config)
if(NOT PKG_CONFIG)
  message(STATUS "pkg-config is not installed: vexor.pc not checked")
  return()
endif()
list(GET pcs 0 pc)
get_filename_component(pcdir ${pc} DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
run(${PKG_CONFIG} --cflags --libs vexor)
string(STRIP "${out}" pkgflags)
if(NOT pkgflags MATCHES "-I[^ ]*/include" OR NOT pkgflags MATCHES "-lvexor")
  message(FATAL_ERROR "pkg-config --cflags --libs vexor gave: ${pkgflags}")
endif()
run(${PKG_CONFIG} --modversion vexor)
if(NOT out MATCHES "^5\\.4")
  message(FATAL_ERROR "pkg-config --modversion vexor gave: ${out}")
endif()
separate_arguments(pkglist UNIX_COMMAND "${pkgflags}")
separate_arguments(flaglist UNIX_COMMAND "${FLAGS}")
string(REGEX MATCH "-L([^ ]+)" _ "${pkgflags}")
set(libdir ${CMAKE_MATCH_1})
run(${CXX} ${flaglist} ${SRC}/examples/host/host.cpp ${pkglist} -Wl,-rpath,${libdir}
    -o ${WORK}/host/vexor_host_pc)
run(${WORK}/host/vexor_host_pc)
checkoutput("${out}")
run(${CC} ${flaglist} ${SRC}/examples/c-host/host.c ${pkglist} -Wl,-rpath,${libdir}
    -o ${WORK}/host/vexor_c_host_pc)
run(${WORK}/host/vexor_c_host_pc)
checkcoutput("${out}")
message(STATUS "pkg-config: the C++ and C hosts ran")
