# Readers of outside data in the tables area: CSV files (both readers, the quoted mode with a
# round trip) and the string list record.
kbase_add_fuzzer(csv_reader_fuzz SOURCES csv_reader_fuzz.cpp LIBS kbase1)
kbase_add_fuzzer(csv_quoted_fuzz SOURCES csv_quoted_fuzz.cpp LIBS kbase1)
kbase_add_fuzzer(csv_table_fuzz SOURCES csv_table_fuzz.cpp LIBS kbase1)
kbase_add_fuzzer(stringlist_record_fuzz SOURCES stringlist_record_fuzz.cpp LIBS kbase1)
