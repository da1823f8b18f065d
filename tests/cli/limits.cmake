# vexor run on hostile programs: endless loops stopped by the time limit and
# by signals, output files that would overwrite the program or its data,
# files a failed fit wrote, writes that fail, data that are not finite.
# Each case is named after its input.
include(${CMAKE_CURRENT_LIST_DIR}/expect.cmake)

set(head "VARIABLES x, y;\nPARAMETERS a = 1;\n")
set(data "DATA;\n1 2.1\n2 3.9\n3 6.2\n")

# WHILE (1) ;  FOR (;;) ;  DO ... WHILE (1);  with --time-limit 0.5: each run
# stops, prints its listing with the abort, and exits 124.
set(loop_while "${head}DOUBLE z;\nWHILE (1) ;\nFUNCTION y = a*x;\n${data}")
set(loop_for "${head}DOUBLE z;\nFOR (;;) ;\nFUNCTION y = a*x;\n${data}")
set(loop_do "${head}DOUBLE z;\nDO z = z + 1; WHILE (1);\nFUNCTION y = a*x;\n${data}")
foreach(kind while for do)
  file(WRITE ${WORK}/loop_${kind}.vex "${loop_${kind}}")
  execute_process(COMMAND ${VEXOR} run --time-limit 0.5 ${WORK}/loop_${kind}.vex
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 60)
  expect_rc(${rc} 124 "an endless ${kind} loop with --time-limit")
  expect_has("${out}" "Error: Aborting analysis...\n" "the abort in the listing (${kind})")
  expect_has("${out}" "Stopped due to: Analysis was aborted\n" "the stop reason (${kind})")
  expect_has("${err}" "vexor: the time limit of 0.5 seconds was reached; the fit was stopped"
    "the time limit's message (${kind})")
endforeach()
execute_process(COMMAND ${VEXOR} run --time-limit=0.25 ${WORK}/loop_for.vex
  RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET TIMEOUT 60)
expect_rc(${rc} 124 "--time-limit=SECONDS")
foreach(bad "0" "-1" "x" "1e999")
  execute_process(COMMAND ${VEXOR} run --time-limit ${bad} ${WORK}/loop_for.vex
    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err TIMEOUT 60)
  expect_rc(${rc} 3 "--time-limit ${bad}")
  expect_has("${err}" "vexor: run: --time-limit needs a number of seconds above 0, not ${bad}"
    "the refused time limit ${bad}")
endforeach()

# An endless loop that says once that it runs, stopped by SIGINT and by
# SIGTERM once it has said so (so that even a slow start on a loaded machine
# is inside the loop): the listing so far, 130 and 143.
file(WRITE ${WORK}/loop_said.vex
  "${head}DOUBLE z, k;\nWHILE (1) { IF (k == 0) z = PRINTF(\"looping\\n\"); k = 1; }\nFUNCTION y = a*x;\n${data}")
find_program(SH sh)
if(SH)
  foreach(sig INT TERM)
    file(REMOVE ${WORK}/sig.out ${WORK}/sig.err ${WORK}/sig.rc)
    execute_process(COMMAND ${SH} -c
      "'${VEXOR}' run '${WORK}/loop_said.vex' > '${WORK}/sig.out' 2> '${WORK}/sig.err' & pid=$!
       i=0; while [ $i -lt 600 ] && ! grep -q looping '${WORK}/sig.out' 2>/dev/null; do sleep 0.1; i=$((i+1)); done
       kill -${sig} $pid; wait $pid; echo $? > '${WORK}/sig.rc'"
      TIMEOUT 120)
    file(READ ${WORK}/sig.rc rc)
    string(STRIP "${rc}" rc)
    file(READ ${WORK}/sig.out out)
    file(READ ${WORK}/sig.err err)
    if(sig STREQUAL INT)
      expect_rc(${rc} 130 "SIGINT during an endless loop")
      expect_has("${err}" "vexor: interrupted; the listing ends where the run stopped" "SIGINT's note")
    else()
      expect_rc(${rc} 143 "SIGTERM during an endless loop")
      expect_has("${err}" "vexor: terminated; the listing ends where the run stopped" "SIGTERM's note")
    endif()
    expect_has("${out}" "Stopped due to: Analysis was aborted\n" "the listing after SIG${sig}")
  endforeach()
endif()

# OUTPUT naming the program file, POUTPUT naming the data file, and both
# naming one file: refused before the fit, the files unchanged.
file(WRITE ${WORK}/self.vex "${head}OUTPUT \"self.vex\" x, y;\nFUNCTION y = a*x;\n${data}")
file(READ ${WORK}/self.vex before)
execute_process(COMMAND ${VEXOR} run self.vex WORKING_DIRECTORY ${WORK}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
expect_rc(${rc} 3 "OUTPUT naming the program file")
expect_has("${err}" "vexor: self.vex: OUTPUT would overwrite the program file self.vex; nothing was run"
  "the refusal names the file")
file(READ ${WORK}/self.vex after)
if(NOT before STREQUAL after)
  message(FATAL_ERROR "the program file was changed")
endif()
file(WRITE ${WORK}/pdata.dat "1 2.1\n2 3.9\n3 6.2\n")
file(WRITE ${WORK}/pdata.vex "${head}POUTPUT \"pdata.dat\";\nFUNCTION y = a*x;\nDATA \"pdata.dat\";\n")
execute_process(COMMAND ${VEXOR} run pdata.vex WORKING_DIRECTORY ${WORK}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
expect_rc(${rc} 3 "POUTPUT naming the data file")
expect_has("${err}" "POUTPUT would overwrite the data file pdata.dat; nothing was run" "the data file")
file(READ ${WORK}/pdata.dat d)
if(NOT d STREQUAL "1 2.1\n2 3.9\n3 6.2\n")
  message(FATAL_ERROR "the data file was changed")
endif()
file(WRITE ${WORK}/both.par "old\n")
file(WRITE ${WORK}/both.vex "${head}OUTPUT \"both.par\" x;\nPOUTPUT \"both.par\";\nFUNCTION y = a*x;\n${data}")
execute_process(COMMAND ${VEXOR} run both.vex WORKING_DIRECTORY ${WORK}
  RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
expect_rc(${rc} 3 "OUTPUT and POUTPUT naming one file")
expect_has("${err}" "OUTPUT and POUTPUT name the same file both.par" "one file for both")

# OUTPUT and POUTPUT after a failed fit: the files are written as ever, and
# the tool warns that they hold an unconverged state.
file(WRITE ${WORK}/failedout.vex
  "${head}OUTPUT \"failedout\" x, y;\nPOUTPUT \"failedout\";\nFUNCTION y = a*sqrt(x - 5);\n${data}")
execute_process(COMMAND ${VEXOR} run failedout.vex WORKING_DIRECTORY ${WORK}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
expect_rc(${rc} 1 "a failed fit with output files")
expect_has("${err}" "vexor: warning: failedout.out holds the values of a fit that did not converge (result -2)"
  "the warning for the output file")
expect_has("${err}" "vexor: warning: failedout.par holds the values of a fit that did not converge (result -2)"
  "the warning for the parameter file")
expect_has("${err}" "failedout.vex: warning: the fit failed (result -2): the sums and statistics in the listing are not those of a fit"
  "the warning for the statistics")

# The listing to a full device, and OUTPUT files that cannot be written.
if(EXISTS /dev/full)
  execute_process(COMMAND ${VEXOR} run ${SRC}/examples/decay.vex OUTPUT_FILE /dev/full
    RESULT_VARIABLE rc ERROR_VARIABLE err)
  expect_rc(${rc} 4 "the listing to /dev/full")
  expect_has("${err}" "vexor: cannot write the listing to standard output: No space left on device"
    "the failed write of the listing")
  # (a name without a point would get the extension .out: /dev/./full keeps it)
  file(WRITE ${WORK}/fullout.vex "${head}OUTPUT \"/dev/./full\" x, y;\nFUNCTION y = a*x;\n${data}")
  execute_process(COMMAND ${VEXOR} run fullout.vex WORKING_DIRECTORY ${WORK}
    RESULT_VARIABLE rc OUTPUT_QUIET ERROR_VARIABLE err)
  expect_rc(${rc} 4 "OUTPUT to /dev/./full")
  expect_has("${err}" "vexor: /dev/./full could not be written" "the failed output file")
endif()
file(WRITE ${WORK}/noout.vex "${head}OUTPUT \"/no/such/dir/out\" x, y;\nFUNCTION y = a*x;\n${data}")
execute_process(COMMAND ${VEXOR} run noout.vex WORKING_DIRECTORY ${WORK}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
expect_rc(${rc} 4 "OUTPUT to a directory that does not exist")
expect_has("${out}" "Error: unable to open output file: /no/such/dir/out.out\n" "the listing's message")
expect_has("${err}" "vexor: /no/such/dir/out.out could not be written" "the tool's message")

# 1e400 in a record (infinite), and an infinite x: the tool names the
# record and the variable; the fit goes on as the engine runs it.
file(WRITE ${WORK}/inf.vex "${head}FUNCTION y = a*x;\nDATA;\n1 2.1\n1e400 3.9\n3 6.2\n")
execute_process(COMMAND ${VEXOR} run inf.vex WORKING_DIRECTORY ${WORK}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
expect_has("${err}" "inf.vex: warning: data record 2, variable x: the value is infinite"
  "the infinite value")

# An unterminated /* : exit 1, as the usage text says.
file(WRITE ${WORK}/opencomment.vex "${head}/* never closed\n")
execute_process(COMMAND ${VEXOR} run ${WORK}/opencomment.vex RESULT_VARIABLE rc OUTPUT_VARIABLE out)
expect_rc(${rc} 1 "an unterminated comment")
expect_has("${out}" "Hit end of file while processing comment that started on line 3" "its message")
execute_process(COMMAND ${VEXOR} --help OUTPUT_VARIABLE help)
expect_has("${help}" "  1    the fit did not converge (its result code is 0 or negative), or a\n       comment is left open at the end of the program\n"
  "the exit status of an open comment in --help")

# A program file that is an endless device: reading stops at 1 GiB.
if(EXISTS /dev/zero)
  execute_process(COMMAND ${VEXOR} check /dev/./zero RESULT_VARIABLE rc OUTPUT_VARIABLE out TIMEOUT 120)
  expect_rc(${rc} 2 "a program file that is /dev/zero")
  expect_has("${out}" "Error: VEXOR source file is larger than 1073741824 bytes: /dev/./zero\n"
    "the message for an endless program file")
endif()
