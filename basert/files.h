// Files, folders and the process environment. Paths are UTF-8 on every platform.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "basert/export.h"

// Writes the user's folder for temporary files, ending in a separator, into buf (cap bytes, NUL
// included) and returns its length; 0 when none is known. When cap is too small nothing is
// written and the needed length is returned. Taken from TMPDIR, else "/tmp/".
BASERT_API size_t UtGetTempDir(char* buf, size_t cap);

// Looks up an environment variable: writes its value into buf (cap bytes, NUL included) and returns
// its length, or -1 when it is not set. When cap is too small nothing is written and the needed
// length is returned (so a caller compares the result with cap).
BASERT_API int64_t OsGetEnv(const char* name, char* buf, size_t cap);

// Index of the '.' that starts the extension of the last path component ("a/b.c.txt" -> the
// second '.'), or -1 when that component has none. A name that is only a leading dot
// (".profile") has no extension. Both '/' and '\' separate components.
BASERT_API int64_t UtSplitFileExtension(const char* path);

// Opens a file by UTF-8 path with an fopen mode ("r", "wb", ...). Null on failure, with errno set.
[[nodiscard]] BASERT_API FILE* UtFileOpen(const char* path, const char* mode);
// Closes a file of UtFileOpen; returns 0, or EOF when writing its last data failed. Null gives EOF.
BASERT_API int UtFileClose(FILE* file);

// Puts the file at from in the place of the file at to (made when missing) in one step, so that a
// reader sees the old file or the new one, never a mix. Both paths UTF-8, on one volume. Returns 0,
// or -1 with errno set and both files as they were. POSIX: rename; Windows: ReplaceFileW (which
// keeps the replaced file's attributes), or MoveFileExW when to does not exist yet.
BASERT_API int UtFileReplace(const char* from, const char* to);
// Deletes the file at the UTF-8 path. Returns 0, or -1 with errno set.
BASERT_API int UtFileRemove(const char* path);

// Gives a program its arguments in UTF-8, as every path here is: on Windows main's argv is in the
// ANSI code page, so *argc and *argv are replaced by the UTF-8 forms of the wide command line
// (kept for the life of the process). Nothing to do on POSIX. Call first thing in main.
BASERT_API void UtUtf8Arguments(int* argc, char*** argv);

// Opens a file or address for the user with the desktop's default program (xdg-open), without
// waiting. Never runs anything when KBASE_NO_SHELL=1. Returns 0 when the program was started.
BASERT_API int UtSystem(const char* utf8Target);
