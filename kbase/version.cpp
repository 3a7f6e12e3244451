#include "kbase/version.h"

const char* KbaseVersion() { return KBASE_VERSION_STRING; }
