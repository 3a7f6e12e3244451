// What every target shares: a report of the runtime's diagnostics is a finding (no input may
// make the library report misuse of itself), unless the target says it expects reports.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "basert/diag.h"

namespace fuzz_support {

inline void AbortOnReport(const DebugReport& report, void*) {
    std::fprintf(stderr, "diagnostic report from %s:%d %s: %s (%s)\n", report.module, report.line,
                 report.function != nullptr ? report.function : "",
                 report.message != nullptr ? report.message : "",
                 report.expression != nullptr ? report.expression : "");
    std::abort();
}

// Installs the handler that turns every report into a crash the fuzzer keeps.
inline void TreatReportsAsFindings() {
    DebugSetHandler(&AbortOnReport, nullptr);
}

}  // namespace fuzz_support

// Each target calls this from LLVMFuzzerInitialize.
#define KBASE_FUZZ_STRICT_DIAGNOSTICS()                  \
    extern "C" int LLVMFuzzerInitialize(int*, char***) { \
        fuzz_support::TreatReportsAsFindings();          \
        return 0;                                        \
    }
