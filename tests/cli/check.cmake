# vexor check: exit status, listing and dump, as a user sees them.
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)

execute_process(COMMAND ${VEXOR} check ${SRC}/examples/decay.vex
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
expect_rc(${rc} 0 "check of a good program")
expect_has("${out}" "   8: FUNCTION counts = a * exp(-k * t) + bg;\n" "the numbered program")
string(FIND "${out}" "\r" cr)
if(NOT cr EQUAL -1)
  message(FATAL_ERROR "the tool should print LF line ends")
endif()

file(WRITE ${WORK}/bad.vex "VARIABLES x, y;\nPARAMETERS a;\nFUNCTION y = a*q;\n")
execute_process(COMMAND ${VEXOR} check ${WORK}/bad.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 2 "check of a bad program")
expect_has("${out}" "     3: FUNCTION y = a*q;\nError: Unrecognized word or variable: q\n"
  "the error at its line")

execute_process(COMMAND ${VEXOR} check ${WORK}/missing.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 2 "a missing file")
if(NOT out STREQUAL "Error: Unable to open VEXOR source file: ${WORK}/missing.vex\n")
  message(FATAL_ERROR "a missing file is reported exactly, got: ${out}")
endif()

# A directory opens on some systems but cannot be read: the same message.
file(MAKE_DIRECTORY ${WORK}/adir.vex)
execute_process(COMMAND ${VEXOR} check ${WORK}/adir.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 2 "a directory")
if(NOT out STREQUAL "Error: Unable to open VEXOR source file: ${WORK}/adir.vex\n")
  message(FATAL_ERROR "a directory is reported as a file that cannot be read, got: ${out}")
endif()

execute_process(COMMAND ${VEXOR} check --dump ${SRC}/examples/decay.vex
  RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 0 "check --dump")
expect_has("${out}" "FUNCTION  counts = (+ (* a EXP((* (neg k) t))) bg)" "the dump of the model")

file(WRITE ${WORK}/open.vex "VARIABLES x, y;\n/* never closed\n")
execute_process(COMMAND ${VEXOR} check ${WORK}/open.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 1 "an open comment")
expect_has("${out}" "Hit end of file while processing comment that started on line 2"
  "the open comment's message")

execute_process(COMMAND ${VEXOR} frobnicate RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET)
expect_rc(${rc} 3 "an unknown command")

# vexor run: 0 for a positive result code, 1 for 0 or a negative one, 2 when
# the program does not compile.
execute_process(COMMAND ${VEXOR} run ${SRC}/examples/decay.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 0 "run of a converging program")
expect_has("${out}" "   ----  Final Results  ----\n" "the final results")
expect_has("${out}" "         ----  95.000% Confidence Intervals  ----\n" "the intervals")
execute_process(COMMAND ${VEXOR} run ${SRC}/tests/golden/failed.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 1 "run of a program whose fit fails")
expect_has("${out}" "Stopped due to: Function cannot be computed at starting parameter values.\n"
  "the reason the fit failed")
execute_process(COMMAND ${VEXOR} run ${WORK}/bad.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 2 "run of a program that does not compile")
execute_process(COMMAND ${VEXOR} run ${WORK}/missing.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 2 "run of a missing file")
