#include "basert/strings.h"

#include <cstdlib>
#include <cstring>

int UtSubstSubStr(char* text, const char* key, const char* value, int size) {
    if (text == nullptr || key == nullptr || value == nullptr || size < 1) return 0;
    const size_t keyLen = std::strlen(key);
    if (keyLen == 0 || text[0] == '\0') return 0;
    const char* first = std::strstr(text, key);
    if (first == nullptr) return 0;

    // How many replacements fit, left to right (all of them when the value is not longer).
    const size_t valueLen = std::strlen(value);
    const size_t limit = static_cast<size_t>(size) - 1;  // characters the buffer can hold
    const size_t length = std::strlen(text);
    int fit = 0;
    size_t newLength = length;
    for (const char* hit = first; hit != nullptr; hit = std::strstr(hit + keyLen, key)) {
        const size_t next = newLength - keyLen + valueLen;
        if (valueLen > keyLen && next > limit) break;  // shrinking always fits
        newLength = next;
        ++fit;
    }
    if (fit == 0) return 0;

    // A growing text is rebuilt from a copy; a shrinking one in place, reading ahead of writing.
    char* copy = nullptr;
    if (valueLen > keyLen) {
        copy = static_cast<char*>(std::malloc(length + 1));
        if (copy == nullptr) return 0;
        std::memcpy(copy, text, length + 1);
    }
    const char* in = copy != nullptr ? copy : text;
    char* out = text;
    for (int i = 0; i < fit; ++i) {
        const char* hit = std::strstr(in, key);
        const size_t before = static_cast<size_t>(hit - in);
        std::memmove(out, in, before);
        out += before;
        std::memcpy(out, value, valueLen);
        out += valueLen;
        in = hit + keyLen;
    }
    std::memmove(out, in, std::strlen(in) + 1);
    std::free(copy);
    return fit;
}
