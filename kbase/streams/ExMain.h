// Exceptions of the checked streams.
//
// ExMain is the root; ExRead and ExWrite report a failed item, ExOpen a file whose header could
// not be written, ExMem a file object that could not be made. Every message begins with the
// location prefix "in file "<module>" at line <n>: ", where module is the source module that threw.
#pragma once

#include <exception>
#include <string>

#include "kbase/export.h"

namespace kbase {

class KBASE_API ExMain : public std::exception {
public:
    // A complete message (prefix included) and the result code that caused it (0 when none).
    explicit ExMain(std::string message, int code = 0);
    // The location prefix followed directly by text.
    ExMain(const char* module, int line, const char* text, int code = 0);
    ExMain(const ExMain&) = default;
    ExMain& operator=(const ExMain&) = default;
    ~ExMain() override;

    const char* what() const noexcept override { return message_.c_str(); }
    const std::string& message() const { return message_; }
    int code() const { return code_; }

    // "in file "<module>" at line <line>: "
    static std::string LocationPrefix(const char* module, int line);

private:
    std::string message_;
    int code_;
};

class KBASE_API ExRead : public ExMain {
public:
    using ExMain::ExMain;
    ~ExRead() override;
};

class KBASE_API ExWrite : public ExMain {
public:
    using ExMain::ExMain;
    ~ExWrite() override;
};

class KBASE_API ExOpen : public ExMain {
public:
    using ExMain::ExMain;
    ~ExOpen() override;
};

class KBASE_API ExMem : public ExMain {
public:
    using ExMain::ExMain;
    ~ExMem() override;
};

}  // namespace kbase
