// libtirpc's encodings as recorded by the POSIX run of the XDR tests, for systems without it.
// Each encoding the tests ask of the oracle is one line of tirpc_recording.txt: a digest of the
// items (kinds and values), the length and a digest of libtirpc's bytes, and the bytes themselves
// when they are short. On POSIX every encoding is checked against the recording (so it cannot go
// stale); on Windows the recording stands in for libtirpc.
//
// Regenerate after changing what the tests encode (run the program itself: CTest runs one test
// per process and would keep only the last one's encodings):
//   KBASE_XDR_RECORD=1 KBASE_SOURCE_DIR=$PWD build/dev/tests/streams/xdr_tests
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tirpc_oracle.h"

namespace tirpc_recording {

struct Entry {
    uint64_t length = 0;
    uint64_t digest = 0;
    std::vector<unsigned char> bytes;  // empty when the encoding is long
};

uint64_t Digest(const unsigned char* data, size_t n);
// A digest of the items' kinds and values (floats by their bits).
uint64_t KeyOf(const std::vector<tirpc_oracle::Item>& items);

// The recorded encoding of the items, or null.
const Entry* Find(uint64_t key);
// Whether KBASE_XDR_RECORD asks for the recording to be written anew.
bool Recording();
// Notes libtirpc's bytes for the items (written when the program ends), and says whether they
// equal the recording; when they do not, names the file and how to regenerate it on stderr.
bool Check(uint64_t key, const std::vector<unsigned char>& bytes);

}  // namespace tirpc_recording
