// VlValue: a small tagged value: a real (double), a long (32 bits), an owned text, "void" (a long
// payload without a meaning of its own) or an untyped pointer.
//
// A new value is void with payload 0. Readers of another kind convert where it is plain: GetReal
// of a long widens it, GetLong of a real truncates toward zero (saturating at the 32-bit range),
// and GetLong of void gives its payload; otherwise they give 0 (GetText: null, GetVptr: null).
// GetBool is GetLong() != 0 for numbers and "has a non-empty text" for a text; GetShort truncates
// GetLong to 16 bits.
//
// The text is a block of the runtime: RemoveText hands it to the caller (free with UtFreeMemory)
// and leaves the value void. A setter whose text cannot be copied (no memory) leaves a void value.
//
// Stream form (XdOStream/XdIStream): the kind as one unsigned char (VlValue::eVlType), then the
// payload: a real as double, a long or void payload as long, a text as an XDR text, a pointer as
// nothing (an address means nothing in another process: it is read back as null). Reading an
// unknown kind throws kbase::ExRead and leaves the value as it was.
#pragma once

#include <cstdint>

#include "kbase/export.h"

class XdIStream;
class XdOStream;

class KBASE_API VlValue {
  public:
    enum eVlType : unsigned char {
        eVlVoid = 0,
        eVlLong = 1,
        eVlReal = 2,
        eVlText = 3,
        eVlVptr = 4
    };

    VlValue() = default;
    explicit VlValue(double v) { SetReal(v); }
    explicit VlValue(long v) { SetLong(v); }
    explicit VlValue(const char* text) { SetText(text); }
    VlValue(const VlValue& other);
    VlValue(VlValue&& other) noexcept;
    VlValue& operator=(const VlValue& other);
    VlValue& operator=(VlValue&& other) noexcept;
    ~VlValue();

    bool IsReal() const { return type_ == eVlReal; }
    bool IsLong() const { return type_ == eVlLong; }
    bool IsText() const { return type_ == eVlText; }
    bool IsVoid() const { return type_ == eVlVoid; }
    bool IsVptr() const { return type_ == eVlVptr; }
    eVlType GetType() const { return type_; }

    double GetReal() const;
    long GetLong() const;
    const char* GetText() const { return type_ == eVlText ? text_ : nullptr; }
    long GetVoid() const { return type_ == eVlVoid ? long_ : 0; }
    void* GetVptr() const { return type_ == eVlVptr ? ptr_ : nullptr; }
    bool GetBool() const;
    short GetShort() const { return static_cast<short>(GetLong()); }

    // Each setter frees a text held before. Without a value: the kind with 0, "" or null.
    void SetReal(double v = 0);
    void SetLong(long v = 0);
    void SetText(const char* text = "");
    void SetVoid_(long v = 0);
    void SetVptr(void* p = nullptr);
    VlValue& operator=(double v) { return SetReal(v), *this; }
    VlValue& operator=(long v) { return SetLong(v), *this; }
    VlValue& operator=(const char* text) { return SetText(text), *this; }

    // Hands the text to the caller (null when the value is no text); the value becomes void.
    char* RemoveText();
    // Free releases the text; Clear does too; both leave void with payload 0.
    void Free();
    void Clear() { Free(); }

    bool operator==(const VlValue& other) const;
    bool operator!=(const VlValue& other) const { return !(*this == other); }

  private:
    eVlType type_ = eVlVoid;
    double real_ = 0;
    int32_t long_ = 0;  // long and void payload
    char* text_ = nullptr;
    void* ptr_ = nullptr;
};

KBASE_API XdOStream& operator<<(XdOStream& out, const VlValue& v);
KBASE_API XdIStream& operator>>(XdIStream& in, VlValue& v);
