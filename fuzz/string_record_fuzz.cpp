// Arbitrary bytes as a string's memory record: the bounded reader must refuse or produce a string
// whose every member stays inside its buffer, and which writes the same record back.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "basert/memory.h"
#include "fuzz_support.h"
#include "kbase/text/UtCString.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    UtCString s(eUtEncodingTypeAnsi1252);
    uint64_t offset = 0;
    while (offset < size) {
        const uint64_t before = offset;
        if (!s.ReadFromMem(data, size, offset)) break;
        if (offset <= before || offset > size) std::abort();
        // Exercise the members that index by the length field.
        (void)s.hash();
        (void)s.GetUtf16String();
        (void)s.substr(1, s.GetLength() / 2);
        (void)s.CompareTo(UtCString(u"x", eUtEncodingTypeUtf16));
        unsigned char* block = nullptr;
        uint64_t written = 0;
        if (s.SaveToMem(&block, written)) {
            // Written back byte for byte, except the version (not checked on reading) and the
            // encoding's upper half (the reader keeps 16 bits).
            if (written != offset - before || std::memcmp(block + 8, data + before + 8, 2) != 0 ||
                std::memcmp(block + 12, data + before + 12, written - 12) != 0) {
                std::abort();
            }
        }
        UtFreeMemory(block);
    }
    return 0;
}
