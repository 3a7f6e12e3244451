// Sweep scenarios defined outside alloc_sweep_test.cpp, which runs them all.
#pragma once

#include "alloc_sweep.h"

void LogToFile(kbase_test::SweepPoint& p);
void RegisterAndFireCallbacks(kbase_test::SweepPoint& p);
void SubstituteVariables(kbase_test::SweepPoint& p);
void StoreAndLoadBill(kbase_test::SweepPoint& p);
void OpenCodePages(kbase_test::SweepPoint& p);
void DecodeAndNormalise(kbase_test::SweepPoint& p);
