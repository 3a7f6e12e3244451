#include <climits>
#include <new>

#include "kbase/streams/ExMain.h"
#include "kbase/streams/XdStream.h"

namespace {

// Reports name this module and the line of the original writer of each item.
constexpr const char* kModule = "XdOStream";
constexpr int kLineChar = 113;
constexpr int kLineUChar = 129;
constexpr int kLineShort = 145;
constexpr int kLineUShort = 161;
constexpr int kLineLong = 177;
constexpr int kLineULong = 193;
constexpr int kLineInt = 210;
constexpr int kLineUInt = 227;
constexpr int kLineFloat = 243;
constexpr int kLineDouble = 259;
constexpr int kLineText = 277;

// Throws when the codec failed. The operation texts are part of the diagnostics and stay as they
// are, including "xdr_u_float" for a double.
void Check(int ok, int line, const char* operation) {
    if (!ok) throw kbase::ExWrite(kModule, line, operation);
}

}  // namespace

XdOStream::XdOStream(const XdOStream& other) : UtStream(other), XdStream(other), UtOStream(other) {}

XdOStream& XdOStream::operator=(const XdOStream& other) {
    XdStream::operator=(other);
    return *this;
}

XdOStream::~XdOStream() = default;

XdOStream& XdOStream::operator<<(char v) {
    Check(Xdr_CHAR(GetXdrPtr(), &v), kLineChar, "XdOStream::operator <</xdr_char");
    return *this;
}

XdOStream& XdOStream::operator<<(unsigned char v) {
    Check(Xdr_UBYTE(GetXdrPtr(), &v), kLineUChar, "XdOStream::operator <</xdr_u_char");
    return *this;
}

XdOStream& XdOStream::operator<<(short v) {
    Check(Xdr_SSHORT(GetXdrPtr(), &v), kLineShort, "XdOStream::operator <</xdr_short");
    return *this;
}

XdOStream& XdOStream::operator<<(unsigned short v) {
    Check(Xdr_USHORT(GetXdrPtr(), &v), kLineUShort, "XdOStream::operator <</xdr_u_short");
    return *this;
}

XdOStream& XdOStream::operator<<(long v) {
    Check(Xdr_SLONG(GetXdrPtr(), &v), kLineLong, "XdOStream::operator <</xdr_long");
    return *this;
}

XdOStream& XdOStream::operator<<(unsigned long v) {
    Check(Xdr_ULONG(GetXdrPtr(), &v), kLineULong, "XdOStream::operator <</xdr_u_long");
    return *this;
}

XdOStream& XdOStream::operator<<(int v) {
    long wide = v;
    Check(Xdr_SLONG(GetXdrPtr(), &wide), kLineInt, "XdOStream::operator <</xdr_int");
    return *this;
}

XdOStream& XdOStream::operator<<(unsigned int v) {
    unsigned long wide = v;
    Check(Xdr_ULONG(GetXdrPtr(), &wide), kLineUInt, "XdOStream::operator <</xdr_u_int");
    return *this;
}

XdOStream& XdOStream::operator<<(float v) {
    Check(Xdr_FLOAT(GetXdrPtr(), &v), kLineFloat, "XdOStream::operator <</xdr_float");
    return *this;
}

XdOStream& XdOStream::operator<<(double v) {
    Check(Xdr_REAL(GetXdrPtr(), &v), kLineDouble, "XdOStream::operator <</xdr_u_float");
    return *this;
}

XdOStream& XdOStream::operator<<(const char* text) {
    char* p = const_cast<char*>(text);  // encoding only reads it
    Check(Xdr_STRING(GetXdrPtr(), &p, UINT_MAX), kLineText, "XdOStream::operator <</xdr_STRING");
    return *this;
}

bool XdOStream::Flush() { return XdSync(GetXdrPtr()) != 0; }

UtOStream* XdOStream::Dup() const { return new (std::nothrow) XdOStream(*this); }
