// Arbitrary bytes into every XDR decode codec, the bit list reader and the checked stream's header
// reading. Layout of an input: byte 0 picks the handle (memory block, stdio memory stream without
// descriptor, memfd read through a descriptor, memfd read through stdio, checked stream); bytes
// 1..8 are the program, one codec per byte, run in a cycle; the rest is the XDR data.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "basert/memory.h"
#include "basert/xdr.h"
#include "fuzz_support.h"
#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"
#include "kbase/streams/XdrStream.h"
#include "kbase/text/UtBitList.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

constexpr size_t kProgram = 8;
constexpr int kMaxSteps = 256;

// One decode step; returns the codec's status.
int Step(XD_XDR_STRUCT* x, uint8_t op) {
    switch (op % 28) {
        case 0: {
            int v;
            return Xdr_INT(x, &v);
        }
        case 1: {
            long v;
            return Xdr_SLONG(x, &v);
        }
        case 2: {
            unsigned long v;
            return Xdr_ULONG(x, &v);
        }
        case 3: {
            short v;
            return Xdr_SSHORT(x, &v);
        }
        case 4: {
            unsigned short v;
            return Xdr_USHORT(x, &v);
        }
        case 5: {
            char v;
            return Xdr_CHAR(x, &v);
        }
        case 6: {
            unsigned char v;
            return Xdr_UBYTE(x, &v);
        }
        case 7: {
            float v;
            return Xdr_FLOAT(x, &v);
        }
        case 8: {
            double v;
            return Xdr_REAL(x, &v);
        }
        case 9: {
            unsigned long long v;
            return Xdr_ULONG64(x, &v);
        }
        case 10: {
            long long v;
            return Xdr_LONG64(x, &v);
        }
        case 11: {
            XdrFilePos v;
            return Xdr_F_POS(x, &v);
        }
        case 12: {
            void* v;
            return Xdr_POINTER(x, &v);
        }
        case 13: {
            IPT v;
            return Xdr_IPT(x, &v);
        }
        case 14: {
            RPT v;
            return Xdr_RPT(x, &v);
        }
        case 15: {
            RPT3 v;
            return Xdr_RPT3(x, &v);
        }
        case 16: {
            RPT3H v;
            return Xdr_RPT3H(x, &v);
        }
        case 17: {
            FPT3 v;
            return Xdr_FPT3(x, &v);
        }
        case 18: {
            UT_MAT44 m;
            return Xdr_UT_MAT44(x, m);
        }
        case 19: {  // into a caller's buffer with a limit
            char buffer[64];
            char* p = buffer;
            const int ok = Xdr_STRING(x, &p, sizeof buffer - 1);
            if (ok && std::strlen(buffer) >= sizeof buffer) __builtin_trap();
            return ok;
        }
        case 20: {  // allocated, limited
            char* p = nullptr;
            const int ok = Xdr_STRING(x, &p, 4096);
            UtFreeMemory(p);
            return ok;
        }
        case 21: {
            char* p = nullptr;
            const int ok = Xdr_A_STRING(x, &p);
            UtFreeMemory(p);
            return ok;
        }
        case 22: {
            char* p = nullptr;
            uint32_t n = 0;
            const int ok = Xdr_A_STRING_N(x, &p, &n);
            if (ok && p[n] != '\0') __builtin_trap();
            UtFreeMemory(p);
            return ok;
        }
        case 23: {
            unsigned char t, ma, mi, how;
            char sub;
            return OsMagicRead(x, &t, &ma, &mi, &sub, &how) == kXdMagicOk;
        }
        case 24: {
            XdrDeStream s(x);
            UtBitList bits;
            s >> bits;
            if (bits.count() > 0 && bits.size() <= bits.count() / 32) __builtin_trap();
            return 1;
        }
        case 25: {
            XdrDeStream s(x);
            std::string text;
            return s.Xdr(&text);
        }
        case 26:
            return Xdr_setpos(x, XdrFilePos{op / 28u * 4u});
        default:
            return Xdr_setpos(x, XdrFilePos{Xdr_getpos(x).value + 1});  // misaligned on purpose
    }
}

void RunProgram(XD_XDR_STRUCT* x, const uint8_t* program) {
    int failures = 0;
    for (int i = 0; i < kMaxSteps && failures < 16; ++i) {
        failures = Step(x, program[i % kProgram]) ? 0 : failures + 1;
    }
}

// A descriptor holding the data, or -1.
int MemFile(const uint8_t* data, size_t size) {
    const int fd = memfd_create("xdr_fuzz", MFD_CLOEXEC);
    if (fd < 0) return -1;
    if (size > 0 && write(fd, data, size) != static_cast<ssize_t>(size)) {
        close(fd);
        return -1;
    }
    lseek(fd, 0, SEEK_SET);
    return fd;
}

void CheckedStream(FILE* f, const uint8_t* program) {
    XdIStream in;
    if (in.Open(f, "r") != 0) return;
    int failures = 0;
    for (int i = 0; i < kMaxSteps && failures < 16; ++i) {
        try {
            switch (program[i % kProgram] % 8) {
                case 0: {
                    int v;
                    in >> v;
                    break;
                }
                case 1: {
                    unsigned long v;
                    in >> v;
                    break;
                }
                case 2: {
                    double v;
                    in >> v;
                    break;
                }
                case 3: {
                    char v;
                    in >> v;
                    break;
                }
                case 4: {
                    char buffer[XdIStream::kMaxText + 1];
                    in >> buffer;
                    break;
                }
                case 5: {
                    char* p = nullptr;
                    in >> &p;
                    UtFreeMemory(p);
                    break;
                }
                case 6: {
                    short v;
                    in >> v;
                    break;
                }
                default: {
                    std::unique_ptr<UtIStream> dup(in.Dup());
                    if (dup) {
                        float v;
                        *dup >> v;
                    }
                    break;
                }
            }
            failures = 0;
        } catch (const kbase::ExRead&) {
            ++failures;
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 + kProgram) return 0;
    const uint8_t kind = data[0] % 5;
    const uint8_t* program = data + 1;
    std::vector<uint8_t> bytes(data + 1 + kProgram, data + size);
    XD_XDR_STRUCT x{};
    switch (kind) {
        case 0:
            if (XdOpenMemIo(&x, bytes.data(), bytes.size(), XDR_DECODE)) RunProgram(&x, program);
            break;
        case 1: {
            FILE* f = bytes.empty() ? nullptr : fmemopen(bytes.data(), bytes.size(), "rb");
            if (f != nullptr && XdOpenXdrStdIo(&x, f, XDR_DECODE)) RunProgram(&x, program);
            XdClose(&x);
            if (f != nullptr) std::fclose(f);
            break;
        }
        case 2: {
            const int fd = MemFile(bytes.data(), bytes.size());
            if (fd >= 0 && XdOpenFdIo(&x, fd, XDR_DECODE)) RunProgram(&x, program);
            XdClose(&x);
            if (fd >= 0) close(fd);
            break;
        }
        case 3: {
            const int fd = MemFile(bytes.data(), bytes.size());
            FILE* f = fd >= 0 ? fdopen(fd, "rb") : nullptr;
            if (f != nullptr && XdOpenUtFileIo(&x, f, XDR_DECODE)) RunProgram(&x, program);
            XdClose(&x);
            if (f != nullptr) {
                std::fclose(f);
            } else if (fd >= 0) {
                close(fd);
            }
            break;
        }
        default: {
            FILE* f = bytes.empty() ? nullptr : fmemopen(bytes.data(), bytes.size(), "rb");
            if (f != nullptr) {
                CheckedStream(f, program);
                std::fclose(f);
            }
            break;
        }
    }
    return 0;
}
