# CSV reading and table operations beside fast-cpp-csv-parser (libfccp-dev), SQLite and pandas
# (python3-pandas, run as /usr/bin/python3). Data files are generated into the temporary folder
# on first use and reused.
find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)
find_path(FCCP_INCLUDE_DIR libfccp/csv.h)
if(FCCP_INCLUDE_DIR)
  kbase_add_bench(csv_bench SOURCES csv_bench.cpp LIBS kbase1 Threads::Threads)
  target_include_directories(csv_bench PRIVATE ${FCCP_INCLUDE_DIR})
else()
  message(STATUS "csv_bench left out: fast-cpp-csv-parser not found (run bench/install_peers.sh)")
endif()
kbase_add_bench(table_bench SOURCES table_bench.cpp LIBS kbase1 SQLite::SQLite3)
# Records (raw and quoted) and the describe pass beside the line tokenizer, on generated data.
kbase_add_bench(csv_record_bench SOURCES csv_record_bench.cpp LIBS kbase1)
