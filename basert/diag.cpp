#include "basert/diag.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool VerboseFromEnvironment() {
    const char* v = std::getenv("KBASE_DIAGNOSTICS");
    return v != nullptr && std::strcmp(v, "1") == 0;
}

struct DiagState {
    DebugHandler handler = nullptr;
    void* user = nullptr;
    int verbose = -1;  // -1: not yet read from the environment
    uint64_t count = 0;
};
DiagState g_diag;

void DefaultHandler(const DebugReport& r) {
    if (g_diag.verbose < 0) g_diag.verbose = VerboseFromEnvironment() ? 1 : 0;
    if (g_diag.verbose == 0) return;
    if (r.hasValue) {
        std::fprintf(stderr, "%s(%d): %s: level %d: %s: %s = %" PRId64 "\n", r.module, r.line,
                     r.function, r.level, r.message, r.expression, r.value);
    } else {
        std::fprintf(stderr, "%s(%d): %s: level %d: %s: %s\n", r.module, r.line, r.function,
                     r.level, r.message, r.expression);
    }
}

const char* OrEmpty(const char* s) { return s != nullptr ? s : ""; }

void Dispatch(const DebugReport& r) {
    ++g_diag.count;
    if (g_diag.handler != nullptr) {
        g_diag.handler(r, g_diag.user);
    } else {
        DefaultHandler(r);
    }
}

}  // namespace

void DebugAssert(const char* module, int line, const char* function, int level,
                 const char* message, const char* expression) {
    Dispatch(DebugReport{OrEmpty(module), line, OrEmpty(function), level, OrEmpty(message),
                         OrEmpty(expression), 0, false});
}

void DebugAssertInv(const char* module, int line, const char* function, int level,
                    const char* message, const char* expression, int64_t value) {
    Dispatch(DebugReport{OrEmpty(module), line, OrEmpty(function), level, OrEmpty(message),
                         OrEmpty(expression), value, true});
}

DebugHandler DebugSetHandler(DebugHandler handler, void* user, void** previousUser) {
    DebugHandler old = g_diag.handler;
    if (previousUser != nullptr) *previousUser = g_diag.user;
    g_diag.handler = handler;
    g_diag.user = user;
    return old;
}

void DebugSetVerbose(bool on) { g_diag.verbose = on ? 1 : 0; }

uint64_t DebugReportCount() { return g_diag.count; }
