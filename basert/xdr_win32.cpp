// The operating-system calls of the XDR layer on Windows: the runtime's 64-bit forms, because
// long (and so ftell and lseek) is 32 bits there.
#include <io.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>

#include "basert/internal/xdr_io.h"

int64_t TellFile(FILE* f) { return _ftelli64(f); }
bool SeekFile(FILE* f, uint64_t pos) {
    return pos <= static_cast<uint64_t>(INT64_MAX) && _fseeki64(f, static_cast<int64_t>(pos), SEEK_SET) == 0;
}
int64_t TellFd(int fd) { return _lseeki64(fd, 0, SEEK_CUR); }
bool SeekFd(int fd, uint64_t pos) {
    return pos <= static_cast<uint64_t>(INT64_MAX) && _lseeki64(fd, static_cast<int64_t>(pos), SEEK_SET) >= 0;
}
int64_t ReadFd(int fd, void* dst, size_t n) {
    // _read takes an unsigned int count; a short read is fine for the caller.
    const unsigned chunk = n > 0x40000000u ? 0x40000000u : static_cast<unsigned>(n);
    return _read(fd, dst, chunk);
}
bool WriteFd(int fd, const unsigned char* src, size_t n) {
    while (n > 0) {
        const unsigned chunk = n > 0x40000000u ? 0x40000000u : static_cast<unsigned>(n);
        const int r = _write(fd, src, chunk);
        if (r < 0) return false;
        if (r == 0) {
            errno = EIO;
            return false;
        }
        src += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}
int64_t RegularFileSize(int fd) {
    if (fd < 0) return -1;
    struct _stat64 st;
    if (_fstat64(fd, &st) != 0 || (st.st_mode & _S_IFMT) != _S_IFREG) return -1;
    return st.st_size;
}
int BrFileDescriptor(FILE* file) { return _fileno(file); }
