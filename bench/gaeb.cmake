# GAEB bills stored and loaded beside plain fwrite and fread of the same bytes.
kbase_add_bench(gaeb_bench SOURCES gaeb_bench.cpp LIBS kbase1)
