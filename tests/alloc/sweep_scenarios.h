// Sweep scenarios defined outside alloc_sweep_test.cpp, which runs them all.
#pragma once

#include <new>

#include "alloc_sweep.h"

namespace kbase_test {

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
