// Arbitrary bytes as a string list's memory record: the bounded reader must refuse or give a
// list that writes the same record back.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "basert/memory.h"
#include "kbase/text/UtCStringList.h"

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
    unsigned char* block = nullptr;
    uint64_t written = 0;
    if (l.SaveToMem(&block, written) && written != offset) std::abort();
    UtFreeMemory(block);
    return 0;
}
