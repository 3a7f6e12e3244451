#include <new>

#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"

namespace {

// Reports name this module and the line of the original reader of each item.
constexpr const char* kModule = "XdIStream";
constexpr int kLineChar = 118;
constexpr int kLineUChar = 134;
constexpr int kLineShort = 150;
constexpr int kLineUShort = 166;
constexpr int kLineLong = 182;
constexpr int kLineULong = 198;
constexpr int kLineInt = 215;
constexpr int kLineUInt = 233;
constexpr int kLineFloat = 250;
constexpr int kLineDouble = 266;
constexpr int kLineBufferText = 283;
constexpr int kLineNewText = 301;

// Throws when the codec failed. The operation texts name the ONC codecs of the original reader
// (both text forms say "xdr_opaque"); they are part of the diagnostics and stay as they are.
void Check(int ok, int line, const char* operation) {
    if (!ok) throw kbase::ExRead(kModule, line, operation);
}

}  // namespace

XdIStream::XdIStream(const XdIStream& other) : UtStream(other), XdStream(other), UtIStream(other) {}

XdIStream& XdIStream::operator=(const XdIStream& other) {
    XdStream::operator=(other);
    return *this;
}

XdIStream::~XdIStream() = default;

XdIStream& XdIStream::operator>>(char& v) {
    Check(Xdr_CHAR(GetXdrPtr(), &v), kLineChar, "XdIStream::operator >>/xdr_char");
    return *this;
}

XdIStream& XdIStream::operator>>(unsigned char& v) {
    Check(Xdr_UBYTE(GetXdrPtr(), &v), kLineUChar, "XdIStream::operator >>/xdr_u_char");
    return *this;
}

XdIStream& XdIStream::operator>>(short& v) {
    Check(Xdr_SSHORT(GetXdrPtr(), &v), kLineShort, "XdIStream::operator >>/xdr_short");
    return *this;
}

XdIStream& XdIStream::operator>>(unsigned short& v) {
    Check(Xdr_USHORT(GetXdrPtr(), &v), kLineUShort, "XdIStream::operator >>/xdr_u_short");
    return *this;
}

XdIStream& XdIStream::operator>>(long& v) {
    Check(Xdr_SLONG(GetXdrPtr(), &v), kLineLong, "XdIStream::operator >>/xdr_long");
    return *this;
}

XdIStream& XdIStream::operator>>(unsigned long& v) {
    Check(Xdr_ULONG(GetXdrPtr(), &v), kLineULong, "XdIStream::operator >>/xdr_u_long");
    return *this;
}

XdIStream& XdIStream::operator>>(int& v) {
    long wide = 0;
    Check(Xdr_SLONG(GetXdrPtr(), &wide), kLineInt, "XdIStream::operator >>/xdr_int");
    v = static_cast<int>(wide);  // the item is 32 bits wide
    return *this;
}

XdIStream& XdIStream::operator>>(unsigned int& v) {
    unsigned long wide = 0;
    Check(Xdr_ULONG(GetXdrPtr(), &wide), kLineUInt, "XdIStream::operator >>/xdr_u_int");
    v = static_cast<unsigned int>(wide);
    return *this;
}

XdIStream& XdIStream::operator>>(float& v) {
    Check(Xdr_FLOAT(GetXdrPtr(), &v), kLineFloat, "XdIStream::operator >>/xdr_float");
    return *this;
}

XdIStream& XdIStream::operator>>(double& v) {
    Check(Xdr_REAL(GetXdrPtr(), &v), kLineDouble, "XdIStream::operator >>/xdr_double");
    return *this;
}

XdIStream& XdIStream::operator>>(char* buffer) {
    // A null buffer would make the codec allocate a block nobody frees: refuse it as a failed read.
    Check(buffer != nullptr && Xdr_STRING(GetXdrPtr(), &buffer, kMaxText), kLineBufferText,
          "XdIStream::operator >>/xdr_opaque");
    return *this;
}

XdIStream& XdIStream::operator>>(char** text) {
    Check(text != nullptr && Xdr_A_STRING(GetXdrPtr(), text), kLineNewText,
          "XdIStream::operator >>/xdr_opaque");
    return *this;
}

UtIStream* XdIStream::Dup() const { return new (std::nothrow) XdIStream(*this); }
