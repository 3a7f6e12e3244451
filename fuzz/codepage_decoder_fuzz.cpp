// Arbitrary bytes through the streaming decoder (what `kbase recode` reads files with). Byte 0
// picks the code page, byte 1 how the text is cut into pieces and how little room each call
// gets. Properties:
//  - every call that leaves room in its output took all the bytes it was given;
//  - the pieces decode to the same units, and report the same first bad sequence, as the whole
//    text given in one call;
//  - that is what converting the whole text at once gives (BrMbToUtf16), for every page.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "basert/codepage.h"
#include "fuzz_support.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

// Single-byte pages with and without holes and with IBM's rotated controls, the double-byte
// pages, EUC, GB 18030's four-byte sequences, UTF-8, and the stateful ISO-2022-JP and UTF-7.
constexpr unsigned short kPages[] = {1252, 1250, 437, 874,   932,   936,   949,   950,
                                     51932, 51949, 54936, 65001, 50220, 65000, 1255, 20127};

struct Decoded {
    std::u16string units;
    int64_t firstBad = -1;
};

// Decodes text in pieces of the given sizes (the last piece takes the rest), each call with room
// for cap units, calling again while a call fills its room.
Decoded Decode(unsigned short page, const std::string& text, const std::vector<size_t>& pieces,
               int64_t cap) {
    BrDecoder* d = BrDecoderOpen(page);
    if (d == nullptr) std::abort();  // every page above exists
    Decoded out;
    std::vector<char16_t> room(static_cast<size_t>(cap));
    size_t at = 0;
    for (size_t k = 0; k < pieces.size() || at < text.size(); ++k) {
        const bool final = k + 1 >= pieces.size();
        const size_t size = final ? text.size() - at : std::min(pieces[k], text.size() - at);
        const char* src = text.data() + at;
        int64_t left = static_cast<int64_t>(size);
        for (int calls = 0;; ++calls) {
            if (calls > static_cast<int>(text.size()) * 4 + 64) std::abort();  // no progress
            int64_t read = 0, bad = -1;
            const int64_t got = BrDecode(d, src, left, final, room.data(), cap, &read, &bad);
            if (got < 0 || got > cap || read < 0 || read > left) std::abort();
            out.units.append(room.data(), static_cast<size_t>(got));
            if (out.firstBad < 0) out.firstBad = bad;
            src += read;
            left -= read;
            if (got < cap) break;  // room left: the call is done with its bytes
        }
        if (left != 0) std::abort();
        at += size;
        if (final) break;
    }
    BrDecoderClose(d);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const unsigned short page = kPages[data[0] & 15];
    const std::string text(reinterpret_cast<const char*>(data + 2), size - 2);

    // Pieces of 1..8 bytes and a room of 2..9 units, both from byte 1, cycling over the text.
    std::vector<size_t> pieces;
    for (size_t at = 0, k = 0; at < text.size(); ++k) {
        const size_t piece = 1 + ((data[1] >> (k % 6)) + k) % 8;
        pieces.push_back(piece);
        at += piece;
    }
    const int64_t cap = 2 + (data[1] >> 5) + (data[0] >> 4) % 2;

    const Decoded whole = Decode(page, text, {}, static_cast<int64_t>(text.size()) + 16);
    const Decoded cut = Decode(page, text, pieces, cap);
    if (cut.units != whole.units || cut.firstBad != whole.firstBad) std::abort();

    std::u16string once(text.size() + 16, u'\0');
    const int64_t got = BrMbToUtf16(page, text.data(), static_cast<int64_t>(text.size()),
                                    once.data(), static_cast<int64_t>(once.size()));
    if (got < 0) std::abort();
    once.resize(static_cast<size_t>(got));
    if (once != whole.units) std::abort();
    return 0;
}
