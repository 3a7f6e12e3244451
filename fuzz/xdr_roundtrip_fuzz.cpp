// Round trips through every XDR codec and every kind of handle. Layout of an input: byte 0 picks
// the handle (memory block, descriptor, stdio, the runtime's file routines); bytes 1..8 are the
// program, one item kind per byte, run in a cycle; the rest is the data. Properties:
//  - encode then decode: items made from the data's bytes come back bit for bit (NaN payloads
//    too), and an item encodes exactly when its value fits its wire width;
//  - decode then encode: the items decoded from the data, encoded again, give the bytes they were
//    read from (the padding of a text aside, and a char read from 128..255, which a signed char
//    writes back negative), and the position after each item is the sum of the wire sizes.
// The fuzz build makes a file handle's buffer a few bytes, so items straddle every refill.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "basert/memory.h"
#include "basert/xdr.h"
#include "fuzz_support.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

constexpr size_t kProgram = 8;
constexpr int kMaxItems = 64;

enum Kind {
    kInt,
    kSlong,
    kUlong,
    kSshort,
    kUshort,
    kChar,
    kUbyte,
    kFloat,
    kReal,
    kUlong64,
    kLong64,
    kFpos,
    kPointer,
    kIpt,
    kRpt,
    kRpt3,
    kRpt3h,
    kFpt3,
    kMat44,
    kText,
    kKinds
};

// The value of one item, as the bytes of its C type (a text: its bytes).
struct Item {
    Kind kind;
    std::string bytes;
};

size_t ValueSize(Kind k) {
    switch (k) {
        case kInt:
            return sizeof(int);
        case kSlong:
            return sizeof(long);
        case kUlong:
            return sizeof(unsigned long);
        case kSshort:
            return sizeof(short);
        case kUshort:
            return sizeof(unsigned short);
        case kChar:
            return 1;
        case kUbyte:
            return 1;
        case kFloat:
            return sizeof(float);
        case kReal:
            return sizeof(double);
        case kUlong64:
            return 8;
        case kLong64:
            return 8;
        case kFpos:
            return sizeof(XdrFilePos);
        case kPointer:
            return sizeof(void*);
        case kIpt:
            return sizeof(IPT);
        case kRpt:
            return sizeof(RPT);
        case kRpt3:
            return sizeof(RPT3);
        case kRpt3h:
            return sizeof(RPT3H);
        case kFpt3:
            return sizeof(FPT3);
        case kMat44:
            return sizeof(UT_MAT44);
        default:
            return 0;
    }
}

size_t WireSize(const Item& item) {
    switch (item.kind) {
        case kFloat:
        case kInt:
        case kSlong:
        case kUlong:
        case kSshort:
        case kUshort:
        case kChar:
        case kUbyte:
            return 4;
        case kIpt:
        case kReal:
        case kUlong64:
        case kLong64:
        case kFpos:
        case kPointer:
            return 8;
        case kRpt:
            return 16;
        case kRpt3:
            return 24;
        case kRpt3h:
            return 32;
        case kFpt3:
            return 12;
        case kMat44:
            return 128;
        default:
            return 4 + (item.bytes.size() + 3) / 4 * 4;
    }
}

// Runs the codec of item.kind on item.bytes (encode: from them; decode: into them).
int Code(XD_XDR_STRUCT* x, Item& item) {
    void* v = item.bytes.data();
    switch (item.kind) {
        case kInt:
            return Xdr_INT(x, static_cast<int*>(v));
        case kSlong:
            return Xdr_SLONG(x, static_cast<long*>(v));
        case kUlong:
            return Xdr_ULONG(x, static_cast<unsigned long*>(v));
        case kSshort:
            return Xdr_SSHORT(x, static_cast<short*>(v));
        case kUshort:
            return Xdr_USHORT(x, static_cast<unsigned short*>(v));
        case kChar:
            return Xdr_CHAR(x, static_cast<char*>(v));
        case kUbyte:
            return Xdr_UBYTE(x, static_cast<unsigned char*>(v));
        case kFloat:
            return Xdr_FLOAT(x, static_cast<float*>(v));
        case kReal:
            return Xdr_REAL(x, static_cast<double*>(v));
        case kUlong64:
            return Xdr_ULONG64(x, static_cast<unsigned long long*>(v));
        case kLong64:
            return Xdr_LONG64(x, static_cast<long long*>(v));
        case kFpos:
            return Xdr_F_POS(x, static_cast<XdrFilePos*>(v));
        case kPointer:
            return Xdr_POINTER(x, static_cast<void**>(v));
        case kIpt:
            return Xdr_IPT(x, static_cast<IPT*>(v));
        case kRpt:
            return Xdr_RPT(x, static_cast<RPT*>(v));
        case kRpt3:
            return Xdr_RPT3(x, static_cast<RPT3*>(v));
        case kRpt3h:
            return Xdr_RPT3H(x, static_cast<RPT3H*>(v));
        case kFpt3:
            return Xdr_FPT3(x, static_cast<FPT3*>(v));
        case kMat44:
            return Xdr_UT_MAT44(x, *static_cast<UT_MAT44*>(v));
        default: {
            if (x->x_op == XDR_ENCODE) {
                char* p = item.bytes.data();
                uint32_t n = static_cast<uint32_t>(item.bytes.size());
                return Xdr_A_STRING_N(x, &p, &n);
            }
            char* p = nullptr;
            uint32_t n = 0;
            if (!Xdr_A_STRING_N(x, &p, &n)) return 0;
            if (p[n] != '\0') std::abort();
            item.bytes.assign(p, n);
            UtFreeMemory(p);
            return 1;
        }
    }
}

// Whether the value fits its wire form (only the 64-bit longs can hold more).
bool Fits(const Item& item) {
    if (item.kind == kSlong) {
        long v;
        std::memcpy(&v, item.bytes.data(), sizeof v);
        return v >= INT32_MIN && v <= INT32_MAX;
    }
    if (item.kind == kUlong) {
        unsigned long v;
        std::memcpy(&v, item.bytes.data(), sizeof v);
        return v <= UINT32_MAX;
    }
    return true;
}

// A handle of the chosen kind over a memory file (or the block itself for kind 0).
struct Handle {
    XD_XDR_STRUCT x{};
    int fd = -1;
    FILE* file = nullptr;

    bool Open(int kind, std::vector<unsigned char>& block, xdr_op op, const void* content,
              size_t size) {
        if (kind == 0) return XdOpenMemIo(&x, block.data(), block.size(), op) != 0;
        fd = memfd_create("xdr_roundtrip", MFD_CLOEXEC);
        if (fd < 0) std::abort();
        if (size > 0 && write(fd, content, size) != static_cast<ssize_t>(size)) std::abort();
        lseek(fd, 0, SEEK_SET);
        if (kind == 1) return XdOpenFdIo(&x, fd, op) != 0;
        file = fdopen(fd, op == XDR_ENCODE ? "w+b" : "rb");
        if (file == nullptr) std::abort();
        return (kind == 2 ? XdOpenXdrStdIo(&x, file, op) : XdOpenUtFileIo(&x, file, op)) != 0;
    }
    // The bytes of the file (or block) after the handle is closed.
    std::string Close(const std::vector<unsigned char>& block, size_t used) {
        if (XdClose(&x) == 0) std::abort();
        std::string out;
        if (fd < 0) return std::string(reinterpret_cast<const char*>(block.data()), used);
        if (file != nullptr) std::fflush(file);
        const off_t end = lseek(fd, 0, SEEK_END);
        out.resize(static_cast<size_t>(end));
        if (pread(fd, out.data(), out.size(), 0) != static_cast<ssize_t>(out.size())) std::abort();
        if (file != nullptr)
            std::fclose(file);
        else
            close(fd);
        fd = -1;
        file = nullptr;
        return out;
    }
};

// Items made from the data's bytes.
std::vector<Item> MakeItems(const uint8_t* program, const uint8_t* data, size_t size) {
    std::vector<Item> items;
    size_t at = 0;
    for (int i = 0; i < kMaxItems && at < size; ++i) {
        Item item{static_cast<Kind>(program[i % kProgram] % kKinds), {}};
        size_t n = ValueSize(item.kind);
        if (item.kind == kText) {
            n = data[at++] % 48;
        }
        n = std::min(n, size - at);
        item.bytes.assign(reinterpret_cast<const char*>(data + at), n);
        at += n;
        if (item.kind != kText) item.bytes.resize(ValueSize(item.kind), '\0');
        items.push_back(item);
    }
    return items;
}

void EncodeThenDecode(int kind, const uint8_t* program, const uint8_t* data, size_t size) {
    std::vector<Item> items = MakeItems(program, data, size);
    // The memory handle's block holds what the items can fill and no more, so that a write past
    // them is an overflow; the file handles use none.
    size_t room = 0;
    for (const Item& item : items) room += WireSize(item);
    std::vector<unsigned char> block(kind == 0 ? std::max<size_t>(room, 1) : 0);
    Handle out;
    if (!out.Open(kind, block, XDR_ENCODE, nullptr, 0)) std::abort();
    std::vector<Item> written;
    size_t wire = 0;
    for (Item& item : items) {
        const bool ok = Code(&out.x, item) != 0;
        if (ok != Fits(item)) std::abort();
        if (ok) {
            written.push_back(item);
            wire += WireSize(item);
        }
    }
    const std::string bytes = out.Close(block, wire);
    if (bytes.size() != wire) std::abort();
    if (wire == 0) return;

    std::vector<unsigned char> readBlock(bytes.begin(), bytes.end());
    Handle in;
    if (!in.Open(kind, readBlock, XDR_DECODE, bytes.data(), bytes.size())) std::abort();
    for (const Item& item : written) {
        Item back{item.kind, std::string(item.bytes.size(), '\x55')};
        if (!Code(&in.x, back) || back.bytes != item.bytes) std::abort();
    }
    Item extra{kInt, std::string(sizeof(int), '\0')};
    if (Code(&in.x, extra)) std::abort();  // nothing behind the last item
    in.Close(readBlock, 0);
}

void DecodeThenEncode(int kind, const uint8_t* program, const uint8_t* data, size_t size) {
    if (size == 0) return;
    std::vector<unsigned char> block(data, data + size);
    Handle in;
    if (!in.Open(kind, block, XDR_DECODE, data, size)) std::abort();
    std::vector<Item> items;
    std::vector<size_t> starts;
    size_t at = 0;
    for (int i = 0; i < kMaxItems; ++i) {
        Item item{static_cast<Kind>(program[i % kProgram] % kKinds), {}};
        item.bytes.assign(ValueSize(item.kind), '\0');
        if (!Code(&in.x, item)) break;
        starts.push_back(at);
        at += WireSize(item);
        if (at > size || Xdr_getpos(&in.x).value != at) std::abort();
        items.push_back(item);
    }
    in.Close(block, 0);

    std::vector<unsigned char> again(at + 4);
    XD_XDR_STRUCT out{};
    if (!XdOpenMemIo(&out, again.data(), again.size(), XDR_ENCODE)) std::abort();
    for (size_t i = 0; i < items.size(); ++i) {
        if (!Code(&out, items[i])) std::abort();
        const unsigned char* was = data + starts[i];
        const unsigned char* now = again.data() + starts[i];
        size_t compared = WireSize(items[i]);
        if (items[i].kind == kText) compared = 4 + items[i].bytes.size();  // padding is not checked
        if (items[i].kind == kChar && was[0] == 0 && was[1] == 0 && was[2] == 0 && was[3] >= 128) {
            if (std::memcmp(now, "\xFF\xFF\xFF", 3) != 0 || now[3] != was[3]) std::abort();
            continue;
        }
        if (std::memcmp(was, now, compared) != 0) std::abort();
    }
    XdClose(&out);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 + kProgram) return 0;
    const int kind = data[0] % 4;
    const uint8_t* program = data + 1;
    data += 1 + kProgram;
    size -= 1 + kProgram;
    EncodeThenDecode(kind, program, data, size);
    DecodeThenEncode(kind, program, data, size);
    return 0;
}
