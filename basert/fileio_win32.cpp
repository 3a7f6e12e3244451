#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>
#include <windows.h>

#include "basert/fileio.h"

namespace {

HANDLE HandleOf(FILE* file) {
    const int fd = _fileno(file);
    return fd < 0 ? INVALID_HANDLE_VALUE : reinterpret_cast<HANDLE>(_get_osfhandle(fd));
}

}  // namespace

int64_t UtFileSize64(FILE* file) {
    if (file == nullptr) return -1;
    HANDLE h = HandleOf(file);
    if (h == INVALID_HANDLE_VALUE || GetFileType(h) != FILE_TYPE_DISK) return -1;
    BY_HANDLE_FILE_INFORMATION info;
    if (!GetFileInformationByHandle(h, &info) || (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
        return -1;
    }
    return static_cast<int64_t>((static_cast<uint64_t>(info.nFileSizeHigh) << 32) | info.nFileSizeLow);
}

void UtFileSetBinary(FILE* file) {
    if (file != nullptr) _setmode(_fileno(file), _O_BINARY);
}

bool UtFileIsTerminal(FILE* file) { return file != nullptr && _isatty(_fileno(file)) != 0; }

UtFileKindValue UtFileKind(FILE* file) {
    if (file == nullptr) return kUtFileClosed;
    HANDLE h = HandleOf(file);
    if (h == INVALID_HANDLE_VALUE) return kUtFileClosed;
    switch (GetFileType(h)) {
        case FILE_TYPE_DISK: {
            BY_HANDLE_FILE_INFORMATION info;
            if (!GetFileInformationByHandle(h, &info)) return kUtFileOther;
            return (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) ? kUtFileDirectory : kUtFileRegular;
        }
        case FILE_TYPE_CHAR: return kUtFileDevice;
        case FILE_TYPE_PIPE: return kUtFilePipe;
        default: return GetLastError() == NO_ERROR ? kUtFileOther : kUtFileClosed;
    }
}
