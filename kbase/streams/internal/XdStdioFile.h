// The reference-counted file object of XdStdio: a stdio file opened by name, closed when the last
// stream that holds it lets go.
#pragma once

#include <cstdio>

namespace kbase_streams_internal {

class XdStdioFile {
public:
    // Opens path (UTF-8) with mode, binary on every platform; null when the file or the object
    // cannot be had (errno tells which for the file). The new object has no reference yet.
    static XdStdioFile* Create(const char* path, const char* mode);
    // Closes the file of an object that never got a reference.
    static void Discard(XdStdioFile* object);

    FILE* file() const { return file_; }
    void AddRef() { ++refs_; }
    // Drops one reference; closes the file and deletes the object at the last one.
    void Release();

private:
    explicit XdStdioFile(FILE* file) : file_(file) {}
    ~XdStdioFile();
    XdStdioFile(const XdStdioFile&) = delete;
    XdStdioFile& operator=(const XdStdioFile&) = delete;

    FILE* file_;
    long refs_ = 0;
};

}  // namespace kbase_streams_internal
