file(REMOVE_RECURSE ${PREFIX} ${CONSUMER_BUILD})
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
  endif()
endfunction()
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})

# The installed program runs from the install tree alone: it finds the installed libraries
# through its own run path, not through the build tree or the environment.
if(PROGRAM)
  set(kbase ${PREFIX}/${BINDIR}/${PROGRAM})
  set(ENV{LD_LIBRARY_PATH} "")
  execute_process(COMMAND ${kbase} --version RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  string(STRIP "${out}" out)
  if(NOT rc EQUAL 0 OR NOT out STREQUAL VERSION)
    message(FATAL_ERROR "installed kbase --version: status ${rc}, output \"${out}\"")
  endif()
  string(ASCII 75 246 108 110 10 latin)  # "Köln" and a line feed in Windows-1252
  file(WRITE ${PREFIX}/in.txt "${latin}")
  run(${kbase} recode --from 1252 --to 65001 ${PREFIX}/in.txt ${PREFIX}/out.txt)
  file(READ ${PREFIX}/out.txt utf8)
  if(NOT utf8 STREQUAL "Köln\n")
    message(FATAL_ERROR "installed kbase recode wrote \"${utf8}\"")
  endif()
endif()

# The pkg-config file names the tree it lies in, wherever that was installed.
file(GLOB pc ${PREFIX}/lib/pkgconfig/kbase.pc ${PREFIX}/lib/*/pkgconfig/kbase.pc)
if(NOT pc)
  message(FATAL_ERROR "no pkg-config file installed")
endif()
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  get_filename_component(pc_dir ${pc} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pc_dir})
  foreach(var includedir libdir)
    execute_process(COMMAND ${PKG_CONFIG} --variable=${var} kbase RESULT_VARIABLE rc
                    OUTPUT_VARIABLE ${var} ERROR_VARIABLE err OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT rc EQUAL 0)
      message(FATAL_ERROR "pkg-config --variable=${var} kbase: ${err}")
    endif()
  endforeach()
  file(GLOB libs ${libdir}/libkbase1.*)
  if(NOT EXISTS ${includedir}/kbase/tables/UtCCsvReader.h OR NOT libs)
    message(FATAL_ERROR "pkg-config names ${includedir} and ${libdir}, not the install tree")
  endif()
endif()
run(${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${CONSUMER_BUILD} -G ${GENERATOR}
    -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_FLAGS=${FLAGS} -DCMAKE_BUILD_TYPE=Debug)
run(${CMAKE_COMMAND} --build ${CONSUMER_BUILD})

# The consumer is the README's example: it lists the columns of a CSV file, titles in UTF-8.
# A title line and two rows in Windows-1252, with decimal commas.
string(ASCII 228 a_umlaut)
string(ASCII 178 squared)
string(ASCII 246 o_umlaut)
string(ASCII 252 u_umlaut)
file(WRITE ${CONSUMER_BUILD}/cities.csv "Stadt;Fl${a_umlaut}che (km${squared});Einwohner\r\n"
     "K${o_umlaut}ln;405,15;1084831\r\nD${u_umlaut}sseldorf;217,41;620523\r\n")
execute_process(COMMAND ${CONSUMER_BUILD}/csv_columns ${CONSUMER_BUILD}/cities.csv
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
set(expected "delimiter ';', 2 data rows\n1 Stadt: text\n2 Fläche (km²): numbers\n3 Einwohner: numbers\n")
if(NOT rc EQUAL 0 OR NOT out STREQUAL expected)
  message(FATAL_ERROR "csv_columns: status ${rc}\n${out}${err}\nexpected:\n${expected}")
endif()
# A real file, when the shared data lie beside the source tree.
set(real ${DATA}/itnrw_genesis_33111-02ir_latin1_crlf.csv)
if(EXISTS ${real})
  execute_process(COMMAND ${CONSUMER_BUILD}/csv_columns ${real}
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "^delimiter ';', [0-9]+ data rows\n")
    message(FATAL_ERROR "csv_columns ${real}: status ${rc}\n${out}${err}")
  endif()
  message(STATUS "csv_columns ${real}:\n${out}")
endif()
