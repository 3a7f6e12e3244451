# Runs PROGRAM and compares its standard output byte for byte with the file EXPECTED.
execute_process(COMMAND "${PROGRAM}" OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE rc)
file(READ "${EXPECTED}" expected)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} exited with ${rc}\n${err}")
endif()
if(NOT out STREQUAL expected)
  message(FATAL_ERROR "output differs from ${EXPECTED}\n--- got:\n${out}\n--- expected:\n${expected}")
endif()
