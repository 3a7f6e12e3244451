# UtCPtrList beside std::vector<void*>.
kbase_add_bench(ptrlist_bench SOURCES ptrlist_bench.cpp LIBS kbase1)
