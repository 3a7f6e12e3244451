// The only operating-system calls of the XDR layer; each back end has its own xdr_*.cpp.
// Positions and sizes are 64-bit on every platform.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

int64_t TellFile(FILE* f);
bool SeekFile(FILE* f, uint64_t pos);
int64_t TellFd(int fd);
bool SeekFd(int fd, uint64_t pos);
// Bytes read (> 0), 0 at the end of the file, -1 on an error (errno set).
int64_t ReadFd(int fd, void* dst, size_t n);
bool WriteFd(int fd, const unsigned char* src, size_t n);
// Size of a regular file, -1 for anything else (pipe, terminal, no descriptor).
int64_t RegularFileSize(int fd);
// The descriptor of a stream (not null).
int BrFileDescriptor(FILE* file);
