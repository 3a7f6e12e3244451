// Helpers shared by the test programs: capturing diagnostics and scoping allocation failures.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#include <process.h>
#else
#include <unistd.h>
#endif

#include "basert/codepage.h"
#include "basert/diag.h"
#include "basert/memory.h"

namespace kbase_test {

// The process environment, the same on every platform (what OsGetEnv and getenv then see).
inline void SetEnv(const char* name, const char* value) {
#ifdef _WIN32
    _putenv_s(name, value);
#else
    setenv(name, value, 1);
#endif
}
inline void UnsetEnv(const char* name) {
#ifdef _WIN32
    _putenv_s(name, "");  // an empty value removes the variable there
#else
    unsetenv(name);
#endif
}
// Whether the system lacks a code page that tests use: Wine has neither ISO-2022-JP (50220) nor
// GB 18030 (54936), which the Win32 back end takes from the system. Never on the ICU back end.
inline bool SystemLacksCodePage(int cp) {
#ifdef _WIN32
    return (cp == 50220 || cp == 54936) && !BrCodePageAvailable(static_cast<unsigned short>(cp));
#else
    (void)cp;
    return false;
#endif
}

// An anonymous pipe of binary descriptors: fds[0] reads, fds[1] writes. 0 on success.
inline int MakePipe(int fds[2]) {
#ifdef _WIN32
    return _pipe(fds, 1 << 16, _O_BINARY);
#else
    return pipe(fds);
#endif
}
// Descriptors the same way on every platform: a stream over one, writing all of n bytes (false
// when a write fails), closing, and this process's id.
inline FILE* OpenDescriptor(int fd, const char* mode) {
#ifdef _WIN32
    return _fdopen(fd, mode);
#else
    return fdopen(fd, mode);
#endif
}
inline bool WriteAll(int fd, const void* data, size_t n) {
    const auto* p = static_cast<const char*>(data);
    while (n > 0) {
#ifdef _WIN32
        const int chunk = n > (1u << 20) ? (1 << 20) : static_cast<int>(n);
        const int wrote = _write(fd, p, static_cast<unsigned>(chunk));
#else
        const auto wrote = write(fd, p, n);
#endif
        if (wrote <= 0) return false;
        p += wrote;
        n -= static_cast<size_t>(wrote);
    }
    return true;
}
inline int CloseDescriptor(int fd) {
#ifdef _WIN32
    return _close(fd);
#else
    return close(fd);
#endif
}
inline long ProcessId() {
#ifdef _WIN32
    return _getpid();
#else
    return static_cast<long>(getpid());
#endif
}

struct CapturedReport {
    std::string module;
    int line;
    std::string function;
    int level;
    std::string message;
    std::string expression;
    long long value;
    bool hasValue;
};

// Captures every report made while it lives.
class DiagCapture {
public:
    DiagCapture() { previous_ = DebugSetHandler(&DiagCapture::Handle, this, &previousUser_); }
    ~DiagCapture() { DebugSetHandler(previous_, previousUser_); }
    DiagCapture(const DiagCapture&) = delete;
    DiagCapture& operator=(const DiagCapture&) = delete;

    const std::vector<CapturedReport>& reports() const { return reports_; }
    void clear() { reports_.clear(); }

private:
    static void Handle(const DebugReport& r, void* user) {
        static_cast<DiagCapture*>(user)->reports_.push_back(
            {r.module, r.line, r.function, r.level, r.message, r.expression, r.value, r.hasValue});
    }
    std::vector<CapturedReport> reports_;
    DebugHandler previous_ = nullptr;
    void* previousUser_ = nullptr;
};

// Makes the n-th allocation from now fail; switches injection off when it goes out of scope.
class FailNthAllocation {
public:
    explicit FailNthAllocation(long long n) { UtMemFailNth(n); }
    ~FailNthAllocation() { UtMemFailNth(0); }
    FailNthAllocation(const FailNthAllocation&) = delete;
    FailNthAllocation& operator=(const FailNthAllocation&) = delete;
};

// Makes every allocation from the n-th on fail while it lives.
class FailAllocationsFrom {
public:
    explicit FailAllocationsFrom(long long n) { UtMemFailFrom(n); }
    ~FailAllocationsFrom() { UtMemFailFrom(0); }
    FailAllocationsFrom(const FailAllocationsFrom&) = delete;
    FailAllocationsFrom& operator=(const FailAllocationsFrom&) = delete;
};

}  // namespace kbase_test
