// Sweep scenarios defined outside alloc_sweep_test.cpp, which runs them all.
#pragma once

#include <new>

#include "alloc_sweep.h"
#include "kbase/text/UtCString.h"

namespace kbase_test {

inline constexpr eUtEncodingType kCp = eUtEncodingTypeAnsi1252;
inline constexpr eUtEncodingType kU8 = eUtEncodingTypeUtf8;

// A scenario's text, written in 1252 here, stored in encoding e.
inline UtCString Text(const char* s, eUtEncodingType e = kCp) {
    return UtCString(s, kCp, e);
}

// Runs an operation with allocations counted; true when it let std::bad_alloc through.
template <typename F>
bool Threw(SweepPoint& p, F operation) {
    try {
        SweepPoint::Armed armed(p);
        operation();
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

}  // namespace kbase_test

void LogToFile(kbase_test::SweepPoint& p);
void RegisterAndFireCallbacks(kbase_test::SweepPoint& p);
void SubstituteVariables(kbase_test::SweepPoint& p);
void StoreAndLoadBill(kbase_test::SweepPoint& p);
void OpenCodePages(kbase_test::SweepPoint& p);
void DecodeAndNormalise(kbase_test::SweepPoint& p);
