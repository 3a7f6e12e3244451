// XdStdio, the checked stream opened on a file by name. Layout of an input: byte 0 holds the
// header fields' seed; bytes 1..8 are the program, one item kind per byte, run in a cycle; the
// rest is the data. Two runs per input:
//  - the data as a file: opened for reading, its header read (or found missing), then the items
//    of the program until one throws ExRead; nothing else may be thrown;
//  - a round trip: the header fields and items made from the data are written to a file, and that
//    file read back gives the same header fields and the same items, bit for bit, and then ends.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "basert/memory.h"
#include "fuzz_file.h"
#include "fuzz_support.h"
#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"
#include "kbase/text/UtCString.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

constexpr size_t kProgram = 8;
constexpr int kMaxItems = 48;
constexpr int kKinds = 11;

UtCString Path(const FuzzFile& f) {
    return UtCString(f.path().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}

// Reads one item of kind k; its bytes go to out.
void Read(XdIStream& in, int k, std::string& out) {
    auto take = [&](const auto& v) { out.assign(reinterpret_cast<const char*>(&v), sizeof v); };
    switch (k) {
        case 0: {
            char v;
            in >> v;
            take(v);
            break;
        }
        case 1: {
            unsigned char v;
            in >> v;
            take(v);
            break;
        }
        case 2: {
            short v;
            in >> v;
            take(v);
            break;
        }
        case 3: {
            unsigned short v;
            in >> v;
            take(v);
            break;
        }
        case 4: {
            long v;
            in >> v;
            take(v);
            break;
        }
        case 5: {
            unsigned long v;
            in >> v;
            take(v);
            break;
        }
        case 6: {
            int v;
            in >> v;
            take(v);
            break;
        }
        case 7: {
            float v;
            in >> v;
            take(v);
            break;
        }
        case 8: {
            double v;
            in >> v;
            take(v);
            break;
        }
        case 9: {
            char buffer[XdIStream::kMaxText + 1];
            in >> buffer;
            out = buffer;
            break;
        }
        default: {
            char* p = nullptr;
            in >> &p;
            out = p;
            UtFreeMemory(p);
            break;
        }
    }
}

// Writes an item of kind k made from the data at *at; its bytes as Read gives them go to out.
// The longs are kept in 32 bits, which their wire form holds.
void Write(XdOStream& o, int k, const uint8_t* data, size_t size, size_t& at, std::string& out) {
    auto from = [&](auto v) {
        std::memcpy(&v, data + at, std::min(sizeof v, size - at));
        at += std::min(sizeof v, size - at);
        return v;
    };
    auto put = [&](auto v) {
        o << v;
        out.assign(reinterpret_cast<const char*>(&v), sizeof v);
    };
    switch (k) {
        case 0:
            put(from(char{}));
            break;
        case 1:
            put(from(static_cast<unsigned char>(0)));
            break;
        case 2:
            put(from(short{}));
            break;
        case 3:
            put(from(static_cast<unsigned short>(0)));
            break;
        case 4:
            put(static_cast<long>(from(int32_t{})));
            break;
        case 5:
            put(static_cast<unsigned long>(from(uint32_t{})));
            break;
        case 6:
            put(from(int{}));
            break;
        case 7:
            put(from(float{}));
            break;
        case 8:
            put(from(double{}));
            break;
        default: {
            const size_t n = std::min<size_t>(data[at % size] % 40, size - at);
            std::string text(reinterpret_cast<const char*>(data + at), n);
            text = text.c_str();  // a text ends at its first NUL
            at += n;
            o << text.c_str();
            out = text;
            break;
        }
    }
}

void ReadFile(const uint8_t* program, const uint8_t* data, size_t size) {
    FuzzFile file(data, size);
    XdStdio s;
    try {
        s.Open(Path(file), UtCString("r"));
    } catch (const kbase::ExMain&) {
        std::abort();  // the file exists and is readable
    }
    std::string item;
    for (int i = 0; i < kMaxItems; ++i) {
        try {
            Read(s, program[i % kProgram] % kKinds, item);
        } catch (const kbase::ExRead&) {
            break;
        }
    }
}

void RoundTrip(uint8_t seed, const uint8_t* program, const uint8_t* data, size_t size) {
    FuzzFile file(data, 0);
    std::vector<std::pair<int, std::string>> items;
    {
        XdStdio out;
        out.SetFileType(seed);
        out.SetMajorVers(static_cast<unsigned char>(seed * 7));
        out.SetMinorVers(static_cast<unsigned char>(seed * 13));
        out.SetSubVers(static_cast<char>(seed ^ 0x5A));
        out.SetHow(static_cast<unsigned char>(seed >> 3));
        out.Open(Path(file), UtCString("w"));
        size_t at = 0;
        for (int i = 0; i < kMaxItems && at < size; ++i) {
            const int k = program[i % kProgram] % kKinds;
            std::string bytes;
            Write(out, k, data, size, at, bytes);
            items.emplace_back(k, bytes);
        }
        if (!out.Flush()) std::abort();
    }
    XdStdio in(Path(file), UtCString("r"));
    if (in.fileType() != seed || in.majorVers() != static_cast<unsigned char>(seed * 7) ||
        in.minorVers() != static_cast<unsigned char>(seed * 13) ||
        in.subVers() != static_cast<char>(seed ^ 0x5A) ||
        in.how() != static_cast<unsigned char>(seed >> 3)) {
        std::abort();
    }
    std::string back;
    for (const auto& [k, bytes] : items) {
        Read(in, k, back);
        if (back != bytes) std::abort();
    }
    try {
        int more;
        in >> more;
        std::abort();  // the file ends with the last item
    } catch (const kbase::ExRead&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 + kProgram) return 0;
    const uint8_t seed = data[0];
    const uint8_t* program = data + 1;
    data += 1 + kProgram;
    size -= 1 + kProgram;
    ReadFile(program, data, size);
    if (size > 0) RoundTrip(seed, program, data, size);
    return 0;
}
