# Runs PROGRAM (through EMULATOR when given) and compares its standard output byte for byte with
# the file EXPECTED; with WINDOWS set, line ends CR LF (a Windows program's text output) count as LF.
execute_process(COMMAND ${EMULATOR} "${PROGRAM}" OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
if(WINDOWS)
  string(REPLACE "\r\n" "\n" out "${out}")
endif()
file(READ "${EXPECTED}" expected)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} exited with ${rc}\n${err}")
endif()
if(NOT out STREQUAL expected)
  message(FATAL_ERROR "output differs from ${EXPECTED}\n--- got:\n${out}\n--- expected:\n${expected}")
endif()
