// The library's generic binary stream interfaces.
//
// UtIStream reads and UtOStream writes the basic C types and texts; both share the virtual base
// UtStream, which knows a position. A class that writes itself to "a stream" takes one of these,
// so that it works with any implementation (the checked XDR streams are one). Implementations
// report a failed item by throwing (see ExMain.h).
#pragma once

#include <cstdint>

#include "kbase/export.h"

class KBASE_API UtStream {
public:
    UtStream() = default;
    UtStream(const UtStream&) = default;
    UtStream& operator=(const UtStream&) = default;
    virtual ~UtStream();

    // Bytes from the start of the file, or -1 when the stream has no position.
    virtual int64_t Tell() = 0;
    // Moves to a position that Tell returned; false when that is not possible.
    virtual bool Seek(int64_t position) = 0;
};

class KBASE_API UtIStream : public virtual UtStream {
public:
    UtIStream() = default;
    UtIStream(const UtIStream& other) : UtStream(other) {}
    UtIStream& operator=(const UtIStream&) = default;
    ~UtIStream() override;

    virtual UtIStream& operator>>(char& v) = 0;
    virtual UtIStream& operator>>(unsigned char& v) = 0;
    virtual UtIStream& operator>>(short& v) = 0;
    virtual UtIStream& operator>>(unsigned short& v) = 0;
    virtual UtIStream& operator>>(long& v) = 0;
    virtual UtIStream& operator>>(unsigned long& v) = 0;
    virtual UtIStream& operator>>(int& v) = 0;
    virtual UtIStream& operator>>(unsigned int& v) = 0;
    virtual UtIStream& operator>>(float& v) = 0;
    virtual UtIStream& operator>>(double& v) = 0;
    // A text into the caller's buffer (the implementation states its limit).
    virtual UtIStream& operator>>(char* buffer) = 0;
    // A text in a new block stored into *text (free it with UtFreeMemory).
    virtual UtIStream& operator>>(char** text) = 0;

    // A new stream (delete it) that reads the same file on its own; null when memory is short.
    virtual UtIStream* Dup() const = 0;
};

class KBASE_API UtOStream : public virtual UtStream {
public:
    UtOStream() = default;
    UtOStream(const UtOStream& other) : UtStream(other) {}
    UtOStream& operator=(const UtOStream&) = default;
    ~UtOStream() override;

    virtual UtOStream& operator<<(char v) = 0;
    virtual UtOStream& operator<<(unsigned char v) = 0;
    virtual UtOStream& operator<<(short v) = 0;
    virtual UtOStream& operator<<(unsigned short v) = 0;
    virtual UtOStream& operator<<(long v) = 0;
    virtual UtOStream& operator<<(unsigned long v) = 0;
    virtual UtOStream& operator<<(int v) = 0;
    virtual UtOStream& operator<<(unsigned int v) = 0;
    virtual UtOStream& operator<<(float v) = 0;
    virtual UtOStream& operator<<(double v) = 0;
    virtual UtOStream& operator<<(const char* text) = 0;

    // A new stream (delete it) that writes the same file on its own; null when memory is short.
    virtual UtOStream* Dup() const = 0;
};
