// Sizes of open files, in 64 bits on every platform (long is 32 bits on Windows, so ftell cannot
// tell the size of a large file there).
#pragma once

#include <cstdint>
#include <cstdio>

#include "basert/export.h"

// The size in bytes of the file behind an open stream, or -1 when it has none (a pipe, a
// terminal) or the stream is null.
BASERT_API int64_t UtFileSize64(FILE* file);

// Makes a stream pass bytes unchanged: Windows opens the standard streams in text mode, which
// writes CR LF for LF and ends reading at Ctrl-Z. Nothing to do on POSIX. Call before any I/O.
BASERT_API void UtFileSetBinary(FILE* file);

// Whether the stream writes to or reads from a terminal (so that progress may be drawn on it).
BASERT_API bool UtFileIsTerminal(FILE* file);

// What an open stream is connected to, as UtFileKind tells it.
enum UtFileKindValue : int {
    kUtFileClosed = 0,  // no stream, or its descriptor is closed or invalid
    kUtFileRegular = 1,
    kUtFileDirectory = 2,  // opening a directory for reading succeeds on some systems; reads fail
    kUtFileDevice = 3,     // a character or block device (a terminal, /dev/null)
    kUtFilePipe = 4,       // a pipe or socket
    kUtFileOther = 5,
};
BASERT_API UtFileKindValue UtFileKind(FILE* file);
