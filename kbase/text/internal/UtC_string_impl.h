// Helpers shared by the UtCString source files; not part of the exported interface.
#pragma once

#include <cstdint>

#include "kbase/text/UtCString.h"

namespace kbase_text_internal {

constexpr unsigned short kUtf8 = 65001;

inline bool IsWide(unsigned short e) { return e == 1200 || e == 1201; }

// UtAllocMemoryBlock for the text classes: a refusal is also counted, so that members built from
// several steps can tell whether any step lost its allocation and then keep the string unchanged.
int TextAlloc(void** block, uint64_t count, uint64_t elemSize);
uint64_t TextAllocFailures();

// Watches the failures of TextAlloc over a scope: ok() is false once any allocation was refused.
class FailureWatch {
public:
    FailureWatch() : start_(TextAllocFailures()) {}
    bool ok() const { return TextAllocFailures() == start_; }

private:
    uint64_t start_;
};

// The stored text: its buffer and its elements before the terminator (bytes, or 16-bit units).
// For UTF-8 the mark is part of it.
struct Span {
    const void* text;
    int64_t units;
};

// Access to UtCString's fields for the helpers below.
class UtCStringAccess {
public:
    static void* Text(const UtCString& s);
    static unsigned short Encoding(const UtCString& s);
    static bool Adopt(UtCString& s, void* block, int64_t units);
};

Span StoredSpan(const UtCString& s);
// Element offset within the buffer of character index i, clamped to 0..length (UTF-8: the mark
// counted, so index 0 is offset 3).
int64_t UnitOffset(const UtCString& s, int64_t i);
// Replaces removeUnits elements at element offset at by piece a then piece b (each converted from
// its encoding; count -1: to the terminator). False leaves the string unchanged.
bool Splice(UtCString& s, int64_t at, int64_t removeUnits, const void* a, int64_t countA,
            unsigned short encA, const void* b, int64_t countB, unsigned short encB);

}  // namespace kbase_text_internal
