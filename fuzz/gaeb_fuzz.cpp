// Arbitrary bytes as a GAEB file for UtGAEB::Load. Whatever loads must store, load back and store
// again to the same bytes, with the same positions: the reader keeps what it does not model in a
// form that it reads back the same way.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "kbase/gaeb/UtGAEB.h"

namespace {

std::string Stored(UtGAEB& g) {
    char* data = nullptr;
    size_t size = 0;
    FILE* f = open_memstream(&data, &size);
    if (f == nullptr) std::abort();
    g.SetFlag(0);
    if (g.Store(f, 0) != kGAEBOk) std::abort();
    std::fclose(f);
    std::string out(data, size);
    std::free(data);
    return out;
}

int Load(UtGAEB& g, const void* data, size_t size, UtGAEBLoadReport* report) {
    FILE* f = size == 0 ? std::tmpfile() : fmemopen(const_cast<void*>(data), size, "r");
    if (f == nullptr) std::abort();
    const int status = g.Load(f, report);
    std::fclose(f);
    return status;
}

int Positions(UtGAEBLVEntity* e) {
    if (e->GetLVEntityType() == eGAEBLVEntityPosition) return 1;
    auto* r = static_cast<UtGAEBLVBereich*>(e);
    int n = 0;
    for (int i = 0; i < r->GetLVEntityCount(); ++i) n += Positions(r->GetLVEntityPtr(i));
    return n;
}

int Positions(UtGAEB& g) {
    if (g.GetVergabePtr() == nullptr) return 0;
    UtGAEBLV* lv = g.GetVergabePtr()->GetLVPtr();
    int n = 0;
    for (int i = 0; i < lv->GetLVEntityCount(); ++i) n += Positions(lv->GetLVEntityPtr(i));
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    UtGAEB first;
    UtGAEBLoadReport report;
    const int status = Load(first, data, size, &report);
    if (status != kGAEBOk) {
        if (report.message.empty() || report.status != status) std::abort();
        return 0;
    }
    const std::string once = Stored(first);
    UtGAEB second;
    if (Load(second, once.data(), once.size(), &report) != kGAEBOk) std::abort();
    if (Stored(second) != once || Positions(second) != Positions(first)) std::abort();
    return 0;
}
