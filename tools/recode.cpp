#include "recode.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <sstream>
#include <vector>

#include "basert/memory.h"
#include "kbase/text/UtCString.h"

namespace kbase_tool {

namespace {

constexpr size_t kMaxInputBytes = size_t{1} << 30;  // the string class counts in 32 bits

bool IsUtf16(int cp) { return cp == 1200 || cp == 1201; }

bool ReadAll(std::istream& in, std::string& bytes) {
    std::ostringstream buf;
    buf << in.rdbuf();
    if (in.bad()) return false;
    bytes = std::move(buf).str();
    return true;
}

// The code page a byte-order mark announces, or 0.
int CodePageFromMark(const std::string& b) {
    if (b.size() >= 3 && b.compare(0, 3, "\xEF\xBB\xBF") == 0) return 65001;
    if (b.size() >= 2 && b[0] == '\xFF' && b[1] == '\xFE') return 1200;
    if (b.size() >= 2 && b[0] == '\xFE' && b[1] == '\xFF') return 1201;
    return 0;
}

std::u16string Utf16FromBytes(const std::string& bytes, bool bigEndian) {
    std::u16string w(bytes.size() / 2, u'\0');
    for (size_t i = 0; i < w.size(); ++i) {
        const auto lo = static_cast<unsigned char>(bytes[2 * i + (bigEndian ? 1 : 0)]);
        const auto hi = static_cast<unsigned char>(bytes[2 * i + (bigEndian ? 0 : 1)]);
        w[i] = static_cast<char16_t>(lo | (hi << 8));
    }
    return w;
}

std::string BytesFromUtf16(const char16_t* w, size_t n, bool bigEndian) {
    std::string b(n * 2, '\0');
    for (size_t i = 0; i < n; ++i) {
        b[2 * i + (bigEndian ? 1 : 0)] = static_cast<char>(w[i] & 0xFF);
        b[2 * i + (bigEndian ? 0 : 1)] = static_cast<char>(w[i] >> 8);
    }
    return b;
}

// Line and column (1-based, in characters) of character index i of a UTF-16 text.
std::string Where(const std::u16string& text, size_t i) {
    size_t line = 1, column = 1;
    for (size_t k = 0; k < i && k < text.size(); ++k) {
        if (text[k] == u'\n') {
            ++line;
            column = 1;
        } else if (!(text[k] >= 0xDC00 && text[k] <= 0xDFFF)) {
            ++column;
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

std::string CodePointName(const std::u16string& text, size_t i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size()) {
        c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
    }
    char buf[16];
    std::snprintf(buf, sizeof buf, "U+%04X", static_cast<unsigned>(c));
    const UtCString one(text.substr(i, c > 0xFFFF ? 2 : 1), eUtEncodingTypeUtf8);
    return std::string(buf) + " '" + one.GetUtf8String(0) + "'";
}

// First character of the text that the code page cannot hold, or npos.
size_t FirstUnrepresentable(const std::u16string& text, int cp) {
    for (size_t i = 0; i < text.size(); ++i) {
        const bool pair = text[i] >= 0xD800 && text[i] <= 0xDBFF && i + 1 < text.size();
        UtCString one(text.substr(i, pair ? 2 : 1), eUtEncodingTypeUtf16);
        if (!one.ToAnsiIfRepresentable(static_cast<eUtEncodingType>(cp))) return i;
        if (pair) ++i;
    }
    return std::u16string::npos;
}

// Decodes the input into a UTF-16 string; false (with a message) for malformed input.
bool Decode(const std::string& bytes, int from, UtCString& text, std::ostream& err) {
    if (IsUtf16(from)) {
        if (bytes.size() % 2 != 0) {
            err << "kbase recode: the input has an odd number of bytes, so it is not UTF-16\n";
            return false;
        }
        text = UtCString(Utf16FromBytes(bytes, from == 1201), eUtEncodingTypeUtf16);
        return true;
    }
    // The encoding class reports replaced sequences, which the string would hide.
    const UtCUtf::Result r = UtCUtf::Convert(bytes.data(), static_cast<int64_t>(bytes.size()),
                                             static_cast<unsigned short>(from), eUtEncodingTypeUtf16);
    const bool clean = r.ok && r.replaced == 0;
    UtFreeMemory(r.text);
    if (!r.ok) {
        err << "kbase recode: out of memory while reading the input\n";
        return false;
    }
    if (!clean) {
        err << "kbase recode: the input is not valid text in code page " << from << " ("
            << r.replaced << " malformed or unassigned sequence" << (r.replaced == 1 ? "" : "s") << ")\n";
        return false;
    }
    text = UtCString(bytes.data(), static_cast<int>(bytes.size()), static_cast<eUtEncodingType>(from),
                     eUtEncodingTypeUtf16);
    return true;
}

bool Normalize(UtCString& text, const std::string& form, std::ostream& err) {
    if (form.empty()) return true;
    const bool compat = form.size() == 2 && form[0] == 'K';
    const char f = form.back();
    if (!(form == "C" || form == "D" || form == "KC" || form == "KD")) {
        err << "kbase recode: unknown normalisation form '" << form << "' (use C, D, KC or KD)\n";
        return false;
    }
    if (text.IsEmpty()) return true;
    if (!text.NormalizeForm(f, compat)) {
        err << "kbase recode: the text could not be normalised (malformed UTF-16?)\n";
        return false;
    }
    return true;
}

// Encodes the UTF-16 text into the target's bytes.
int Encode(const UtCString& text, const RecodeOptions& o, std::string& bytes, std::ostream& err) {
    if (IsUtf16(o.to)) {
        const std::u16string w = text.GetUtf16String();
        bytes = o.mark ? BytesFromUtf16(u"\uFEFF", 1, o.to == 1201) : std::string();
        bytes += BytesFromUtf16(w.data(), w.size(), o.to == 1201);
        return kExitOk;
    }
    UtCString target(text);
    const bool ok = o.replace ? target.ToAnsi(static_cast<eUtEncodingType>(o.to))
                              : target.ToAnsiIfRepresentable(static_cast<eUtEncodingType>(o.to));
    if (!ok) {
        const std::u16string w = text.GetUtf16String();
        const size_t at = FirstUnrepresentable(w, o.to);
        if (at == std::u16string::npos) {
            err << "kbase recode: out of memory while converting\n";
            return kExitIo;
        }
        err << "kbase recode: " << Where(w, at) << ": " << CodePointName(w, at)
            << " cannot be represented in code page " << o.to << " (use --replace to write '?')\n";
        return kExitLossy;
    }
    const char* raw = o.to == 65001 && !o.mark ? target.stringSkipBOM() : target.ptr();
    bytes.assign(raw, std::strlen(raw));
    return kExitOk;
}

// Writes straight into an existing file that is not a regular file (a device, a pipe): renaming
// over it would replace the device node itself.
int WriteSpecialFile(const std::string& path, const std::string& bytes, std::ostream& err) {
    std::ofstream f(path, std::ios::binary | std::ios::app);
    if (f) {
        f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        f.flush();
    }
    if (!f) {
        err << "kbase recode: cannot write '" << path << "': " << std::strerror(errno) << "\n";
        return kExitIo;
    }
    return kExitOk;
}

// Writes to a temporary file beside the target and renames it into place.
int WriteFileAtomically(const std::string& path, const std::string& bytes, std::ostream& err) {
    namespace fs = std::filesystem;
    const fs::path target(path);
    std::error_code statError;
    const fs::file_status status = fs::status(target, statError);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        if (fs::is_directory(status)) {
            err << "kbase recode: '" << path << "' is a folder\n";
            return kExitIo;
        }
        return WriteSpecialFile(path, bytes, err);
    }
    std::random_device rd;
    std::string tmpName(1, '.');
    tmpName += target.filename().string();
    tmpName += ".kbase-";
    tmpName += std::to_string(rd());
    tmpName += ".tmp";
    const fs::path tmp = target.parent_path() / tmpName;
    {
        std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
        if (!f) {
            err << "kbase recode: cannot create '" << path << "': " << std::strerror(errno) << "\n";
            return kExitIo;
        }
        f.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        f.flush();
        if (!f) {
            const int e = errno;
            f.close();
            std::error_code ec;
            fs::remove(tmp, ec);
            err << "kbase recode: cannot write '" << path << "': " << std::strerror(e) << "\n";
            return kExitIo;
        }
    }
    std::error_code ec;
    fs::rename(tmp, target, ec);
    if (ec) {
        fs::remove(tmp, ec);
        err << "kbase recode: cannot replace '" << path << "': " << ec.message() << "\n";
        return kExitIo;
    }
    return kExitOk;
}

}  // namespace

int Recode(const RecodeOptions& o, std::istream& in, std::ostream& out, std::ostream& err) {
    for (const int cp : {o.from, o.to}) {
        if (cp != 0 && !UtCUtf::IsAvailable(static_cast<unsigned short>(cp))) {
            err << "kbase recode: unknown code page " << cp << "\n";
            return kExitUsage;
        }
    }
    std::string bytes;
    if (o.input == "-") {
        if (!ReadAll(in, bytes)) {
            err << "kbase recode: cannot read standard input\n";
            return kExitIo;
        }
    } else {
        std::ifstream f(o.input, std::ios::binary);
        if (!f) {
            err << "kbase recode: cannot open '" << o.input << "': " << std::strerror(errno) << "\n";
            return kExitIo;
        }
        if (!ReadAll(f, bytes)) {
            err << "kbase recode: cannot read '" << o.input << "'\n";
            return kExitIo;
        }
    }
    if (bytes.size() > kMaxInputBytes) {
        err << "kbase recode: the input is larger than 1 GiB\n";
        return kExitIo;
    }
    int from = o.from;
    const int marked = CodePageFromMark(bytes);
    if (from == 0) from = marked != 0 ? marked : UtCString::systemEncodingType();
    // A mark that agrees with the source encoding is not text.
    if (marked == from && IsUtf16(from)) bytes.erase(0, 2);

    UtCString text(eUtEncodingTypeUtf16);
    if (!Decode(bytes, from, text, err)) return kExitLossy;
    if (!Normalize(text, o.normalize, err)) return o.normalize.empty() ? kExitLossy : kExitUsage;
    std::string encoded;
    if (const int rc = Encode(text, o, encoded, err); rc != kExitOk) return rc;

    if (o.output == "-") {
        out.write(encoded.data(), static_cast<std::streamsize>(encoded.size()));
        out.flush();
        if (!out) {
            err << "kbase recode: cannot write standard output\n";
            return kExitIo;
        }
        return kExitOk;
    }
    return WriteFileAtomically(o.output, encoded, err);
}

}  // namespace kbase_tool
