# Runs the kbase program (through EMULATOR when given) on the sample: 1252 -> UTF-8 (NFC) -> 1252
# must give the same bytes.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK})
execute_process(COMMAND ${EMULATOR} ${KBASE} recode --from 1252 --to 65001 --normalize C ${SAMPLE} ${WORK}/utf8.txt
                RESULT_VARIABLE rc1)
execute_process(COMMAND ${EMULATOR} ${KBASE} recode --from 65001 --to 1252 ${WORK}/utf8.txt ${WORK}/back.txt
                RESULT_VARIABLE rc2)
if(NOT rc1 EQUAL 0 OR NOT rc2 EQUAL 0)
  message(FATAL_ERROR "kbase recode failed: ${rc1} ${rc2}")
endif()
file(READ ${WORK}/utf8.txt utf8)
string(FIND "${utf8}" "Königstraße" found)
if(found LESS 0)
  message(FATAL_ERROR "the UTF-8 output lacks the umlauts: ${utf8}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${SAMPLE} ${WORK}/back.txt RESULT_VARIABLE same)
if(NOT same EQUAL 0)
  message(FATAL_ERROR "the round trip changed the bytes")
endif()
