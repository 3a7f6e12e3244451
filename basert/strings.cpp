#include "basert/strings.h"

#include <cstdlib>
#include <cstring>

int UtSubstSubStr(char* text, const char* key, const char* value, int size) {
    if (text == nullptr || key == nullptr || value == nullptr || size < 1) return 0;
    const size_t keyLen = std::strlen(key);
    if (keyLen == 0 || text[0] == '\0') return 0;
    const char* first = std::strstr(text, key);
    if (first == nullptr) return 0;

    const size_t valueLen = std::strlen(value);
    const size_t limit = static_cast<size_t>(size) - 1;  // characters the buffer can hold
    size_t length = std::strlen(text);
    if (valueLen <= keyLen) {
        // Shrinking or same size: done in place, reading ahead of writing.
        int count = 0;
        char* out = text;
        const char* in = text;
        for (const char* hit = first; hit != nullptr; hit = std::strstr(in, key)) {
            const size_t before = static_cast<size_t>(hit - in);
            std::memmove(out, in, before);
            out += before;
            std::memcpy(out, value, valueLen);
            out += valueLen;
            in = hit + keyLen;
            ++count;
        }
        std::memmove(out, in, std::strlen(in) + 1);
        return count;
    }
    // Growing: count how many replacements fit, then build the result in a scratch copy.
    const size_t growth = valueLen - keyLen;
    int fit = 0;
    size_t newLength = length;
    for (const char* hit = first; hit != nullptr; hit = std::strstr(hit + keyLen, key)) {
        if (newLength + growth > limit) break;
        newLength += growth;
        ++fit;
    }
    if (fit == 0) return 0;
    char* copy = static_cast<char*>(std::malloc(length + 1));
    if (copy == nullptr) return 0;
    std::memcpy(copy, text, length + 1);
    char* out = text;
    const char* in = copy;
    for (int i = 0; i < fit; ++i) {
        const char* hit = std::strstr(in, key);
        const size_t before = static_cast<size_t>(hit - in);
        std::memcpy(out, in, before);
        out += before;
        std::memcpy(out, value, valueLen);
        out += valueLen;
        in = hit + keyLen;
    }
    std::memcpy(out, in, std::strlen(in) + 1);
    std::free(copy);
    return fit;
}
