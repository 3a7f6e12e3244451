// Files, folders and the environment on Windows. Every name crosses the Win32 boundary in UTF-16,
// so that a UTF-8 path with characters outside the ANSI code page still names the right file.
#include <windows.h>
#include <shellapi.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

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

int UtSystem(const char* utf8Target) {
    if (utf8Target == nullptr || *utf8Target == '\0' || NoShell()) return -1;
    std::wstring target;
    if (!BrWin32Widen(utf8Target, &target)) return -1;
    // ShellExecuteW reports success by a value above 32 (a legacy of WinExec).
    const HINSTANCE r = ShellExecuteW(nullptr, L"open", target.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
    return reinterpret_cast<INT_PTR>(r) > 32 ? 0 : -1;
}
