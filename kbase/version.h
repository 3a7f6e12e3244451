// Version of the kbase1 library that a host has loaded.
#pragma once

#include "kbase/export.h"

// "major.minor.patch" of the loaded library (may differ from the headers a host was built with).
KBASE_API const char* KbaseVersion();
