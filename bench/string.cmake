# UtCString beside direct ICU calls and std::string.
kbase_add_bench(string_bench SOURCES string_bench.cpp LIBS kbase1 ICU::uc)
