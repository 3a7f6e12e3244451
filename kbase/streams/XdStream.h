// The checked XDR streams: XdStream with XdIStream (input), XdOStream (output) and XdStdio (a file
// opened by name, both directions).
//
// A checked stream starts with a file header (file type, major and minor version, sub-version and
// how; layout in basert/xdr.h) and throws when an item fails: ExRead on input, ExWrite on output,
// ExMem or ExOpen when XdStdio cannot open its file (ExMain.h). A file without a header is not an
// error: it is read from where it was, as headerless data, with file type 0 and how 0.
//
// Output is buffered (see basert/xdr.h). The header is pushed into the file when the stream is
// opened, so a file that takes no data at all (a full disk) fails there: XdStdio throws ExOpen.
// A disk that fills up later shows at the item whose write finds the buffer full, not
// necessarily at the first item after the disk filled up. Flush() pushes what is buffered and
// says whether it arrived; the destructor flushes too, but can only drop an error.
//
// Class tree: XdStream derives virtually from UtStream; XdIStream and XdOStream derive virtually
// from XdStream (so XdStdio, which derives from both, has one header and one handle).
#pragma once

#include <cstdint>
#include <cstdio>

#include "basert/xdr.h"
#include "kbase/export.h"
#include "kbase/streams/UtStream.h"

class UtCString;
namespace kbase_streams_internal {
class XdStdioFile;
}

class KBASE_API XdStream : public virtual UtStream {
  public:
    XdStream();
    // Copies the header fields and the file, and opens a new handle on that file, at the other
    // stream's position (its buffer is written out or its read-ahead handed back first), with
    // the opener that how names: XD_HOW_FD on the file's descriptor, XD_HOW_UTFILE through the
    // runtime's file routines, stdio otherwise. From then on each stream keeps its own buffer.
    XdStream(const XdStream& other);
    // The same as copying, after closing this stream's handle.
    XdStream& operator=(const XdStream& other);
    ~XdStream() override;

    unsigned char fileType() const { return fileType_; }
    void SetFileType(unsigned char v) { fileType_ = v; }
    unsigned char majorVers() const { return majorVers_; }
    void SetMajorVers(unsigned char v) { majorVers_ = v; }
    unsigned char minorVers() const { return minorVers_; }
    void SetMinorVers(unsigned char v) { minorVers_ = v; }
    char subVers() const { return subVers_; }
    void SetSubVers(char v) { subVers_ = v; }
    unsigned char how() const { return how_; }
    void SetHow(unsigned char v) { how_ = v; }
    XD_XDR_STRUCT* GetXdrPtr() { return &xdr_; }

    // Opens the handle on the caller's file (left open) and writes (mode contains 'w') or reads
    // the header there. Writing returns OsMagicWrite's result: 0, or non-zero when the file
    // refused the header (every item then throws ExWrite). Reading returns 0 whether or not a
    // header was found; without one the file type and how become 0 and the stream goes back to
    // where it was. kNoHandle when no handle could be opened (null file, no memory).
    int Open(FILE* file, const char* mode);
    static constexpr int kNoHandle = -1;

    int64_t Tell() override;
    bool Seek(int64_t position) override;

  protected:
    FILE* file() const { return file_; }
    // Closes the handle (writing out what is buffered); false when that write failed.
    bool CloseHandle();
    // Closes the handle and forgets the caller's file (a file object held is kept).
    void DetachFile();
    // Hands the stream a file object (XdStdio); the stream holds one reference while it lives.
    void AdoptFile(kbase_streams_internal::XdStdioFile* file);
    void ReleaseFile();

  private:
    void OpenLike(const XdStream& other);
    bool OpenHandle(xdr_op op);

    FILE* file_ = nullptr;
    kbase_streams_internal::XdStdioFile* fileObject_ = nullptr;
    unsigned char fileType_ = 0;
    unsigned char majorVers_ = 0;
    unsigned char minorVers_ = 0;
    char subVers_ = '-';
    unsigned char how_ = 0;
    // Mutable: copying a stream writes out or hands back the other stream's buffer.
    mutable XD_XDR_STRUCT xdr_{};
};

class KBASE_API XdIStream : public virtual XdStream, public UtIStream {
  public:
    XdIStream() = default;
    XdIStream(const XdIStream& other);
    XdIStream& operator=(const XdIStream& other);
    ~XdIStream() override;

    // Each throws kbase::ExRead when the item cannot be read. int and long share the 32-bit
    // signed item, unsigned int and unsigned long the unsigned one.
    XdIStream& operator>>(char& v) override;
    XdIStream& operator>>(unsigned char& v) override;
    XdIStream& operator>>(short& v) override;
    XdIStream& operator>>(unsigned short& v) override;
    XdIStream& operator>>(long& v) override;
    XdIStream& operator>>(unsigned long& v) override;
    XdIStream& operator>>(int& v) override;
    XdIStream& operator>>(unsigned int& v) override;
    XdIStream& operator>>(float& v) override;
    XdIStream& operator>>(double& v) override;
    // A text of at most kMaxText bytes into the caller's buffer, which must hold the text and its
    // terminator (kMaxText + 1 bytes always do). A longer text throws before anything is stored.
    XdIStream& operator>>(char* buffer) override;
    // A text of any length in a new block (free with UtFreeMemory).
    XdIStream& operator>>(char** text) override;
    static constexpr unsigned int kMaxText = 65535;

    UtIStream* Dup() const override;
};

class KBASE_API XdOStream : public virtual XdStream, public UtOStream {
  public:
    XdOStream() = default;
    XdOStream(const XdOStream& other);
    XdOStream& operator=(const XdOStream& other);
    ~XdOStream() override;

    // Each throws kbase::ExWrite when the item cannot be written.
    XdOStream& operator<<(char v) override;
    XdOStream& operator<<(unsigned char v) override;
    XdOStream& operator<<(short v) override;
    XdOStream& operator<<(unsigned short v) override;
    XdOStream& operator<<(long v) override;
    XdOStream& operator<<(unsigned long v) override;
    XdOStream& operator<<(int v) override;
    XdOStream& operator<<(unsigned int v) override;
    XdOStream& operator<<(float v) override;
    XdOStream& operator<<(double v) override;
    // A null text is written as the empty text.
    XdOStream& operator<<(const char* text) override;

    // Writes out what is buffered and flushes the file; false when that failed.
    [[nodiscard]] bool Flush();

    UtOStream* Dup() const override;
};

class KBASE_API XdStdio : public XdIStream, public XdOStream {
  public:
    XdStdio();
    // Open(path, mode).
    XdStdio(const UtCString& path, const UtCString& mode);
    // Copies share the file object (reference-counted); each has its own handle (see XdStream).
    XdStdio(const XdStdio& other);
    XdStdio& operator=(const XdStdio& other);
    ~XdStdio() override;

    // Opens the file (UTF-8 path, an fopen mode; binary on every platform) and its header: written
    // when mode contains 'w', read otherwise. The previous file is let go first. Throws
    // kbase::ExMem when the file cannot be opened, kbase::ExOpen (with the header's result code)
    // when the header cannot be written.
    void Open(const UtCString& path, const UtCString& mode);
    using XdStream::Open;
};
