// Narrow-text helpers for fixed-size buffers.
#pragma once

#include "basert/export.h"

// Replaces every occurrence of key in text by value, left to right, so that text never holds more
// than size - 1 characters plus its terminator (size is the capacity of the buffer in bytes).
// The search goes on behind each inserted value, so a value that contains key is not replaced
// again within this call. The first occurrence whose replacement would not fit, and every one
// after it, stay as they are: nothing is cut off. Returns the number of replacements; 0 for a
// null or empty text or key, a null value or a size below 1.
// Cost: O(length of text + bytes moved); the text is rebuilt in one scratch pass.
BASERT_API int UtSubstSubStr(char* text, const char* key, const char* value, int size);
