// The operating-system calls of the XDR layer on POSIX.
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "basert/internal/xdr_io.h"

static_assert(sizeof(off_t) >= 8, "64-bit file positions are needed");

int64_t TellFile(FILE* f) {
    return static_cast<int64_t>(ftello(f));
}
bool SeekFile(FILE* f, uint64_t pos) {
    return pos <= static_cast<uint64_t>(INT64_MAX) &&
           fseeko(f, static_cast<off_t>(pos), SEEK_SET) == 0;
}
int64_t TellFd(int fd) {
    return static_cast<int64_t>(lseek(fd, 0, SEEK_CUR));
}
bool SeekFd(int fd, uint64_t pos) {
    return pos <= static_cast<uint64_t>(INT64_MAX) &&
           lseek(fd, static_cast<off_t>(pos), SEEK_SET) >= 0;
}
// Bytes read (> 0), 0 at the end of the file, -1 on an error (errno set).
int64_t ReadFd(int fd, void* dst, size_t n) {
    for (;;) {
        const ssize_t r = ::read(fd, dst, n);
        if (r >= 0) return r;
        if (errno != EINTR) return -1;
    }
}
bool WriteFd(int fd, const unsigned char* src, size_t n) {
    while (n > 0) {
        const ssize_t r = ::write(fd, src, n);
        if (r < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        if (r == 0) {
            errno = EIO;
            return false;
        }
        src += r;
        n -= static_cast<size_t>(r);
    }
    return true;
}
// Size of a regular file, -1 for anything else (pipe, terminal, no descriptor).
int64_t RegularFileSize(int fd) {
    if (fd < 0) return -1;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) return -1;
    return static_cast<int64_t>(st.st_size);
}

int BrFileDescriptor(FILE* file) { return ::fileno(file); }
