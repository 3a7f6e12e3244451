#include "basert/xdr.h"

#include <algorithm>
#include <cerrno>
#include <climits>

#include "basert/internal/xdr_io.h"
#include "basert/memory.h"

namespace {

// A fuzz build makes the buffer a few bytes (KBASE_XDR_BUFFER_BYTES), so that short inputs cross
// it and every refill, spill and straddling item is reached; 8 is the widest item a codec moves
// through it at once.
#ifdef KBASE_XDR_BUFFER_BYTES
constexpr size_t kBufferBytes = KBASE_XDR_BUFFER_BYTES;
#else
constexpr size_t kBufferBytes = kXdBufferSize;
#endif
static_assert(kBufferBytes >= 8, "a hyper must fit the buffer");

// Which routines move the bytes, and what the handle may do with its file.
constexpr uint32_t kViaStdio = 1u;   // fread/fwrite/fseeko on x_file
constexpr uint32_t kViaFd = 2u;      // read/write/lseek on x_fd
constexpr uint32_t kViaMemory = 4u;  // the caller's block; nothing to move
constexpr uint32_t kOwnsBuffer = 8u;
constexpr uint32_t kSeekable = 16u;    // the opening position was known
constexpr uint32_t kResyncFile = 32u;  // x_file must be put back at our position (UtFile kind)

// ---- buffer and file ---------------------------------------------------------------------------

bool IsOpen(const XD_XDR_STRUCT* x) {
    return x != nullptr && x->x_how != XD_HOW_NONE;
}
size_t Used(const XD_XDR_STRUCT* x) {
    return static_cast<size_t>(x->x_ptr - x->x_buf);
}
uint64_t LogicalPos(const XD_XDR_STRUCT* x) {
    return x->x_base + Used(x);
}

// Bytes the inline codecs may take from x_ptr on: room (encode) or buffered data (decode).
size_t Avail(const XD_XDR_STRUCT* x) {
    const unsigned char* end = x->x_op == XDR_ENCODE   ? x->x_wend
                               : x->x_op == XDR_DECODE ? x->x_rend
                                                       : nullptr;
    return end != nullptr ? static_cast<size_t>(end - x->x_ptr) : 0;
}
// Opens the inline path in the handle's direction for n bytes from x_ptr (0 closes it).
void SetAvail(XD_XDR_STRUCT* x, size_t n) {
    x->x_wend = x->x_op == XDR_ENCODE ? x->x_ptr + n : nullptr;
    x->x_rend = x->x_op == XDR_DECODE ? x->x_ptr + n : nullptr;
}

void Fail(XD_XDR_STRUCT* x, int err) {
    x->x_error = err != 0 ? err : EIO;
    x->x_wend = nullptr;
    x->x_rend = nullptr;
}

int64_t ReadSome(XD_XDR_STRUCT* x, unsigned char* dst, size_t n) {
    if (x->x_flags & kViaFd) return ReadFd(x->x_fd, dst, n);
    const size_t r = std::fread(dst, 1, n, x->x_file);
    if (r == 0 && std::ferror(x->x_file)) return -1;
    return static_cast<int64_t>(r);
}

bool WriteAll(XD_XDR_STRUCT* x, const unsigned char* src, size_t n) {
    if (x->x_flags & kViaFd) return WriteFd(x->x_fd, src, n);
    return std::fwrite(src, 1, n, x->x_file) == n;
}

bool SeekTo(XD_XDR_STRUCT* x, uint64_t pos) {
    if (x->x_flags & kViaFd) return SeekFd(x->x_fd, pos);
    return SeekFile(x->x_file, pos);
}

// Puts the file at pos before a block transfer. Several handles (copies of a stream) may drive
// one file, and stdio or the caller may have moved it: each handle keeps its own position and
// sets it before every block, which costs one seek per block. A file that cannot seek is taken
// as it comes.
bool Position(XD_XDR_STRUCT* x, uint64_t pos) {
    if (!(x->x_flags & kSeekable)) return true;
    errno = 0;
    if (SeekTo(x, pos)) return true;
    Fail(x, errno);
    return false;
}

// Writes the buffered bytes to the file and empties the buffer (encode).
bool FlushOut(XD_XDR_STRUCT* x) {
    if (x->x_error != 0) return false;
    if (x->x_flags & kViaMemory) return true;
    const size_t n = Used(x);
    if (n > 0) {
        if (!Position(x, x->x_base)) return false;
        errno = 0;
        if (!WriteAll(x, x->x_buf, n)) {
            Fail(x, errno);
            return false;
        }
        x->x_base += n;
    }
    x->x_ptr = x->x_buf;
    SetAvail(x, x->x_cap);
    return true;
}

// Makes at least need (<= capacity) bytes available to decode, keeping the unread ones (decode).
// False at the end of the file (nothing consumed) or on an error (sticky).
bool Fill(XD_XDR_STRUCT* x, size_t need) {
    size_t avail = Avail(x);
    const size_t used = Used(x);
    if (used > 0) {
        std::memmove(x->x_buf, x->x_ptr, avail);
        x->x_base += used;
        x->x_ptr = x->x_buf;
        SetAvail(x, avail);
    }
    if (!Position(x, x->x_base + avail)) return false;
    while (avail < need) {
        errno = 0;
        const int64_t r = ReadSome(x, x->x_buf + avail, x->x_cap - avail);
        if (r < 0) {
            Fail(x, errno);
            return false;
        }
        if (r == 0) return false;
        avail += static_cast<size_t>(r);
        SetAvail(x, avail);
    }
    return true;
}

// Bytes left to decode, when that is known (memory block, regular file).
bool KnownRemaining(const XD_XDR_STRUCT* x, uint64_t* remaining) {
    if (x->x_flags & kViaMemory) {
        *remaining = Avail(x);
        return true;
    }
    const int fd = (x->x_flags & kViaFd) ? x->x_fd : XdFileno(x->x_file);
    const int64_t size = RegularFileSize(fd);
    if (size < 0) return false;
    const uint64_t pos = LogicalPos(x);
    *remaining = static_cast<uint64_t>(size) > pos ? static_cast<uint64_t>(size) - pos : 0;
    return true;
}

int OpenHandle(XD_XDR_STRUCT* x, xdr_op op, XD_HOW how, FILE* file, int fd, uint32_t flags,
               int64_t startPos) {
    *x = XD_XDR_STRUCT{};
    x->x_fd = -1;
    if (op != XDR_ENCODE && op != XDR_DECODE && op != XDR_FREE) return 0;
    void* buffer = nullptr;
    if (op != XDR_FREE && UtAllocMemoryBlock(&buffer, kBufferBytes, 1) != kUtMemOk) return 0;
    x->x_op = op;
    x->x_how = how;
    x->x_file = file;
    x->x_fd = fd;
    x->x_buf = static_cast<unsigned char*>(buffer);
    x->x_cap = buffer != nullptr ? kBufferBytes : 0;
    x->x_ptr = x->x_buf;
    SetAvail(x, op == XDR_ENCODE ? x->x_cap : 0);
    x->x_flags = flags | (buffer != nullptr ? kOwnsBuffer : 0u);
    if (startPos >= 0) {
        x->x_base = static_cast<uint64_t>(startPos);
        x->x_flags |= kSeekable;
    }
    return 1;
}

// Puts a UtFile-kind FILE back at the handle's position after direct descriptor transfers.
bool ResyncFile(XD_XDR_STRUCT* x) {
    if (!(x->x_flags & kResyncFile) || !(x->x_flags & kSeekable)) return true;
    return SeekFile(x->x_file, LogicalPos(x));
}

constexpr unsigned char kZeros[4] = {0, 0, 0, 0};
uint32_t PadOf(uint64_t n) {
    return static_cast<uint32_t>((4 - n % 4) % 4);
}

int PutText(XD_XDR_STRUCT* x, const char* p, uint64_t n) {
    if (n > UINT32_MAX) return 0;
    const uint32_t pad = PadOf(n);
    if (x->x_op == XDR_ENCODE && Avail(x) >= 4 + n + pad) {
        // All in the buffer: one pass, no calls per part.
        const uint32_t big = basert_xdr_inline::ToBig32(static_cast<uint32_t>(n));
        std::memcpy(x->x_ptr, &big, 4);
        std::memcpy(x->x_ptr + 4, p, n);
        std::memset(x->x_ptr + 4 + n, 0, pad);
        x->x_ptr += 4 + n + pad;
        return 1;
    }
    return basert_xdr_inline::Put32(x, static_cast<uint32_t>(n)) && XdPutBytes(x, p, n) &&
           XdPutBytes(x, kZeros, pad);
}

// Reads the body and padding of a text of n bytes into a new terminated block (decode). The
// block is sized by what the data holds: at once when the remaining size is known (a longer
// length is refused before allocating), else in doubling pieces as the bytes arrive.
char* GetNewText(XD_XDR_STRUCT* x, uint32_t n) {
    // A text inside the read-ahead is there: copied at once, no size query.
    const uint64_t need = static_cast<uint64_t>(n) + PadOf(n);
    uint64_t remaining = Avail(x);
    void* block = nullptr;
    if (need <= remaining) {
        if (UtAllocMemoryBlock(&block, uint64_t{n} + 1, 1) != kUtMemOk) return nullptr;
        char* text = static_cast<char*>(block);
        std::memcpy(text, x->x_ptr, n);
        text[n] = '\0';
        x->x_ptr += need;
        return text;
    }
    // Past the read-ahead: a length that the file cannot hold is refused before allocating.
    const bool known = KnownRemaining(x, &remaining);
    if (known && need > remaining) return nullptr;
    uint64_t have = 0;
    uint64_t size = known ? n : std::min<uint64_t>(n, kBufferBytes);
    for (;;) {
        if (UtAllocMemoryBlock(&block, size + 1, 1) != kUtMemOk) break;
        if (!XdGetBytes(x, static_cast<char*>(block) + have, size - have)) break;
        have = size;
        if (have == n) {
            unsigned char pad[4];
            if (!XdGetBytes(x, pad, PadOf(n))) break;
            static_cast<char*>(block)[n] = '\0';
            return static_cast<char*>(block);
        }
        size = std::min<uint64_t>(n, size * 2);
    }
    UtFreeMemory(block);
    return nullptr;
}

// Reads a text of n bytes into the caller's buffer, refusing one that the data cannot hold.
int GetTextInto(XD_XDR_STRUCT* x, char* dst, uint32_t n) {
    const uint64_t need = static_cast<uint64_t>(n) + PadOf(n);
    uint64_t remaining = Avail(x);
    if (need > remaining && KnownRemaining(x, &remaining) && need > remaining) return 0;
    unsigned char pad[4];
    if (!XdGetBytes(x, dst, n) || !XdGetBytes(x, pad, PadOf(n))) return 0;
    dst[n] = '\0';
    return 1;
}

bool IsFree(const XD_XDR_STRUCT* x) {
    return x != nullptr && x->x_op == XDR_FREE;
}

uint32_t Fnv1a(const unsigned char* p, size_t n) {
    uint32_t h = 2166136261u;
    for (size_t i = 0; i < n; ++i) {
        h ^= p[i];
        h *= 16777619u;
    }
    return h;
}

constexpr unsigned char kMagic[4] = {'K', 'B', 'X', 'D'};
constexpr unsigned char kHeaderLayout = 1;

}  // namespace

// ---- opening and closing -----------------------------------------------------------------------

int XdFileno(FILE* file) {
    return file != nullptr ? BrFileDescriptor(file) : -1;
}

int XdOpenXdrStdIo(XD_XDR_STRUCT* xdrs, FILE* file, xdr_op op) {
    if (xdrs == nullptr) return 0;
    if (file == nullptr) {
        *xdrs = XD_XDR_STRUCT{};
        return 0;
    }
    return OpenHandle(xdrs, op, XD_HOW_STDIO, file, -1, kViaStdio, TellFile(file));
}

int XdOpenFdIo(XD_XDR_STRUCT* xdrs, int fd, xdr_op op) {
    if (xdrs == nullptr) return 0;
    if (fd < 0) {
        *xdrs = XD_XDR_STRUCT{};
        return 0;
    }
    return OpenHandle(xdrs, op, XD_HOW_FD, nullptr, fd, kViaFd, TellFd(fd));
}

int XdOpenUtFileIo(XD_XDR_STRUCT* xdrs, FILE* file, xdr_op op) {
    if (xdrs == nullptr) return 0;
    *xdrs = XD_XDR_STRUCT{};
    if (file == nullptr) return 0;
    // Whatever stdio holds (unwritten output, read-ahead) must be settled before the descriptor
    // is used behind its back. The position is taken first: Windows' fflush drops the read-ahead
    // of an input stream and leaves the descriptor (and so ftell) where the read-ahead ended.
    const int64_t pos = TellFile(file);
    if (std::fflush(file) != 0) return 0;
    const int fd = XdFileno(file);
    if (fd < 0) return OpenHandle(xdrs, op, XD_HOW_UTFILE, file, -1, kViaStdio, pos);
    if (pos >= 0 && !SeekFd(fd, static_cast<uint64_t>(pos))) return 0;
    return OpenHandle(xdrs, op, XD_HOW_UTFILE, file, fd, kViaFd | kResyncFile, pos);
}

int XdOpenMemIo(XD_XDR_STRUCT* xdrs, void* block, size_t size, xdr_op op) {
    if (xdrs == nullptr) return 0;
    *xdrs = XD_XDR_STRUCT{};
    xdrs->x_fd = -1;
    if ((block == nullptr && size > 0) ||
        (op != XDR_ENCODE && op != XDR_DECODE && op != XDR_FREE)) {
        return 0;
    }
    xdrs->x_op = op;
    xdrs->x_how = XD_HOW_MEMORY;
    xdrs->x_buf = static_cast<unsigned char*>(block);
    xdrs->x_cap = size;
    xdrs->x_ptr = xdrs->x_buf;
    SetAvail(xdrs, size);
    xdrs->x_flags = kViaMemory | kSeekable;
    return 1;
}

int XdSync(XD_XDR_STRUCT* xdrs) {
    if (!IsOpen(xdrs)) return 0;
    XD_XDR_STRUCT* x = xdrs;
    if (x->x_flags & kViaMemory) return 1;
    if (x->x_op == XDR_ENCODE) {
        if (!FlushOut(x)) return 0;
        if ((x->x_flags & kViaStdio) && std::fflush(x->x_file) != 0) {
            Fail(x, errno);
            return 0;
        }
        return ResyncFile(x) ? 1 : 0;
    }
    if (x->x_op == XDR_DECODE) {
        // Hand back the read-ahead. A file that cannot seek keeps it in the buffer.
        if (Avail(x) > 0 || (x->x_flags & kResyncFile)) {
            if (!(x->x_flags & kSeekable) || !SeekTo(x, LogicalPos(x))) return 0;
            if (x->x_flags & kViaStdio) std::clearerr(x->x_file);
            if (!ResyncFile(x)) return 0;
        }
        x->x_base = LogicalPos(x);
        x->x_ptr = x->x_buf;
        SetAvail(x, 0);
    }
    return 1;
}

int XdClose(XD_XDR_STRUCT* xdrs) {
    if (!IsOpen(xdrs)) return 1;
    int ok = 1;
    if (xdrs->x_op == XDR_ENCODE) {
        ok = XdSync(xdrs);
    } else if (xdrs->x_op == XDR_DECODE) {
        (void)XdSync(xdrs);  // a pipe cannot take its read-ahead back; nothing is lost by that
    }
    if (xdrs->x_flags & kOwnsBuffer) UtFreeMemory(xdrs->x_buf);
    *xdrs = XD_XDR_STRUCT{};
    xdrs->x_fd = -1;
    return ok;
}

// ---- positions ---------------------------------------------------------------------------------

XdrFilePos Xdr_getpos(XD_XDR_STRUCT* xdrs) {
    if (!IsOpen(xdrs)) return XdrFilePos{UINT64_MAX};
    return XdrFilePos{LogicalPos(xdrs)};
}

int Xdr_setpos(XD_XDR_STRUCT* xdrs, XdrFilePos pos) {
    if (!IsOpen(xdrs) || xdrs->x_op == XDR_FREE) return 0;
    XD_XDR_STRUCT* x = xdrs;
    const uint64_t p = pos.value;
    if (x->x_flags & kViaMemory) {
        if (p > x->x_cap) return 0;
        x->x_ptr = x->x_buf + p;
        SetAvail(x, x->x_cap - static_cast<size_t>(p));
        return 1;
    }
    if (x->x_op == XDR_ENCODE) {
        if (!FlushOut(x) || !SeekTo(x, p)) return 0;
        x->x_base = p;
        return 1;
    }
    const uint64_t windowEnd = LogicalPos(x) + Avail(x);
    if (p >= x->x_base && p <= windowEnd && x->x_error == 0) {
        x->x_ptr = x->x_buf + (p - x->x_base);
        SetAvail(x, static_cast<size_t>(windowEnd - p));
        return 1;
    }
    if (!SeekTo(x, p)) return 0;
    if (x->x_flags & kViaStdio) std::clearerr(x->x_file);
    x->x_base = p;
    x->x_ptr = x->x_buf;
    SetAvail(x, 0);
    return 1;
}

// ---- transfers ---------------------------------------------------------------------------------

int XdPutBytes(XD_XDR_STRUCT* xdrs, const void* bytes, size_t n) {
    if (!IsOpen(xdrs) || xdrs->x_op != XDR_ENCODE || xdrs->x_error != 0) return 0;
    XD_XDR_STRUCT* x = xdrs;
    if (n == 0) return 1;
    if ((x->x_flags & kViaMemory) && Avail(x) < n) return 0;
    const unsigned char* src = static_cast<const unsigned char*>(bytes);
    while (n > 0) {
        if (Avail(x) == 0 && !FlushOut(x)) return 0;
        const size_t k = std::min(n, Avail(x));
        std::memcpy(x->x_ptr, src, k);
        x->x_ptr += k;  // the end stays: the room shrinks by k
        src += k;
        n -= k;
    }
    return 1;
}

int XdGetBytes(XD_XDR_STRUCT* xdrs, void* bytes, size_t n) {
    if (!IsOpen(xdrs) || xdrs->x_op != XDR_DECODE || xdrs->x_error != 0) return 0;
    XD_XDR_STRUCT* x = xdrs;
    unsigned char* dst = static_cast<unsigned char*>(bytes);
    if (n > Avail(x)) {
        if (x->x_flags & kViaMemory) return 0;
        if (n <= x->x_cap) {
            if (!Fill(x, n)) return 0;
        } else {
            // Larger than the buffer: what is buffered, then the rest straight from the file.
            const size_t k = Avail(x);
            std::memcpy(dst, x->x_ptr, k);
            x->x_base += Used(x) + k;
            x->x_ptr = x->x_buf;
            SetAvail(x, 0);
            if (!Position(x, x->x_base)) return 0;
            for (size_t done = k; done < n;) {
                errno = 0;
                const int64_t r = ReadSome(x, dst + done, n - done);
                if (r <= 0) {
                    if (r < 0) Fail(x, errno);
                    return 0;
                }
                done += static_cast<size_t>(r);
                x->x_base += static_cast<uint64_t>(r);
            }
            return 1;
        }
    }
    if (n > 0) std::memcpy(dst, x->x_ptr, n);
    x->x_ptr += n;
    return 1;
}

int XdFreeNothing(XD_XDR_STRUCT* xdrs) {
    return IsFree(xdrs) ? 1 : 0;
}

// ---- items with a body of their own ------------------------------------------------------------

int Xdr_POINTER(XD_XDR_STRUCT* xdrs, void** p) {
    if (xdrs == nullptr || p == nullptr) return 0;
    unsigned long long v = reinterpret_cast<uintptr_t>(*p);
    if (xdrs->x_op == XDR_DECODE) {
        if (!Xdr_ULONG64(xdrs, &v)) return 0;
        if (v > UINTPTR_MAX) return 0;
        *p = reinterpret_cast<void*>(static_cast<uintptr_t>(v));
        return 1;
    }
    return Xdr_ULONG64(xdrs, &v);
}

int Xdr_STRING(XD_XDR_STRUCT* xdrs, char** s, unsigned int maxLength) {
    if (xdrs == nullptr || s == nullptr) return 0;
    if (xdrs->x_op == XDR_ENCODE) {
        const char* text = *s != nullptr ? *s : "";
        const size_t n = std::strlen(text);
        if (n > maxLength) return 0;
        return PutText(xdrs, text, n);
    }
    if (xdrs->x_op == XDR_DECODE) {
        uint32_t n = 0;
        if (!basert_xdr_inline::Get32(xdrs, &n) || n > maxLength) return 0;
        if (*s != nullptr) return GetTextInto(xdrs, *s, n);
        *s = GetNewText(xdrs, n);
        return *s != nullptr ? 1 : 0;
    }
    return XdFreeNothing(xdrs);
}

int Xdr_A_STRING(XD_XDR_STRUCT* xdrs, char** s) {
    if (xdrs == nullptr || s == nullptr) return 0;
    if (xdrs->x_op == XDR_ENCODE) {
        const char* text = *s != nullptr ? *s : "";
        return PutText(xdrs, text, std::strlen(text));
    }
    if (xdrs->x_op == XDR_DECODE) {
        uint32_t n = 0;
        *s = basert_xdr_inline::Get32(xdrs, &n) ? GetNewText(xdrs, n) : nullptr;
        return *s != nullptr ? 1 : 0;
    }
    if (!IsFree(xdrs)) return 0;
    UtFreeMemory(*s);
    *s = nullptr;
    return 1;
}

int Xdr_A_STRING_N(XD_XDR_STRUCT* xdrs, char** s, uint32_t* length) {
    if (xdrs == nullptr || s == nullptr || length == nullptr) return 0;
    if (xdrs->x_op == XDR_ENCODE) {
        if (*s == nullptr && *length > 0) return 0;
        return PutText(xdrs, *s != nullptr ? *s : "", *length);
    }
    if (xdrs->x_op == XDR_DECODE) {
        uint32_t n = 0;
        *s = basert_xdr_inline::Get32(xdrs, &n) ? GetNewText(xdrs, n) : nullptr;
        if (*s == nullptr) return 0;
        *length = n;
        return 1;
    }
    if (!IsFree(xdrs)) return 0;
    UtFreeMemory(*s);
    *s = nullptr;
    *length = 0;
    return 1;
}

// ---- file header -------------------------------------------------------------------------------

int OsMagicWrite(XD_XDR_STRUCT* xdrs, unsigned char fileType, unsigned char majorVers,
                 unsigned char minorVers, char subVers, unsigned char how) {
    if (!IsOpen(xdrs) || xdrs->x_op != XDR_ENCODE) return kXdMagicIoError;
    unsigned char h[kXdMagicSize] = {kMagic[0],
                                     kMagic[1],
                                     kMagic[2],
                                     kMagic[3],
                                     kHeaderLayout,
                                     fileType,
                                     majorVers,
                                     minorVers,
                                     static_cast<unsigned char>(subVers),
                                     how,
                                     0,
                                     0};
    const uint32_t check = Fnv1a(h, 12);
    h[12] = static_cast<unsigned char>(check >> 24);
    h[13] = static_cast<unsigned char>(check >> 16);
    h[14] = static_cast<unsigned char>(check >> 8);
    h[15] = static_cast<unsigned char>(check);
    // Through stdio's buffer too: a full disk is told here, not at the first full buffer.
    if (!XdPutBytes(xdrs, h, sizeof h) || !XdSync(xdrs)) return kXdMagicIoError;
    return kXdMagicOk;
}

int OsMagicRead(XD_XDR_STRUCT* xdrs, unsigned char* fileType, unsigned char* majorVers,
                unsigned char* minorVers, char* subVers, unsigned char* how) {
    if (!IsOpen(xdrs) || xdrs->x_op != XDR_DECODE) return kXdMagicIoError;
    unsigned char h[kXdMagicSize];
    if (!XdGetBytes(xdrs, h, sizeof h)) {
        return xdrs->x_error != 0 ? kXdMagicIoError : kXdMagicNoHeader;
    }
    const uint32_t check = (static_cast<uint32_t>(h[12]) << 24) |
                           (static_cast<uint32_t>(h[13]) << 16) |
                           (static_cast<uint32_t>(h[14]) << 8) | h[15];
    if (std::memcmp(h, kMagic, 4) != 0 || h[4] != kHeaderLayout || h[10] != 0 || h[11] != 0 ||
        check != Fnv1a(h, 12)) {
        return kXdMagicNoHeader;
    }
    if (fileType != nullptr) *fileType = h[5];
    if (majorVers != nullptr) *majorVers = h[6];
    if (minorVers != nullptr) *minorVers = h[7];
    if (subVers != nullptr) *subVers = static_cast<char>(h[8]);
    if (how != nullptr) *how = h[9];
    return kXdMagicOk;
}
