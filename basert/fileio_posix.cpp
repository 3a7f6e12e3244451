#include <sys/stat.h>
#include <unistd.h>

#include "basert/fileio.h"

int64_t UtFileSize64(FILE* file) {
    if (file == nullptr) return -1;
    struct stat st;
    if (fstat(fileno(file), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
    return static_cast<int64_t>(st.st_size);
}

void UtFileSetBinary(FILE*) {}

bool UtFileIsTerminal(FILE* file) { return file != nullptr && isatty(fileno(file)) == 1; }

UtFileKindValue UtFileKind(FILE* file) {
    struct stat st;
    if (file == nullptr || fstat(fileno(file), &st) != 0) return kUtFileClosed;
    if (S_ISREG(st.st_mode)) return kUtFileRegular;
    if (S_ISDIR(st.st_mode)) return kUtFileDirectory;
    if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) return kUtFileDevice;
    if (S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode)) return kUtFilePipe;
    return kUtFileOther;
}
