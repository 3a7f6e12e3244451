# Values read from XDR bytes, and variable substitution driven by arbitrary definitions and text.
kbase_add_fuzzer(services_fuzz SOURCES services_fuzz.cpp LIBS kbase1)
