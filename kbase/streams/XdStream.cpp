#include <cstring>

#include "kbase/streams/XdStream.h"
#include "kbase/streams/internal/XdStdioFile.h"

using kbase_streams_internal::XdStdioFile;

XdStream::XdStream() = default;

XdStream::XdStream(const XdStream& other) : UtStream(other) { OpenLike(other); }

XdStream& XdStream::operator=(const XdStream& other) {
    if (this != &other) {
        CloseHandle();
        if (fileObject_ != other.fileObject_) ReleaseFile();
        OpenLike(other);
    }
    return *this;
}

XdStream::~XdStream() {
    // The handle first: it writes its buffer into the file the object is about to close.
    CloseHandle();
    ReleaseFile();
}

void XdStream::OpenLike(const XdStream& other) {
    fileType_ = other.fileType_;
    majorVers_ = other.majorVers_;
    minorVers_ = other.minorVers_;
    subVers_ = other.subVers_;
    how_ = other.how_;
    file_ = other.file_;
    if (fileObject_ != other.fileObject_) {
        fileObject_ = other.fileObject_;
        if (fileObject_ != nullptr) fileObject_->AddRef();
    }
    const XD_XDR_STRUCT& theirs = other.xdr_;
    if (file_ == nullptr || theirs.x_how == XD_HOW_NONE) return;
    // Written data must be in the file before a second handle works on it; the new handle then
    // starts at the other's position (each handle sets its own position before it moves bytes).
    const XdrFilePos where = Xdr_getpos(&other.xdr_);
    (void)XdSync(&other.xdr_);
    if (OpenHandle(theirs.x_op) && Xdr_getpos(&xdr_) != where) (void)Xdr_setpos(&xdr_, where);
}

bool XdStream::OpenHandle(xdr_op op) {
    int ok = 0;
    switch (how_) {
        case XD_HOW_FD:
            // The descriptor is used directly: whatever stdio holds must be settled first.
            std::fflush(file_);
            ok = XdOpenFdIo(&xdr_, XdFileno(file_), op);
            break;
        case XD_HOW_UTFILE:
            ok = XdOpenUtFileIo(&xdr_, file_, op);
            break;
        default:
            ok = XdOpenXdrStdIo(&xdr_, file_, op);
            break;
    }
    return ok != 0;
}

bool XdStream::CloseHandle() { return XdClose(&xdr_) != 0; }

void XdStream::DetachFile() {
    CloseHandle();
    file_ = nullptr;
}

void XdStream::AdoptFile(XdStdioFile* file) {
    ReleaseFile();
    fileObject_ = file;
    if (file != nullptr) file->AddRef();
}

void XdStream::ReleaseFile() {
    if (fileObject_ != nullptr) {
        if (fileObject_->file() == file_) file_ = nullptr;
        fileObject_->Release();
        fileObject_ = nullptr;
    }
}

int XdStream::Open(FILE* file, const char* mode) {
    CloseHandle();
    if (fileObject_ != nullptr && fileObject_->file() != file) ReleaseFile();
    file_ = file;
    const bool writing = mode != nullptr && std::strchr(mode, 'w') != nullptr;
    if (!OpenHandle(writing ? XDR_ENCODE : XDR_DECODE)) return kNoHandle;
    if (writing) {
        return OsMagicWrite(&xdr_, fileType_, majorVers_, minorVers_, subVers_, how_);
    }
    const int64_t start = Tell();
    unsigned char how = 0;
    if (OsMagicRead(&xdr_, &fileType_, &majorVers_, &minorVers_, &subVers_, &how) != kXdMagicOk) {
        // No header: the data is read from where it was.
        fileType_ = 0;
        Seek(start);
        how_ = 0;
    } else {
        how_ = how;
    }
    return 0;
}

int64_t XdStream::Tell() {
    const XdrFilePos pos = Xdr_getpos(&xdr_);
    return pos.value > static_cast<uint64_t>(INT64_MAX) ? -1 : static_cast<int64_t>(pos.value);
}

bool XdStream::Seek(int64_t position) {
    return position >= 0 && Xdr_setpos(&xdr_, XdrFilePos{static_cast<uint64_t>(position)}) != 0;
}
