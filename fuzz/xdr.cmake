# Every XDR decode codec, the bit list reader and the checked stream's header on arbitrary bytes.
kbase_add_fuzzer(xdr_fuzz SOURCES xdr_fuzz.cpp LIBS kbase1)
# Encode-then-decode and decode-then-encode through every codec and every kind of handle.
kbase_add_fuzzer(xdr_roundtrip_fuzz SOURCES xdr_roundtrip_fuzz.cpp LIBS kbase1)
