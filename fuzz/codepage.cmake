# The code-page layer's streaming decoder, which reads whole files block by block.
kbase_add_fuzzer(codepage_decoder_fuzz SOURCES codepage_decoder_fuzz.cpp LIBS basert1)
