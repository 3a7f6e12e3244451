// Files, folders and the environment on Windows. Every name crosses the Win32 boundary in UTF-16,
// so that a UTF-8 path with characters outside the ANSI code page still names the right file.
#include <windows.h>
#include <shellapi.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "basert/files.h"
#include "basert/internal/win32_text.h"

bool BrWin32Widen(const char* utf8, std::wstring* out) {
    out->clear();
    if (*utf8 == '\0') return true;
    const int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, -1, nullptr, 0);
    if (n <= 0) return false;
    out->resize(static_cast<size_t>(n));
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8, -1, out->data(), n);
    out->resize(static_cast<size_t>(n) - 1);  // the terminator was counted
    return true;
}

std::string BrWin32Narrow(const wchar_t* text, int n) {
    std::string out;
    if (n < 0) n = static_cast<int>(wcslen(text));
    if (n == 0) return out;
    const int len = WideCharToMultiByte(CP_UTF8, 0, text, n, nullptr, 0, nullptr, nullptr);
    if (len <= 0) return out;
    out.resize(static_cast<size_t>(len));
    WideCharToMultiByte(CP_UTF8, 0, text, n, out.data(), len, nullptr, nullptr);
    return out;
}

namespace {

size_t CopyOut(const std::string& text, char* buf, size_t cap) {
    if (buf != nullptr && text.size() < cap) {
        std::memcpy(buf, text.data(), text.size());
        buf[text.size()] = '\0';
    }
    return text.size();
}

bool NoShell() {
    const wchar_t* v = _wgetenv(L"KBASE_NO_SHELL");
    return v != nullptr && wcscmp(v, L"1") == 0;
}

}  // namespace

size_t UtGetTempDir(char* buf, size_t cap) {
    wchar_t dir[MAX_PATH + 1];
    const DWORD n = GetTempPathW(MAX_PATH + 1, dir);  // ends in a backslash
    if (n == 0 || n > MAX_PATH) return 0;
    const std::string utf8 = BrWin32Narrow(dir, static_cast<int>(n));
    if (buf == nullptr || utf8.size() >= cap) return utf8.size();
    return CopyOut(utf8, buf, cap);
}

int64_t OsGetEnv(const char* name, char* buf, size_t cap) {
    std::wstring wide;
    if (name == nullptr || !BrWin32Widen(name, &wide)) return -1;
    // _wgetenv sees what the process set through _wputenv as well as what it inherited.
    const wchar_t* v = _wgetenv(wide.c_str());
    if (v == nullptr) return -1;
    return static_cast<int64_t>(CopyOut(BrWin32Narrow(v), buf, cap));
}

FILE* UtFileOpen(const char* path, const char* mode) {
    std::wstring wpath, wmode;
    if (path == nullptr || mode == nullptr || std::strlen(mode) > 13 || !BrWin32Widen(path, &wpath) ||
        !BrWin32Widen(mode, &wmode)) {
        errno = EINVAL;
        return nullptr;
    }
    // 'N': handles must not leak into programs that UtSystem starts.
    wmode += L'N';
    return _wfopen(wpath.c_str(), wmode.c_str());
}

namespace {
int ErrnoOf(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND: return ENOENT;
        case ERROR_ACCESS_DENIED:
        case ERROR_UNABLE_TO_REMOVE_REPLACED: return EACCES;
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION: return EBUSY;
        case ERROR_NOT_SAME_DEVICE: return EXDEV;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL: return ENOSPC;
        default: return EIO;
    }
}
}  // namespace

int UtFileRemove(const char* path) {
    std::wstring wpath;
    if (path == nullptr || !BrWin32Widen(path, &wpath)) {
        errno = EINVAL;
        return -1;
    }
    if (DeleteFileW(wpath.c_str())) return 0;
    errno = ErrnoOf(GetLastError());
    return -1;
}

int UtFileReplace(const char* from, const char* to) {
    std::wstring wfrom, wto;
    if (from == nullptr || to == nullptr || !BrWin32Widen(from, &wfrom) || !BrWin32Widen(to, &wto)) {
        errno = EINVAL;
        return -1;
    }
    const DWORD attributes = GetFileAttributesW(wto.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        if (MoveFileExW(wfrom.c_str(), wto.c_str(), MOVEFILE_WRITE_THROUGH)) return 0;
        errno = ErrnoOf(GetLastError());
        return -1;
    }
    // Neither file may be read-only for ReplaceFileW; both are made writable for the moment, and
    // the result gets the replaced file's attributes, as POSIX rename replaces whatever the modes.
    const DWORD fromAttributes = GetFileAttributesW(wfrom.c_str());
    const DWORD writable = ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY);
    if (attributes & FILE_ATTRIBUTE_READONLY) SetFileAttributesW(wto.c_str(), attributes & writable);
    if (fromAttributes != INVALID_FILE_ATTRIBUTES && (fromAttributes & FILE_ATTRIBUTE_READONLY)) {
        SetFileAttributesW(wfrom.c_str(), fromAttributes & writable);
    }
    const BOOL ok = ReplaceFileW(wto.c_str(), wfrom.c_str(), nullptr, REPLACEFILE_IGNORE_MERGE_ERRORS,
                                 nullptr, nullptr);
    const DWORD error = ok ? NO_ERROR : GetLastError();
    SetFileAttributesW(wto.c_str(), attributes);
    if (ok) return 0;
    if (fromAttributes != INVALID_FILE_ATTRIBUTES) SetFileAttributesW(wfrom.c_str(), fromAttributes);
    errno = ErrnoOf(error);
    return -1;
}

void UtUtf8Arguments(int* argc, char*** argv) {
    int n = 0;
    wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &n);
    if (wide == nullptr) return;
    // Leaked on purpose: argv lives as long as the process.
    auto* texts = new std::vector<std::string>();
    auto* pointers = new std::vector<char*>();
    for (int i = 0; i < n; ++i) texts->push_back(BrWin32Narrow(wide[i]));
    for (std::string& t : *texts) pointers->push_back(t.data());
    pointers->push_back(nullptr);
    LocalFree(wide);
    *argc = n;
    *argv = pointers->data();
}

int UtSystem(const char* utf8Target) {
    if (utf8Target == nullptr || *utf8Target == '\0' || NoShell()) return -1;
    std::wstring target;
    if (!BrWin32Widen(utf8Target, &target)) return -1;
    // ShellExecuteW reports success by a value above 32 (a legacy of WinExec).
    const HINSTANCE r = ShellExecuteW(nullptr, L"open", target.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
    return reinterpret_cast<INT_PTR>(r) > 32 ? 0 : -1;
}
