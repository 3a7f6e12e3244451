#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "basert/files.h"

extern char** environ;

namespace {

size_t CopyOut(const char* text, size_t len, char* buf, size_t cap) {
    if (buf != nullptr && len < cap) {
        std::memcpy(buf, text, len);
        buf[len] = '\0';
    }
    return len;
}

}  // namespace

size_t UtGetTempDir(char* buf, size_t cap) {
    const char* dir = std::getenv("TMPDIR");
    if (dir == nullptr || *dir == '\0') dir = "/tmp";
    const size_t len = std::strlen(dir);
    const bool hasSlash = dir[len - 1] == '/';
    const size_t need = len + (hasSlash ? 0 : 1);
    if (buf == nullptr || need >= cap) return need;
    std::memcpy(buf, dir, len);
    if (!hasSlash) buf[len] = '/';
    buf[need] = '\0';
    return need;
}

int64_t OsGetEnv(const char* name, char* buf, size_t cap) {
    if (name == nullptr) return -1;
    const char* v = std::getenv(name);
    if (v == nullptr) return -1;
    return static_cast<int64_t>(CopyOut(v, std::strlen(v), buf, cap));
}

FILE* UtFileOpen(const char* path, const char* mode) {
    if (path == nullptr || mode == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    // Descriptors must not leak into programs started by UtSystem.
    char m[16];
    const size_t len = std::strlen(mode);
    if (len + 2 > sizeof m) {
        errno = EINVAL;
        return nullptr;
    }
    std::memcpy(m, mode, len);
    m[len] = 'e';
    m[len + 1] = '\0';
    return std::fopen(path, m);
}

int UtFileReplace(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return std::rename(from, to) == 0 ? 0 : -1;
}

int UtFileRemove(const char* path) {
    if (path == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return std::remove(path) == 0 ? 0 : -1;
}

void UtUtf8Arguments(int*, char***) {}

int UtSystem(const char* utf8Target) {
    if (utf8Target == nullptr || *utf8Target == '\0') return -1;
    if (const char* v = std::getenv("KBASE_NO_SHELL"); v != nullptr && std::strcmp(v, "1") == 0) {
        return -1;
    }
    // A short-lived shell puts xdg-open in the background, so we reap at once and leave no zombie.
    char sh[] = "/bin/sh";
    char dashC[] = "-c";
    char script[] = "xdg-open \"$1\" >/dev/null 2>&1 &";
    char name[] = "sh";
    char* argv[] = {sh, dashC, script, name, const_cast<char*>(utf8Target), nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, sh, nullptr, nullptr, argv, environ) != 0) return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : -1;
}
