# Every XDR decode codec, the bit list reader and the checked stream's header on arbitrary bytes.
kbase_add_fuzzer(xdr_fuzz SOURCES xdr_fuzz.cpp LIBS kbase1)
