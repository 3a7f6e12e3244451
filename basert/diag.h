// Diagnostics: reports of misuse and internal faults.
//
// A report names the source module (file name without folder or extension), the line, the
// function, a level, a message and the expression text; DebugAssertInv adds a value (a truth value
// or a number such as a class number). Reports never end the process. They go to one replaceable
// handler; the default handler is silent unless KBASE_DIAGNOSTICS=1 is set in the environment (or
// DebugSetVerbose(true) was called), then it writes one line per report to stderr.
#pragma once

#include <cstdint>

#include "basert/export.h"

struct DebugReport {
    const char* module;
    int line;
    const char* function;
    int level;
    const char* message;
    const char* expression;
    int64_t value;   // meaningful when hasValue
    bool hasValue;   // true for DebugAssertInv
};

using DebugHandler = void (*)(const DebugReport& report, void* user);

// Reports a failed condition.
BASERT_API void DebugAssert(const char* module, int line, const char* function, int level,
                            const char* message, const char* expression);
// Reports a failed condition together with the value that was found.
BASERT_API void DebugAssertInv(const char* module, int line, const char* function, int level,
                               const char* message, const char* expression, int64_t value);

// Installs handler (null restores the default) and returns the previous one with its user data.
BASERT_API DebugHandler DebugSetHandler(DebugHandler handler, void* user, void** previousUser = nullptr);
// Makes the default handler print (true) or stay silent (false).
BASERT_API void DebugSetVerbose(bool on);
// Number of reports since the process started.
BASERT_API uint64_t DebugReportCount();
