// Path helpers that are the same on every platform.
#include "basert/files.h"

int64_t UtSplitFileExtension(const char* path) {
    if (path == nullptr) return -1;
    int64_t start = 0;
    int64_t dot = -1;
    for (int64_t i = 0; path[i] != '\0'; ++i) {
        if (path[i] == '/' || path[i] == '\\') {
            start = i + 1;
            dot = -1;
        } else if (path[i] == '.') {
            dot = i;
        }
    }
    return dot > start ? dot : -1;
}

int UtFileClose(FILE* file) { return file == nullptr ? EOF : std::fclose(file); }
