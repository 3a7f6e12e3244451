#include "kbase/streams/XdrStream.h"

#include <cerrno>
#include <memory>

#include "basert/files.h"
#include "kbase/text/UtCString.h"

XdrStream::XdrStream(XD_XDR_STRUCT* handle)
    : handle_(handle), xdr_{}, how_(XD_HOW_NONE), file_(nullptr), error_(0) {}

XdrStream::XdrStream(FILE* file, xdr_op op, XD_HOW how)
    : handle_(&xdr_), xdr_{}, how_(how), file_(nullptr), error_(0) {
    OpenHandle(file, op);
}

XdrStream::XdrStream(const UtCString& path, xdr_op op, XD_HOW how)
    : handle_(nullptr), xdr_{}, how_(XD_HOW_NONE), file_(nullptr), error_(0) {
    const std::string name = path.GetUtf8String(0);
    // Binary mode: the bytes must reach the file unchanged on every platform.
    errno = 0;
    file_ = UtFileOpen(name.c_str(), op == XDR_DECODE ? "rb" : "wb");
    if (file_ == nullptr) {
        error_ = errno != 0 ? errno : ENOENT;
        return;
    }
    how_ = how;
    handle_ = &xdr_;
    OpenHandle(file_, op);
}

XdrStream::XdrStream(const XdrStream& other) : xdr_{} { CopyFrom(other); }

XdrStream& XdrStream::operator=(const XdrStream& other) {
    if (this != &other) {
        Close();
        CopyFrom(other);
    }
    return *this;
}

XdrStream::~XdrStream() { Close(); }

void XdrStream::OpenHandle(FILE* file, xdr_op op) {
    const int ok = how_ == XD_HOW_UTFILE ? XdOpenUtFileIo(&xdr_, file, op)
                                         : XdOpenXdrStdIo(&xdr_, file, op);
    // A handle that could not be opened still carries its direction, so that decode() and
    // encode() tell what the stream was meant for; every item on it fails.
    if (!ok) xdr_.x_op = op;
}

void XdrStream::Close() {
    if (how_ != XD_HOW_NONE && handle_ != nullptr) XdClose(handle_);
    if (file_ != nullptr) UtFileClose(file_);
    handle_ = nullptr;
    how_ = XD_HOW_NONE;
    file_ = nullptr;
}

// A copy is a second view of the same handle: sharing it (rather than duplicating the buffer and
// the file) is what keeps the two from closing the file twice or writing it in two orders.
void XdrStream::CopyFrom(const XdrStream& other) {
    handle_ = other.handle_;
    how_ = XD_HOW_NONE;
    file_ = nullptr;
    error_ = other.error_;
    version_ = other.version_;
}

int XdrStream::Xdr(std::string* text) {
    if (text == nullptr) return 0;
    if (encode()) {
        if (text->size() > UINT32_MAX) return 0;
        char* p = text->data();
        uint32_t n = static_cast<uint32_t>(text->size());
        return Xdr_A_STRING_N(handle_, &p, &n);
    }
    if (decode()) {
        char* p = nullptr;
        uint32_t n = 0;
        if (!Xdr_A_STRING_N(handle_, &p, &n)) return 0;
        const std::unique_ptr<char, void (*)(void*)> owner(p, &UtFreeMemory);
        text->assign(p, n);
        return 1;
    }
    return handle_ != nullptr && handle_->x_op == XDR_FREE ? 1 : 0;
}

XdrEnStream::XdrEnStream(const UtCString& path, XD_HOW how) : XdrStream(path, XDR_ENCODE, how) {}
XdrEnStream::~XdrEnStream() = default;

XdrDeStream::XdrDeStream(const UtCString& path, XD_HOW how) : XdrStream(path, XDR_DECODE, how) {}
XdrDeStream::~XdrDeStream() = default;
