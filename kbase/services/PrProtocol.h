// PrProtocol: a sink for protocol lines (the variables write every change to one).
//
// A line is written as pieces (Text, Char, Number) and closed by EndLine. Two sinks come with the
// library: PrFileProtocol appends lines to a file, PrMemoryProtocol keeps them in memory.
#pragma once

#include <cstdio>
#include <string>

#include "kbase/export.h"

class KBASE_API PrProtocol {
  public:
    PrProtocol() = default;
    PrProtocol(const PrProtocol&) = delete;
    PrProtocol& operator=(const PrProtocol&) = delete;
    virtual ~PrProtocol();

    virtual void Text(const char* text) = 0;  // null writes nothing
    virtual void Char(char c) = 0;
    virtual void Number(long value) = 0;  // decimal
    virtual void EndLine() = 0;
};

// Lines into a file, each ended by "\n". A failed write is remembered: Close reports it.
class KBASE_API PrFileProtocol : public PrProtocol {
  public:
    PrFileProtocol() = default;
    ~PrFileProtocol() override;

    // Opens path (UTF-8), truncating it, or appending with append; false when it cannot be opened.
    bool Open(const char* path, bool append = false);
    // Closes the file; false when it was not open or any write (or the close) failed.
    bool Close();

    void Text(const char* text) override;
    void Char(char c) override;
    void Number(long value) override;
    void EndLine() override;

  private:
    void Write(const char* data, size_t n);
    FILE* file_ = nullptr;
    bool failed_ = false;
};

// Lines kept in memory, each ended by "\n".
class KBASE_API PrMemoryProtocol : public PrProtocol {
  public:
    void Text(const char* text) override;
    void Char(char c) override;
    void Number(long value) override;
    void EndLine() override;

    const std::string& Contents() const { return contents_; }
    void Clear() { contents_.clear(); }

  private:
    std::string contents_;
};
