# Readers of outside data in the string class: the memory record and code-page bytes.
kbase_add_fuzzer(string_record_fuzz SOURCES string_record_fuzz.cpp LIBS kbase1)
kbase_add_fuzzer(string_convert_fuzz SOURCES string_convert_fuzz.cpp LIBS kbase1)
