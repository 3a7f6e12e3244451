// XDR handles and item codecs of the runtime.
//
// Binary data is written in XDR (RFC 4506): big-endian, every item a multiple of four bytes.
// A handle (XD_XDR_STRUCT) is opened on a stdio file, a descriptor or a caller's memory block,
// in one direction (xdr_op). Each codec Xdr_XXX(handle, &item) writes the item when the handle
// encodes, reads it when it decodes, and releases what a decode allocated when the direction is
// XDR_FREE. Codecs return non-zero on success and 0 on failure (closed or null handle, end of data,
// I/O error, a value that does not fit its wire width or its C type).
//
// Buffering: a file handle owns a buffer of kXdBufferSize bytes (a fuzz build: a few bytes) and
// moves whole blocks to and from its file, so a codec call costs no library call until the
// buffer runs full or empty.
// Consequences:
//  - encoded data reaches the file when the buffer fills, on XdSync and on XdClose; a write error
//    shows at the item whose write found the buffer full, and sticks: every later item fails;
//  - a decoding handle reads ahead; XdSync and XdClose hand the unread part back by seeking the
//    file to the logical position (when it can seek), so the file continues where the data ended.
//
// Wire forms (every one a sequence of 4-byte XDR units):
//   char, short, int, long (32-bit), unsigned char/short/long: one XDR int / unsigned int.
//     Encoding a long or unsigned long outside 32 bits fails; decoding a value outside the C
//     type's range fails (char accepts -128..255, so files of signed- and unsigned-char platforms
//     both read).
//   unsigned long long (and long long): XDR unsigned hyper / hyper.
//   float, double: XDR float / double (IEEE 754 bits, NaN payloads kept).
//   strings: XDR string: 4-byte length, the bytes, zero padding to a multiple of four.
//   pointers: the address as an unsigned hyper (it names an object in a relocation table, it is not
//     meant to be followed after reading).
//   XdrFilePos: unsigned hyper.
//   IPT: x, y as ints; RPT: x, y as doubles; RPT3: x, y, z; RPT3H: x, y, z, w; FPT3: x, y, z as
//     floats; UT_MAT44: the 16 doubles row by row (m[0][0], m[0][1], ..., m[3][3]).
//
// A decoded string length larger than what the data still holds is refused before anything is
// allocated (for files whose size is known; otherwise the text is read in growing pieces, so no
// allocation exceeds twice what was actually read).
//
// Handles are not thread-safe; one handle belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "basert/export.h"

// Direction of a handle (the values of ONC RPC).
enum xdr_op { XDR_ENCODE = 0, XDR_DECODE = 1, XDR_FREE = 2 };

// Bytes of the buffer of a file handle: the block size of its transfers.
constexpr size_t kXdBufferSize = 256 * 1024;

// Kind of file under a handle (the opener that made it).
enum XD_HOW : int32_t {
    XD_HOW_NONE = 0,    // nothing opened
    XD_HOW_STDIO = 1,   // XdOpenXdrStdIo: blocks through fread/fwrite of a FILE*
    XD_HOW_FD = 2,      // XdOpenFdIo: blocks through read/write of a descriptor
    XD_HOW_UTFILE = 4,  // XdOpenUtFileIo: a FILE* driven by the runtime through its descriptor
    XD_HOW_MEMORY = 8,  // XdOpenMemIo: a caller's memory block
};

// A 64-bit file position, opaque to callers: take it from Xdr_getpos and give it to Xdr_setpos.
struct XdrFilePos {
    uint64_t value = 0;
    friend bool operator==(const XdrFilePos& a, const XdrFilePos& b) { return a.value == b.value; }
    friend bool operator!=(const XdrFilePos& a, const XdrFilePos& b) { return a.value != b.value; }
};

// Geometry records with a wire form of their own.
struct IPT {
    int x, y;
};
struct RPT {
    double x, y;
};
struct RPT3 {
    double x, y, z;
};
struct RPT3H {
    double x, y, z, w;
};
struct FPT3 {
    float x, y, z;
};
typedef double UT_MAT44[4][4];

// An XDR handle. Value-initialise it (XD_XDR_STRUCT h{}) before the first opener; an opener
// overwrites the handle, so close an open one first.
struct XD_XDR_STRUCT {
    xdr_op x_op;  // direction
    // Maintained by the runtime, read by the inline codecs below: the next byte, the end of the
    // room to encode into and the end of the buffered data to decode. Only the end of the
    // handle's direction is set; a null end, or too few bytes before it, sends a codec through
    // the runtime (buffer full or empty, handle closed, or an error).
    unsigned char* x_ptr;
    unsigned char* x_wend;
    unsigned char* x_rend;
    // Private to the runtime.
    unsigned char* x_buf;  // buffer start
    size_t x_cap;          // buffer size
    uint64_t x_base;       // file position of x_buf[0]
    FILE* x_file;
    int x_fd;
    int32_t x_how;    // XD_HOW of the opener; XD_HOW_NONE when closed
    int32_t x_error;  // sticky errno-style code of a failed transfer; 0 when none
    uint32_t x_flags;
};

// ---- opening and closing ------------------------------------------------------------------------
// Each opener returns 1 and leaves the handle open, or 0 (null file or handle, no memory for the
// buffer) and leaves it closed. The handle starts at the file's current position.
[[nodiscard]] BASERT_API int XdOpenXdrStdIo(XD_XDR_STRUCT* xdrs, FILE* file, xdr_op op);
// A descriptor is read and written directly. It stays the caller's.
[[nodiscard]] BASERT_API int XdOpenFdIo(XD_XDR_STRUCT* xdrs, int fd, xdr_op op);
// The runtime's own file routines on a stdio file: the FILE is flushed, then its descriptor is
// used directly; XdSync and XdClose put the FILE back at the handle's position. A FILE without a
// descriptor (a memory stream) is driven through stdio instead.
[[nodiscard]] BASERT_API int XdOpenUtFileIo(XD_XDR_STRUCT* xdrs, FILE* file, xdr_op op);
// A caller's block of size bytes: encoding fills it, decoding reads it; it is never grown.
[[nodiscard]] BASERT_API int XdOpenMemIo(XD_XDR_STRUCT* xdrs, void* block, size_t size, xdr_op op);
// Writes out what is buffered (encode) or hands the read-ahead back to the file (decode) and
// closes the handle; the file stays open. Returns 1, or 0 when buffered data could not be written.
// A null or closed handle gives 1.
BASERT_API int XdClose(XD_XDR_STRUCT* xdrs);
// Makes the file agree with the handle without closing it: encode writes the buffer out (and
// flushes a FILE); decode seeks the file back to the logical position and drops the read-ahead.
// Returns 1, or 0 on a write error or a closed handle.
BASERT_API int XdSync(XD_XDR_STRUCT* xdrs);
// The descriptor of a stdio file, or -1 when it has none.
BASERT_API int XdFileno(FILE* file);

// ---- positions ----------------------------------------------------------------------------------
// The logical position: bytes from the start of the file (from the opening point for a file
// that cannot seek). {UINT64_MAX} for a null or closed handle.
BASERT_API XdrFilePos Xdr_getpos(XD_XDR_STRUCT* xdrs);
// Moves to pos; returns 1, or 0 when the file cannot seek there (the buffer is written out first
// when encoding, so a failure to write also gives 0). Moving past the end of a file that is
// written leaves a hole. Within the current read-ahead no seek is made, so a short step back
// also works on a pipe.
BASERT_API int Xdr_setpos(XD_XDR_STRUCT* xdrs, XdrFilePos pos);

// ---- the transfer paths under the inline codecs -------------------------------------------------
// Writes or reads n bytes as they are. Decoding fails without consuming anything when fewer than
// n bytes are left (for n up to the buffer size). Meant for the codecs; a caller uses Xdr_*.
BASERT_API int XdPutBytes(XD_XDR_STRUCT* xdrs, const void* bytes, size_t n);
BASERT_API int XdGetBytes(XD_XDR_STRUCT* xdrs, void* bytes, size_t n);
// The XDR_FREE direction of an item that owns nothing: 1 when the handle is open for XDR_FREE.
BASERT_API int XdFreeNothing(XD_XDR_STRUCT* xdrs);

namespace basert_xdr_inline {

inline uint32_t ToBig32(uint32_t v) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return __builtin_bswap32(v);
#elif defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    return v;
#else
    const unsigned char b[4] = {static_cast<unsigned char>(v >> 24),
                                static_cast<unsigned char>(v >> 16),
                                static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
    uint32_t r;
    std::memcpy(&r, b, 4);
    return r;
#endif
}
inline uint64_t ToBig64(uint64_t v) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return __builtin_bswap64(v);
#else
    return (static_cast<uint64_t>(ToBig32(static_cast<uint32_t>(v))) << 32) |
           ToBig32(static_cast<uint32_t>(v >> 32));
#endif
}

// Bytes from p to end, negative when end is null (so the test "at least n" fails).
inline ptrdiff_t Left(const unsigned char* end, const unsigned char* p) {
    return static_cast<ptrdiff_t>(reinterpret_cast<uintptr_t>(end) -
                                  reinterpret_cast<uintptr_t>(p));
}

inline int Put32(XD_XDR_STRUCT* x, uint32_t v) {
    const uint32_t big = ToBig32(v);
    if (Left(x->x_wend, x->x_ptr) >= 4) {
        std::memcpy(x->x_ptr, &big, 4);
        x->x_ptr += 4;
        return 1;
    }
    return XdPutBytes(x, &big, 4);
}
inline int Get32(XD_XDR_STRUCT* x, uint32_t* v) {
    uint32_t big;
    if (Left(x->x_rend, x->x_ptr) >= 4) {
        std::memcpy(&big, x->x_ptr, 4);
        x->x_ptr += 4;
    } else if (!XdGetBytes(x, &big, 4)) {
        return 0;
    }
    *v = ToBig32(big);
    return 1;
}
inline int Put64(XD_XDR_STRUCT* x, uint64_t v) {
    const uint64_t big = ToBig64(v);
    if (Left(x->x_wend, x->x_ptr) >= 8) {
        std::memcpy(x->x_ptr, &big, 8);
        x->x_ptr += 8;
        return 1;
    }
    return XdPutBytes(x, &big, 8);
}
inline int Get64(XD_XDR_STRUCT* x, uint64_t* v) {
    uint64_t big;
    if (Left(x->x_rend, x->x_ptr) >= 8) {
        std::memcpy(&big, x->x_ptr, 8);
        x->x_ptr += 8;
    } else if (!XdGetBytes(x, &big, 8)) {
        return 0;
    }
    *v = ToBig64(big);
    return 1;
}

// One 32-bit unit: the item is turned into its unit by encode(), and a decoded unit is checked and
// stored by decode(unit) (which returns 0 for a value the item cannot hold). The direction needs
// no test on the fast paths: only the end of the handle's own direction is set.
template <typename Encode, typename Decode>
inline int Unit32(XD_XDR_STRUCT* x, Encode encode, Decode decode) {
    if (x == nullptr) return 0;
    uint32_t u;
    if (Left(x->x_wend, x->x_ptr) >= 4) {
        if (!encode(&u)) return 0;
        u = ToBig32(u);
        std::memcpy(x->x_ptr, &u, 4);
        x->x_ptr += 4;
        return 1;
    }
    if (Left(x->x_rend, x->x_ptr) >= 4) {
        std::memcpy(&u, x->x_ptr, 4);
        x->x_ptr += 4;
        return decode(ToBig32(u));
    }
    if (x->x_op == XDR_ENCODE) return encode(&u) && Put32(x, u);
    if (x->x_op == XDR_DECODE) return Get32(x, &u) && decode(u);
    return XdFreeNothing(x);
}
template <typename T>
inline int Unit64(XD_XDR_STRUCT* x, T* v) {
    static_assert(sizeof(T) == 8);
    if (x == nullptr) return 0;
    uint64_t u;
    if (Left(x->x_wend, x->x_ptr) >= 8) {
        std::memcpy(&u, v, 8);
        u = ToBig64(u);
        std::memcpy(x->x_ptr, &u, 8);
        x->x_ptr += 8;
        return 1;
    }
    if (Left(x->x_rend, x->x_ptr) >= 8) {
        std::memcpy(&u, x->x_ptr, 8);
        x->x_ptr += 8;
        u = ToBig64(u);
        std::memcpy(v, &u, 8);
        return 1;
    }
    if (x->x_op == XDR_ENCODE) {
        std::memcpy(&u, v, 8);
        return Put64(x, u);
    }
    if (x->x_op == XDR_DECODE) {
        if (!Get64(x, &u)) return 0;
        std::memcpy(v, &u, 8);
        return 1;
    }
    return XdFreeNothing(x);
}
inline int32_t AsSigned(uint32_t u) {
    return static_cast<int32_t>(u);
}

}  // namespace basert_xdr_inline

// ---- item codecs --------------------------------------------------------------------------------
inline int Xdr_INT(XD_XDR_STRUCT* xdrs, int* v) {
    using namespace basert_xdr_inline;
    return Unit32(
        xdrs, [v](uint32_t* u) { return *u = static_cast<uint32_t>(*v), 1; },
        [v](uint32_t u) { return *v = AsSigned(u), 1; });
}
inline int Xdr_SLONG(XD_XDR_STRUCT* xdrs, long* v) {
    using namespace basert_xdr_inline;
    return Unit32(
        xdrs,
        [v](uint32_t* u) {
            if (*v < INT32_MIN || *v > INT32_MAX) return 0;
            return *u = static_cast<uint32_t>(*v), 1;
        },
        [v](uint32_t u) { return *v = AsSigned(u), 1; });
}
inline int Xdr_ULONG(XD_XDR_STRUCT* xdrs, unsigned long* v) {
    using namespace basert_xdr_inline;
    return Unit32(
        xdrs,
        [v](uint32_t* u) {
            if (*v > UINT32_MAX) return 0;
            return *u = static_cast<uint32_t>(*v), 1;
        },
        [v](uint32_t u) { return *v = u, 1; });
}
inline int Xdr_SSHORT(XD_XDR_STRUCT* xdrs, short* v) {
    using namespace basert_xdr_inline;
    return Unit32(
        xdrs, [v](uint32_t* u) { return *u = static_cast<uint32_t>(static_cast<int32_t>(*v)), 1; },
        [v](uint32_t u) {
            const int32_t s = AsSigned(u);
            if (s < INT16_MIN || s > INT16_MAX) return 0;
            return *v = static_cast<short>(s), 1;
        });
}
inline int Xdr_USHORT(XD_XDR_STRUCT* xdrs, unsigned short* v) {
    using namespace basert_xdr_inline;
    return Unit32(
        xdrs, [v](uint32_t* u) { return *u = *v, 1; },
        [v](uint32_t u) {
            if (u > UINT16_MAX) return 0;
            return *v = static_cast<unsigned short>(u), 1;
        });
}
// char travels as a signed value on every platform.
inline int Xdr_CHAR(XD_XDR_STRUCT* xdrs, char* v) {
    using namespace basert_xdr_inline;
    return Unit32(
        xdrs,
        [v](uint32_t* u) {
            return *u = static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(*v))),
                   1;
        },
        [v](uint32_t u) {
            const int32_t s = AsSigned(u);
            if (s < -128 || s > 255) return 0;
            return *v = static_cast<char>(static_cast<unsigned char>(s & 0xFF)), 1;
        });
}
inline int Xdr_UBYTE(XD_XDR_STRUCT* xdrs, unsigned char* v) {
    using namespace basert_xdr_inline;
    return Unit32(
        xdrs, [v](uint32_t* u) { return *u = *v, 1; },
        [v](uint32_t u) {
            if (u > 255) return 0;
            return *v = static_cast<unsigned char>(u), 1;
        });
}
inline int Xdr_FLOAT(XD_XDR_STRUCT* xdrs, float* v) {
    using namespace basert_xdr_inline;
    static_assert(sizeof(float) == 4);
    return Unit32(
        xdrs, [v](uint32_t* u) { return std::memcpy(u, v, 4), 1; },
        [v](uint32_t u) { return std::memcpy(v, &u, 4), 1; });
}
inline int Xdr_REAL(XD_XDR_STRUCT* xdrs, double* v) {
    return basert_xdr_inline::Unit64(xdrs, v);
}
inline int Xdr_ULONG64(XD_XDR_STRUCT* xdrs, unsigned long long* v) {
    return basert_xdr_inline::Unit64(xdrs, v);
}
inline int Xdr_LONG64(XD_XDR_STRUCT* xdrs, long long* v) {
    return basert_xdr_inline::Unit64(xdrs, v);
}
inline int Xdr_F_POS(XD_XDR_STRUCT* xdrs, XdrFilePos* pos) {
    return basert_xdr_inline::Unit64(xdrs, &pos->value);
}
// Decoding fails for an address that does not fit this platform's pointers.
BASERT_API int Xdr_POINTER(XD_XDR_STRUCT* xdrs, void** p);

inline int Xdr_IPT(XD_XDR_STRUCT* xdrs, IPT* p) {
    return Xdr_INT(xdrs, &p->x) && Xdr_INT(xdrs, &p->y);
}
inline int Xdr_RPT(XD_XDR_STRUCT* xdrs, RPT* p) {
    return Xdr_REAL(xdrs, &p->x) && Xdr_REAL(xdrs, &p->y);
}
inline int Xdr_RPT3(XD_XDR_STRUCT* xdrs, RPT3* p) {
    return Xdr_REAL(xdrs, &p->x) && Xdr_REAL(xdrs, &p->y) && Xdr_REAL(xdrs, &p->z);
}
inline int Xdr_RPT3H(XD_XDR_STRUCT* xdrs, RPT3H* p) {
    return Xdr_REAL(xdrs, &p->x) && Xdr_REAL(xdrs, &p->y) && Xdr_REAL(xdrs, &p->z) &&
           Xdr_REAL(xdrs, &p->w);
}
inline int Xdr_FPT3(XD_XDR_STRUCT* xdrs, FPT3* p) {
    return Xdr_FLOAT(xdrs, &p->x) && Xdr_FLOAT(xdrs, &p->y) && Xdr_FLOAT(xdrs, &p->z);
}
inline int Xdr_UT_MAT44(XD_XDR_STRUCT* xdrs, UT_MAT44 m) {
    for (int r = 0; r < 4; ++r) {
        for (int c = 0; c < 4; ++c) {
            if (!Xdr_REAL(xdrs, &m[r][c])) return 0;
        }
    }
    return 1;
}

// ---- strings ------------------------------------------------------------------------------------
// A NUL-terminated text of at most maxLength bytes. Encode: *s is written (null as the empty text);
// a longer text fails. Decode: a longer text fails before its bytes are read; otherwise the text
// is stored into the caller's buffer *s, which must hold the text and its terminator, or into a
// new block (UtAllocMemoryBlock, free with UtFreeMemory) when *s is null. XDR_FREE does nothing
// (the buffer is the caller's).
[[nodiscard]] BASERT_API int Xdr_STRING(XD_XDR_STRUCT* xdrs, char** s, unsigned int maxLength);
// A NUL-terminated text of any length. Decode always stores a new block into *s (free it with
// UtFreeMemory; the old value of *s is overwritten, not freed) and sets *s null on failure.
// XDR_FREE releases *s and sets it null.
[[nodiscard]] BASERT_API int Xdr_A_STRING(XD_XDR_STRUCT* xdrs, char** s);
// The same wire form for counted bytes that may contain NUL: encode writes *length bytes of *s;
// decode stores a new terminated block into *s and its byte count into *length.
[[nodiscard]] BASERT_API int Xdr_A_STRING_N(XD_XDR_STRUCT* xdrs, char** s, uint32_t* length);

// ---- file header --------------------------------------------------------------------------------
// The header of a checked XDR file, 16 bytes (four XDR units) at the handle's position:
//   bytes 0..3   magic "KBXD"
//   byte  4      layout version, 1
//   bytes 5..7   file type, major version, minor version
//   byte  8      sub-version (a char)
//   byte  9      how (the XD_HOW the file was written with)
//   bytes 10..11 zero
//   bytes 12..15 check: FNV-1a (32-bit) of bytes 0..11, big-endian
// A file that does not start with these 16 bytes exactly (another magic, a layout version other
// than 1, non-zero reserved bytes or a wrong check) has no header.
constexpr int kXdMagicOk = 0;
constexpr int kXdMagicNoHeader = 1;  // the data there is not a header (or is too short for one)
constexpr int kXdMagicIoError = 2;   // closed handle, wrong direction, or the file refused
constexpr size_t kXdMagicSize = 16;

// Writes the header through an encoding handle and on into the file at once (stdio's buffer
// included, as XdSync), so that a file that cannot be written, a full disk among them, is noticed
// here. Returns kXdMagicOk or kXdMagicIoError.
[[nodiscard]] BASERT_API int OsMagicWrite(XD_XDR_STRUCT* xdrs, unsigned char fileType,
                                          unsigned char majorVers, unsigned char minorVers,
                                          char subVers, unsigned char how);
// Reads a header through a decoding handle. On kXdMagicOk the five values are stored; otherwise
// nothing is stored and the handle's position is unspecified (the caller seeks back).
[[nodiscard]] BASERT_API int OsMagicRead(XD_XDR_STRUCT* xdrs, unsigned char* fileType,
                                         unsigned char* majorVers, unsigned char* minorVers,
                                         char* subVers, unsigned char* how);
