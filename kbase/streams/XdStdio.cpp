#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "basert/files.h"
#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"
#include "kbase/streams/internal/XdStdioFile.h"
#include "kbase/text/UtCString.h"

namespace kbase_streams_internal {

XdStdioFile* XdStdioFile::Create(const char* path, const char* mode) {
    std::string binary = mode;
    if (binary.find('b') == std::string::npos) binary += 'b';
    FILE* f = UtFileOpen(path, binary.c_str());
    if (f == nullptr) return nullptr;
    XdStdioFile* object = new (std::nothrow) XdStdioFile(f);
    if (object == nullptr) UtFileClose(f);
    return object;
}

void XdStdioFile::Discard(XdStdioFile* object) { delete object; }

void XdStdioFile::Release() {
    if (--refs_ <= 0) delete this;
}

XdStdioFile::~XdStdioFile() { UtFileClose(file_); }

}  // namespace kbase_streams_internal

namespace {

using kbase_streams_internal::XdStdioFile;

constexpr const char* kModule = "XdStdio";
constexpr int kLineCannotOpen = 34;
constexpr int kLineErrorOpening = 42;

// printf into a string (the messages carry paths of any length).
template <typename... Args>
std::string Format(const char* format, Args... args) {
    const int n = std::snprintf(nullptr, 0, format, args...);
    if (n <= 0) return std::string();
    std::vector<char> text(static_cast<size_t>(n) + 1);
    std::snprintf(text.data(), text.size(), format, args...);
    return std::string(text.data(), static_cast<size_t>(n));
}

}  // namespace

XdStdio::XdStdio() = default;

XdStdio::XdStdio(const UtCString& path, const UtCString& mode) { Open(path, mode); }

XdStdio::XdStdio(const XdStdio& other)
    : UtStream(other), XdStream(other), XdIStream(other), XdOStream(other) {}

XdStdio& XdStdio::operator=(const XdStdio& other) {
    XdStream::operator=(other);
    return *this;
}

XdStdio::~XdStdio() = default;

void XdStdio::Open(const UtCString& path, const UtCString& mode) {
    CloseHandle();
    ReleaseFile();
    const std::string name = path.GetUtf8String(0);
    const std::string how = mode.GetUtf8String(0);
    XdStdioFile* object = XdStdioFile::Create(name.c_str(), how.c_str());
    if (object == nullptr) {
        // The prefix ends in a space and the format adds one: the message has two there.
        throw kbase::ExMem(Format("%s Cannot open file \"%s\", mode \"%s\"",
                                  kbase::ExMain::LocationPrefix(kModule, kLineCannotOpen).c_str(),
                                  name.c_str(), how.c_str()));
    }
    const int rc = XdStream::Open(object->file(), how.c_str());
    if (rc != 0) {
        DetachFile();  // forget the file before it is closed
        XdStdioFile::Discard(object);
        throw kbase::ExOpen(Format("%s Error opening file \"%s\"",
                                   kbase::ExMain::LocationPrefix(kModule, kLineErrorOpening).c_str(),
                                   name.c_str()),
                            rc);
    }
    AdoptFile(object);
}
