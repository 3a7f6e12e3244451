// Arbitrary bytes as a string list's memory record: the bounded reader must refuse or give a
// list whose own record reads back to the same list.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "basert/memory.h"
#include "fuzz_support.h"
#include "kbase/text/UtCStringList.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    UtCStringList l;
    uint64_t offset = 0;
    if (!l.ReadFromMem(data, size, offset)) {
        if (offset != 0) std::abort();
        return 0;
    }
    if (offset > size || offset < 6) std::abort();
    for (long i = 0; i < l.count(); ++i) (void)l[i].hash();
    l.Sort();
    // A record may name an encoding that a copy resolves (256, the system's), so the copies in
    // the list need not write the input back; what they write must read back to the same list
    // and write the same bytes again.
    unsigned char* block = nullptr;
    uint64_t written = 0;
    if (l.SaveToMem(&block, written)) {
        UtCStringList back;
        uint64_t at = 0;
        if (!back.ReadFromMem(block, written, at) || at != written || back.CompareTo(l) != 0) std::abort();
        unsigned char* again = nullptr;
        uint64_t size = 0;
        if (back.SaveToMem(&again, size) && (size != written || std::memcmp(again, block, size) != 0)) std::abort();
        UtFreeMemory(again);
    }
    UtFreeMemory(block);
    return 0;
}
