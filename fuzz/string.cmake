# Readers of outside data in the string class: the memory record and code-page bytes; and the
# number parsers and comparators, which see text from files and users.
kbase_add_fuzzer(string_record_fuzz SOURCES string_record_fuzz.cpp LIBS kbase1)
kbase_add_fuzzer(string_convert_fuzz SOURCES string_convert_fuzz.cpp LIBS kbase1)
kbase_add_fuzzer(string_number_fuzz SOURCES string_number_fuzz.cpp LIBS kbase1)
kbase_add_fuzzer(string_compare_fuzz SOURCES string_compare_fuzz.cpp LIBS kbase1)
