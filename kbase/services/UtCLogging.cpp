#include "kbase/services/UtCLogging.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <new>
#include <utility>

#include "basert/diag.h"
#include "basert/files.h"
#include "basert/memory.h"
#include "kbase/services/UtClock.h"

namespace {

constexpr const char* kModule = "UtCLogging";
constexpr const char* kRecordTemplate = "[ %s %s ] %s";

UtCString DefaultPath() {
    char dir[4096];
    const size_t n = UtGetTempDir(dir, sizeof dir);
    if (n == 0 || n >= sizeof dir) return UtCString();
    std::string path(dir, n);
    path += "log.txt";
    return UtCString(path.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}

// Frees a block of the runtime when it goes out of scope.
struct FreeBlock {
    char* block;
    ~FreeBlock() { UtFreeMemory(block); }
};

// The bytes of an 8-bit string without the UTF-8 mark.
const char* Bytes(const UtCString& s) {
    return s.isUtf8EncodingType() ? s.stringSkipBOM() : s.ptr();
}

bool IsAscii(const char* text) {
    for (; *text != '\0'; ++text) {
        if (static_cast<unsigned char>(*text) >= 0x80) return false;
    }
    return true;
}

// Fills kRecordTemplate: each "%s" takes the next of the texts, everything else is copied.
void FillTemplate(std::string& out, const char* const (&texts)[3], const size_t (&lengths)[3]) {
    int next = 0;
    for (const char* t = kRecordTemplate; *t != '\0'; ++t) {
        if (t[0] == '%' && t[1] == 's' && next < 3) {
            out.append(texts[next], lengths[next]);
            ++next;
            ++t;
        } else {
            out.push_back(*t);
        }
    }
}

}  // namespace

UtCLogging::UtCLogging(const UtCString& path) : path_(path.IsEmpty() ? DefaultPath() : path) {}
UtCLogging::UtCLogging(const UtCLogging& other) : records_(other.records_), path_(other.path_) {}
UtCLogging::UtCLogging(UtCLogging&& other) noexcept
    : records_(std::move(other.records_)), path_(std::move(other.path_)) {}
UtCLogging& UtCLogging::operator=(const UtCLogging& other) {
    if (this != &other) {
        records_ = other.records_;
        path_ = other.path_;
    }
    return *this;
}
UtCLogging& UtCLogging::operator=(UtCLogging&& other) noexcept {
    if (this != &other) {
        records_ = std::move(other.records_);
        path_ = std::move(other.path_);
    }
    return *this;
}
UtCLogging::~UtCLogging() = default;

const char* UtCLogging::GetLogLevel(eLogLevel level) {
    switch (level) {
        case eLogWarning:
            return "WARNING";
        case eLogError:
            return "ERROR  ";
        default:
            return "INFO   ";
    }
}

const char* UtCLogging::GetTime() {
    const int64_t now = UtClockNow();
    if (now != timeSecond_) {
        UtFormatLocalTime(now, timeText_);
        timeSecond_ = now;
    }
    return timeText_;
}

void UtCLogging::LogOnly(const UtCString& msg, eLogLevel level) {
    const char* time = GetTime();
    const char* levelText = GetLogLevel(level);
    scratch_.clear();
    if (msg.isUtf16EncodingType()) {
        // The record takes the message's encoding: the ASCII head is widened, then the text added.
        const char* texts[3] = {time, levelText, ""};
        const size_t lengths[3] = {std::strlen(time), 7, 0};
        FillTemplate(scratch_, texts, lengths);
        UtCString record(scratch_.c_str(), static_cast<int>(scratch_.size()), eUtEncodingTypeUtf8,
                         msg.encodingType());
        record += msg;
        // A string that could not get its memory stays short: no record rather than a cut one.
        if (record.GetLength() != static_cast<int>(scratch_.size()) + msg.GetLength())
            throw std::bad_alloc();
        records_.push_back(std::move(record));
        return;
    }
    const char* body = Bytes(msg);
    const char* texts[3] = {time, levelText, body};
    const size_t lengths[3] = {std::strlen(time), 7, std::strlen(body)};
    FillTemplate(scratch_, texts, lengths);
    records_.emplace_back(scratch_.data(), static_cast<int>(scratch_.size()), msg.encodingType(),
                          msg.encodingType());
    if (records_.back().IsEmpty()) {
        records_.pop_back();
        throw std::bad_alloc();
    }
}

void UtCLogging::Log(const UtCString& msg, eLogLevel level) {
    LogOnly(msg, level);
    if (level == eLogError) DumpAndShow(msg, true);
}

UtCString UtCLogging::CreateDumpFile() const {
    char stamp[20];
    UtFormatLocalTime(UtClockNow(), stamp);
    for (char* c = stamp; *c != '\0'; ++c) {
        if (*c == ':') *c = '-';
    }
    const std::string path = path_.GetUtf8String();
    const int64_t dot = UtSplitFileExtension(path.c_str());
    if (dot < 0 || UtCString(path.c_str() + dot, eUtEncodingTypeUtf8, eUtEncodingTypeUtf8)
                           .CompareToNoCase(
                               UtCString(".txt", eUtEncodingTypeUtf8, eUtEncodingTypeUtf8)) != 0) {
        return UtCString(eUtEncodingTypeUtf8);
    }
    std::string name = path.substr(0, static_cast<size_t>(dot));
    name += '_';
    name += stamp;
    name += ".txt";
    return UtCString(name.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}

bool UtCLogging::DumpFile(const UtCString& name) const {
    if (name.IsEmpty()) return false;
    const std::string path = name.GetUtf8String();
    FILE* f = UtFileOpen(path.c_str(), "wb");
    if (f == nullptr) return false;
    std::setvbuf(f, nullptr, _IOFBF, size_t{1} << 16);
    bool ok = true;
    for (const UtCString& r : records_) {
        // ASCII text (every record's head, most messages) is UTF-8 as it stands.
        const char* bytes = nullptr;
        size_t n = 0;
        if (r.isUtf8EncodingType() || (r.isAnsiEncodingType() && IsAscii(r.ptr()))) {
            bytes = Bytes(r);
            n = std::strlen(bytes);
        }
        char* block = nullptr;
        if (bytes == nullptr) {
            const int units = r.GetUtf8String(&block);
            if (units < 0) {  // no memory: the dump would lack the record
                ok = false;
                break;
            }
            bytes = block;
            n = static_cast<size_t>(units);
        }
        const FreeBlock owner{block};
        if (std::fwrite(bytes, 1, n, f) != n || std::fputc('\n', f) == EOF) {
            ok = false;
            break;
        }
    }
    if (UtFileClose(f) == 0 && ok) return true;
    // A partial dump would pass for the whole log; the records stay in memory.
    UtFileRemove(path.c_str());
    return false;
}

void UtCLogging::ShowMsg(const UtCString& msg, const UtCString& title) const {
    DebugAssert(kModule, 0, "ShowMsg", 0, msg.GetUtf8String().c_str(),
                title.GetUtf8String().c_str());
}

bool UtCLogging::DumpAndShow(const UtCString& msg, bool show) {
    const UtCString name = CreateDumpFile();
    if (!DumpFile(name)) return false;
    if (show && msg.IsAny()) {
        ShowMsg(msg, name);
        UtSystem(name.GetUtf8String().c_str());
    }
    return true;
}

// ---- UtLogging --------------------------------------------------------------------------------

namespace {

constexpr int kMaxDecimals = 15;

std::string RealText(double value, int decimals) {
    if (decimals < 0) decimals = 0;
    if (decimals > kMaxDecimals) decimals = kMaxDecimals;
    char buf[400];
    const int n = std::snprintf(buf, sizeof buf, "%.*f", decimals, value);
    std::string s(buf, n > 0 ? static_cast<size_t>(n) : 0);
    // The C locale is not guaranteed in a host: the separator is always '.'.
    for (char& c : s) {
        if (c == ',') c = '.';
    }
    return s;
}

std::string PointText(const RPT3& p, int decimals, bool withZ) {
    std::string s = "(" + RealText(p.x, decimals) + ", " + RealText(p.y, decimals);
    if (withZ) s += ", " + RealText(p.z, decimals);
    return s + ")";
}

}  // namespace

UtLogging::~UtLogging() {
    if (file_ != nullptr) UtFileClose(file_);
}

int UtLogging::OpenWith(const UtCString& path, const char* mode) {
    if (file_ != nullptr) Close();
    file_ = UtFileOpen(path.GetUtf8String().c_str(), mode);
    failed_ = false;
    return file_ != nullptr ? 0 : -1;
}

int UtLogging::Open(const UtCString& path) {
    return OpenWith(path, "wb");
}
int UtLogging::Append(const UtCString& path) {
    return OpenWith(path, "ab");
}

int UtLogging::Close() {
    if (file_ == nullptr) return -1;
    const bool closed = UtFileClose(file_) == 0;
    file_ = nullptr;
    const bool ok = closed && !failed_;
    failed_ = false;
    return ok ? 0 : -1;
}

int UtLogging::Write(const char* text, size_t n) {
    if (file_ == nullptr) return -1;
    if (n != 0 && std::fwrite(text, 1, n, file_) != n) {
        failed_ = true;
        return -1;
    }
    return 0;
}

int UtLogging::Str(const char* text) {
    return text == nullptr ? (file_ ? 0 : -1) : Write(text, std::strlen(text));
}
int UtLogging::Str(const UtCString& text) {
    char* block = nullptr;
    const int n = text.GetUtf8String(&block);
    const FreeBlock owner{block};
    if (n < 0) {  // no memory: the text is not written, and the file is incomplete
        failed_ = file_ != nullptr;
        return -1;
    }
    return Write(block, static_cast<size_t>(n));
}
int UtLogging::Int(int value) {
    char buf[16];
    const int n = std::snprintf(buf, sizeof buf, "%d", value);
    return Write(buf, static_cast<size_t>(n));
}
int UtLogging::Real(double value, int decimals) {
    const std::string s = RealText(value, decimals);
    return Write(s.data(), s.size());
}
int UtLogging::Ln() {
    return Write("\n", 1);
}
int UtLogging::CurDate() {
    char buf[20];
    return UtFormatLocalTime(UtClockNow(), buf) == 0 ? -1 : Write(buf, 10);
}
int UtLogging::CurTime() {
    char buf[20];
    return UtFormatLocalTime(UtClockNow(), buf) == 0 ? -1 : Write(buf + 11, 8);
}
int UtLogging::CurDateTime() {
    char buf[20];
    return UtFormatLocalTime(UtClockNow(), buf) == 0 ? -1 : Write(buf, 19);
}
int UtLogging::Point2D(const RPT3& p, int decimals) {
    const std::string s = PointText(p, decimals, false);
    return Write(s.data(), s.size());
}
int UtLogging::Point3D(const RPT3& p, int decimals) {
    const std::string s = PointText(p, decimals, true);
    return Write(s.data(), s.size());
}
UtCString UtLogging::RealToStr(double value, int decimals) {
    return UtCString(RealText(value, decimals).c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8);
}
UtCString UtLogging::Point2DToStr(const RPT3& p, int decimals) {
    return UtCString(PointText(p, decimals, false).c_str(), eUtEncodingTypeUtf8,
                     eUtEncodingTypeUtf8);
}
