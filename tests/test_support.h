// Helpers shared by the test programs: capturing diagnostics and scoping allocation failures.
#pragma once

#include <string>
#include <vector>

#include "basert/diag.h"
#include "basert/memory.h"

namespace kbase_test {

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
