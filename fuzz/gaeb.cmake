# The GAEB reader: arbitrary bytes through UtGAEB::Load, and what loads through a store-load-store
# round trip.
kbase_add_fuzzer(gaeb_fuzz SOURCES gaeb_fuzz.cpp LIBS kbase1)
