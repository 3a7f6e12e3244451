#include "codepages.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <string_view>
#include <vector>

#include "basert/codepage.h"

namespace kbase_tool {

namespace {

struct NamedCodePage {
    int number;
    const char* names;  // comma-separated, the preferred name first
    const char* what;
};

// Names as people type them; each is unique after Folded(). Numbers alone (and cpN) work for every
// page, so only pages people know by name are here.
constexpr NamedCodePage kNamed[] = {
    {37, "ibm037, ebcdic-cp-us", "EBCDIC United States"},
    {437, "cp437, ibm437", "DOS United States"},
    {850, "cp850, ibm850", "DOS Western European"},
    {852, "cp852, ibm852", "DOS Central European"},
    {858, "cp858, ibm858", "DOS Western European with euro"},
    {866, "cp866, ibm866", "DOS Cyrillic"},
    {874, "windows-874", "Thai"},
    {932, "shift_jis, sjis, windows-31j, ms_kanji", "Japanese (Shift-JIS)"},
    {936, "gbk, gb2312, windows-936", "Chinese simplified (GBK)"},
    {949, "uhc, ks_c_5601-1987, windows-949", "Korean (Unified Hangul)"},
    {950, "big5, windows-950", "Chinese traditional (Big5)"},
    {1200, "utf-16, utf-16le, ucs-2", "Unicode UTF-16, little endian unless a mark says otherwise"},
    {1201, "utf-16be", "Unicode UTF-16, big endian unless a mark says otherwise"},
    {1250, "windows-1250", "Central European (Windows)"},
    {1251, "windows-1251", "Cyrillic (Windows)"},
    {1252, "windows-1252, ansi", "Western European (Windows)"},
    {1253, "windows-1253", "Greek (Windows)"},
    {1254, "windows-1254", "Turkish (Windows)"},
    {1255, "windows-1255", "Hebrew (Windows)"},
    {1256, "windows-1256", "Arabic (Windows)"},
    {1257, "windows-1257", "Baltic (Windows)"},
    {1258, "windows-1258", "Vietnamese (Windows)"},
    {10000, "macintosh, mac, macroman", "Western European (Mac OS Roman)"},
    {12000, "utf-32, utf-32le", "Unicode UTF-32, little endian unless a mark says otherwise"},
    {12001, "utf-32be", "Unicode UTF-32, big endian unless a mark says otherwise"},
    {20127, "us-ascii, ascii", "ASCII (7 bits)"},
    {20866, "koi8-r", "Russian (KOI8-R)"},
    {21866, "koi8-u", "Ukrainian (KOI8-U)"},
    {28591, "latin1, iso-8859-1, l1", "Western European (ISO 8859-1)"},
    {28592, "latin2, iso-8859-2, l2", "Central European (ISO 8859-2)"},
    {28593, "latin3, iso-8859-3, l3", "South European (ISO 8859-3)"},
    {28594, "latin4, iso-8859-4, l4", "Baltic (ISO 8859-4)"},
    {28595, "iso-8859-5", "Cyrillic (ISO 8859-5)"},
    {28596, "iso-8859-6", "Arabic (ISO 8859-6)"},
    {28597, "iso-8859-7", "Greek (ISO 8859-7)"},
    {28598, "iso-8859-8", "Hebrew (ISO 8859-8)"},
    {28599, "latin5, iso-8859-9, l5", "Turkish (ISO 8859-9)"},
    {28603, "latin7, iso-8859-13, l7", "Baltic (ISO 8859-13)"},
    {28605, "latin9, iso-8859-15, l9", "Western European with euro (ISO 8859-15)"},
    {50220, "iso-2022-jp", "Japanese (ISO-2022-JP, stateful)"},
    {51932, "euc-jp", "Japanese (EUC-JP)"},
    {51949, "euc-kr", "Korean (EUC-KR)"},
    {54936, "gb18030", "Chinese (GB 18030)"},
    {65000, "utf-7", "Unicode UTF-7"},
    {65001, "utf-8, utf8", "Unicode UTF-8"},
};

// Lower case without separators: the form names are compared in.
std::string Folded(std::string_view text) {
    std::string f;
    for (const char c : text) {
        if (c == '-' || c == '_' || c == '.' || c == ' ') continue;
        f += (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
    }
    return f;
}

// The number of a text of decimal digits in 1..65535, or 0.
int Number(std::string_view digits) {
    if (digits.empty() || digits.size() > 5) return 0;
    int n = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return 0;
        n = n * 10 + (c - '0');
    }
    return n <= 65535 ? n : 0;
}

template <typename Visit>
void ForEachName(const NamedCodePage& page, Visit visit) {
    std::string_view rest(page.names);
    while (!rest.empty()) {
        const size_t comma = rest.find(',');
        visit(rest.substr(0, comma));
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
        while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
    }
}

const NamedCodePage* Named(int cp) {
    for (const NamedCodePage& page : kNamed) {
        if (page.number == cp) return &page;
    }
    return nullptr;
}

}  // namespace

bool ParseCodePage(const std::string& text, int& cp) {
    if (const int n = Number(text); n != 0) {
        cp = n;
        return true;
    }
    const std::string f = Folded(text);
    if (f.find_first_not_of("0123456789") == std::string::npos) return false;  // "-5", "1 252"
    for (const NamedCodePage& page : kNamed) {
        bool match = false;
        ForEachName(page, [&](std::string_view name) { match = match || Folded(name) == f; });
        if (match) {
            cp = page.number;
            return true;
        }
    }
    for (const std::string_view prefix : {"windows", "cp", "ibm"}) {
        if (f.size() > prefix.size() && f.compare(0, prefix.size(), prefix) == 0) {
            if (const int n = Number(std::string_view(f).substr(prefix.size())); n != 0) {
                cp = n;
                return true;
            }
        }
    }
    return false;
}

bool CodePageAvailable(int cp) {
    if (cp < 1 || cp > 65535) return false;
    return cp == 1200 || cp == 1201 || BrCodePageAvailable(static_cast<unsigned short>(cp));
}

std::string CodePageNames(int cp) {
    const NamedCodePage* page = Named(cp);
    return page != nullptr ? page->names : "";
}

void ListCodePages(std::ostream& out) {
    std::vector<unsigned short> numbers(1024);
    int64_t count = BrCodePageList(numbers.data(), static_cast<int64_t>(numbers.size()));
    numbers.resize(static_cast<size_t>(count));
    if (count > 1024) count = BrCodePageList(numbers.data(), count);
    numbers.insert(numbers.begin(),
                   {1200, 1201});  // converted by the jobs, not the conversion layer
    std::sort(numbers.begin(), numbers.end());
    for (const unsigned short n : numbers) {
        const NamedCodePage* page = Named(n);
        char line[160];
        std::snprintf(line, sizeof line, "%5u  %-40s %s", static_cast<unsigned>(n),
                      page != nullptr ? page->names : "", page != nullptr ? page->what : "");
        std::string_view text(line);
        while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
        out << text << '\n';
    }
}

}  // namespace kbase_tool
