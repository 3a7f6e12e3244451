# Every XDR decode codec, the bit list reader and the checked stream's header on arbitrary bytes.
kbase_add_fuzzer(xdr_fuzz SOURCES xdr_fuzz.cpp LIBS kbase1)
# Encode-then-decode and decode-then-encode through every codec and every kind of handle.
kbase_add_fuzzer(xdr_roundtrip_fuzz SOURCES xdr_roundtrip_fuzz.cpp LIBS kbase1)
# The checked stream opened on a file by name: reading any file, and a write-read round trip.
kbase_add_fuzzer(xdstdio_fuzz SOURCES xdstdio_fuzz.cpp LIBS kbase1)
