// XdrStream, XdrEnStream, XdrDeStream: the XDR streams through which classes write and read
// themselves in binary form.
//
// A stream wraps one runtime XDR handle (basert/xdr.h, which also gives the wire form of every
// item). XdrEnStream writes, XdrDeStream reads. They never throw: Xdr(&item) returns the codec's
// status (non-zero on success), the operators drop it and return the stream, and a failed open
// shows only through errNo() and a null handle (every item then fails). The checked streams in
// XdStream.h throw instead.
//
// The item members are inline so that an item costs no library call while the handle's buffer
// has room.
#pragma once

#include <cstdio>
#include <string>

#include "basert/memory.h"
#include "basert/xdr.h"
#include "kbase/export.h"

class UtCString;
struct _ObObject;

class KBASE_API XdrStream {
  public:
    // Wraps the caller's handle; the stream closes nothing.
    explicit XdrStream(XD_XDR_STRUCT* handle);
    // Opens the embedded handle on the caller's open file (left open): through the runtime's file
    // routines when how is XD_HOW_UTFILE, through stdio for every other kind.
    XdrStream(FILE* file, xdr_op op, XD_HOW how);
    // Opens the file by name (UTF-8 on every platform; "rb" to decode, "wb" otherwise) and the
    // embedded handle on it; the stream closes both. When the file cannot be opened errNo() holds
    // errno, how is 0 and the handle is null.
    XdrStream(const UtCString& path, xdr_op op, XD_HOW how);
    // A copy shares the other stream's handle and owns nothing: it must not outlive the original.
    XdrStream(const XdrStream& other);
    XdrStream& operator=(const XdrStream& other);
    // Closes the handle when the stream opened it, then the file when the stream opened that.
    virtual ~XdrStream();

    bool decode() const { return handle_ != nullptr && handle_->x_op == XDR_DECODE; }
    bool encode() const { return handle_ != nullptr && handle_->x_op == XDR_ENCODE; }
    // errno of a failed open by name; 0 otherwise.
    int errNo() const { return error_; }
    // The data version the caller declared with SetVersion (0 until then), for classes whose
    // wire form changed between versions.
    int version() const { return version_; }
    void SetVersion(int version) { version_ = version; }
    operator XD_XDR_STRUCT*() const { return handle_; }

    XdrFilePos GetPosition() const { return Xdr_getpos(handle_); }
    // Returns Xdr_setpos's status.
    int SetPosition(XdrFilePos pos) { return Xdr_setpos(handle_, pos); }

    // One item in the handle's direction; the codec's status.
    int Xdr(int* v) { return Xdr_INT(handle_, v); }
    int Xdr(double* v) { return Xdr_REAL(handle_, v); }
    int Xdr(float* v) { return Xdr_FLOAT(handle_, v); }
    int Xdr(long* v) { return Xdr_SLONG(handle_, v); }
    int Xdr(unsigned long* v) { return Xdr_ULONG(handle_, v); }
    // The 64-bit unsigned item ("unsigned __int64"); unsigned long is 64 bits wide on some
    // platforms and 32 on others, unsigned long long is this item on all of them.
    int Xdr(unsigned long long* v) { return Xdr_ULONG64(handle_, v); }
    int Xdr(short* v) { return Xdr_SSHORT(handle_, v); }
    int Xdr(unsigned short* v) { return Xdr_USHORT(handle_, v); }
    int Xdr(char* v) { return Xdr_CHAR(handle_, v); }
    int Xdr(unsigned char* v) { return Xdr_UBYTE(handle_, v); }
    // A NUL-terminated text; decoding stores a new block (free with UtFreeMemory).
    int Xdr(char** text) { return Xdr_A_STRING(handle_, text); }
    // The whole string, NUL bytes included; decoding replaces it only on success.
    int Xdr(std::string* text);
    int Xdr(RPT3H* p) { return Xdr_RPT3H(handle_, p); }
    int Xdr(IPT* p) { return Xdr_IPT(handle_, p); }
    int Xdr(RPT* p) { return Xdr_RPT(handle_, p); }
    int Xdr(FPT3* p) { return Xdr_FPT3(handle_, p); }
    int Xdr(RPT3* p) { return Xdr_RPT3(handle_, p); }
    int Xdr(UT_MAT44* m) { return Xdr_UT_MAT44(handle_, *m); }
    int Xdr(void** p) { return Xdr_POINTER(handle_, p); }
    int Xdr(XdrFilePos* pos) { return Xdr_F_POS(handle_, pos); }

  protected:
    XD_XDR_STRUCT* handle_;  // &xdr_ when the stream opened it, the caller's handle, or null
    XD_XDR_STRUCT xdr_;
    XD_HOW how_;  // XD_HOW_NONE: nothing to close
    FILE* file_;  // opened by name, closed by the stream
    int error_;
    int version_ = 0;

  private:
    void OpenHandle(FILE* file, xdr_op op);
    void Close();
    void CopyFrom(const XdrStream& other);
};

class KBASE_API XdrEnStream : public XdrStream {
  public:
    explicit XdrEnStream(XD_XDR_STRUCT* handle) : XdrStream(handle) {}
    explicit XdrEnStream(FILE* file, XD_HOW how = XD_HOW_STDIO)
        : XdrStream(file, XDR_ENCODE, how) {}
    explicit XdrEnStream(const UtCString& path, XD_HOW how = XD_HOW_STDIO);
    XdrEnStream(const XdrEnStream&) = default;
    XdrEnStream& operator=(const XdrEnStream&) = default;
    ~XdrEnStream() override;

    XdrEnStream& operator<<(int v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(double v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(float v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(long v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(unsigned long v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(unsigned long long v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(short v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(unsigned short v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(char v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(unsigned char v) { return Xdr(&v), *this; }
    XdrEnStream& operator<<(const char* text) {
        char* p = const_cast<char*>(text);  // encoding only reads it
        return Xdr(&p), *this;
    }
    XdrEnStream& operator<<(const std::string& text) {
        return Xdr(const_cast<std::string*>(&text)), *this;  // encoding only reads it
    }
    XdrEnStream& operator<<(RPT3H p) { return Xdr(&p), *this; }
    XdrEnStream& operator<<(IPT p) { return Xdr(&p), *this; }
    XdrEnStream& operator<<(RPT p) { return Xdr(&p), *this; }
    XdrEnStream& operator<<(FPT3 p) { return Xdr(&p), *this; }
    XdrEnStream& operator<<(RPT3 p) { return Xdr(&p), *this; }
    XdrEnStream& operator<<(const UT_MAT44& m) {
        return Xdr(const_cast<UT_MAT44*>(&m)), *this;  // encoding only reads it
    }
    XdrEnStream& operator<<(void* p) { return Xdr(&p), *this; }
    XdrEnStream& operator<<(XdrFilePos pos) { return Xdr(&pos), *this; }
    // A UtCString has no wire form of its own here; without this it would travel as its raw
    // bytes (through its conversion to const char*), encoding mark included.
    XdrEnStream& operator<<(const UtCString&) = delete;
    // Object references have no wire form yet; without this an object pointer (of any class
    // derived from _ObObject, const or not) would travel as its raw address through void*.
    XdrEnStream& operator<<(const _ObObject*) = delete;
};

class KBASE_API XdrDeStream : public XdrStream {
  public:
    explicit XdrDeStream(XD_XDR_STRUCT* handle) : XdrStream(handle) {}
    explicit XdrDeStream(FILE* file, XD_HOW how = XD_HOW_STDIO)
        : XdrStream(file, XDR_DECODE, how) {}
    explicit XdrDeStream(const UtCString& path, XD_HOW how = XD_HOW_STDIO);
    XdrDeStream(const XdrDeStream&) = default;
    XdrDeStream& operator=(const XdrDeStream&) = default;
    ~XdrDeStream() override;

    XdrDeStream& operator>>(int& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(double& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(float& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(long& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(unsigned long& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(unsigned long long& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(short& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(unsigned short& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(char& v) { return Xdr(&v), *this; }
    XdrDeStream& operator>>(unsigned char& v) { return Xdr(&v), *this; }
    // A new block (free with UtFreeMemory), null when the item failed.
    XdrDeStream& operator>>(char*& text) { return Xdr(&text), *this; }
    // Unchanged when the item failed.
    XdrDeStream& operator>>(std::string& text) { return Xdr(&text), *this; }
    XdrDeStream& operator>>(RPT3H& p) { return Xdr(&p), *this; }
    XdrDeStream& operator>>(IPT& p) { return Xdr(&p), *this; }
    XdrDeStream& operator>>(RPT& p) { return Xdr(&p), *this; }
    XdrDeStream& operator>>(FPT3& p) { return Xdr(&p), *this; }
    XdrDeStream& operator>>(RPT3& p) { return Xdr(&p), *this; }
    XdrDeStream& operator>>(UT_MAT44& m) { return Xdr(&m), *this; }
    XdrDeStream& operator>>(void*& p) { return Xdr(&p), *this; }
    XdrDeStream& operator>>(XdrFilePos& pos) { return Xdr(&pos), *this; }
    XdrDeStream& operator>>(UtCString&) = delete;
    // Object references have no wire form yet (see XdrEnStream).
    XdrDeStream& operator>>(_ObObject*&) = delete;
};
