#include "csv.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "basert/fileio.h"
#include "basert/memory.h"
#include "codepages.h"
#include "csv_group.h"
#include "csv_output.h"
#include "csv_sort.h"
#include "io.h"
#include "kbase/tables/UtCCsvReader.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/UtCUtf.h"

namespace kbase_tool {

namespace {

using Clock = std::chrono::steady_clock;

// A bar on err, drawn only once a pass has taken more than a moment, and at most ten times a
// second.
class Progress {
  public:
    Progress(std::ostream& err, bool enabled) : err_(err), enabled_(enabled) {}
    ~Progress() { Finish(); }
    void Show(uint64_t position, uint64_t size) {
        if (!enabled_ || size == 0) return;
        const auto now = Clock::now();
        if (now - start_ < std::chrono::milliseconds(500) ||
            now - last_ < std::chrono::milliseconds(100))
            return;
        last_ = now;
        const int percent = static_cast<int>(std::min<uint64_t>(100, position * 100 / size));
        std::string bar(static_cast<size_t>(percent / 4), '#');
        bar.resize(25, '.');
        char text[160];
        std::snprintf(text, sizeof text, "\rreading [%s] %3d%%  %.1f of %.1f MB", bar.c_str(),
                      percent, static_cast<double>(position) / 1e6,
                      static_cast<double>(size) / 1e6);
        err_ << text << std::flush;
        drawn_ = true;
    }
    void Finish() {
        if (drawn_) err_ << "\r" << std::string(72, ' ') << "\r" << std::flush;
        drawn_ = false;
    }

  private:
    std::ostream& err_;
    bool enabled_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point last_ = Clock::time_point();
    bool drawn_ = false;
};

bool IsAscii(std::string_view s) {
    unsigned char any = 0;
    for (const char c : s) any |= static_cast<unsigned char>(c);
    return any < 0x80;
}

bool IsUtf8(std::string_view s) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const size_t n = s.size();
    for (size_t i = 0; i < n;) {
        const unsigned char c = p[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        size_t len = 0;
        uint32_t cp = 0;
        if (c >= 0xC2 && c <= 0xDF) {
            len = 2;
            cp = c & 0x1F;
        } else if (c >= 0xE0 && c <= 0xEF) {
            len = 3;
            cp = c & 0x0F;
        } else if (c >= 0xF0 && c <= 0xF4) {
            len = 4;
            cp = c & 0x07;
        } else {
            return false;
        }
        if (i + len > n) return false;
        for (size_t k = 1; k < len; ++k) {
            if ((p[i + k] & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (p[i + k] & 0x3F);
        }
        // Overlong forms, surrogates and code points past U+10FFFF are no UTF-8.
        if ((len == 3 && (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF))) ||
            (len == 4 && (cp < 0x10000 || cp > 0x10FFFF))) {
            return false;
        }
        i += len;
    }
    return true;
}

// Turns the fields of the file into UTF-8. Without a given encoding the first field that is not
// ASCII decides: valid UTF-8 makes the file UTF-8, anything else Windows-1252.
class Utf8Fields {
  public:
    Utf8Fields(int encoding, std::string how) : encoding_(encoding), how_(std::move(how)) {}

    int Encoding() const { return encoding_ == 0 ? 65001 : encoding_; }
    const std::string& How() const { return how_; }

    // out is in or a view of storage. False when the field is not valid in the file's encoding
    // (only UTF-8 can tell).
    bool Convert(std::string_view in, std::string& storage, std::string_view& out) {
        if (IsAscii(in)) {
            out = in;
            return true;
        }
        if (encoding_ == 0) Decide(in);
        if (encoding_ == 65001) {
            out = in;
            return IsUtf8(in);
        }
        storage.clear();
        if (encoding_ == 1252) {
            for (const char c : in) storage += Table1252()[static_cast<unsigned char>(c)];
        } else {
            ConvertGeneric(in, storage);
        }
        out = storage;
        return true;
    }

  private:
    void Decide(std::string_view first) {
        if (IsUtf8(first)) {
            encoding_ = 65001;
            how_ = "UTF-8";
        } else {
            encoding_ = 1252;
            how_ = "Windows-1252 (not valid UTF-8)";
        }
    }
    // Each byte of Windows-1252 in UTF-8, as the library converts it.
    static const std::vector<std::string>& Table1252() {
        static const std::vector<std::string> table = [] {
            std::vector<std::string> t(256);
            for (int b = 1; b < 256; ++b) {
                const char c = static_cast<char>(b);
                t[static_cast<size_t>(b)] =
                    UtCString(&c, 1, static_cast<eUtEncodingType>(1252), eUtEncodingTypeUtf8)
                        .GetUtf8String(0);
            }
            t[0] = std::string(1, '\0');
            return t;
        }();
        return table;
    }
    // Any other code page, piece by piece between NUL bytes (the conversion stops at a NUL).
    void ConvertGeneric(std::string_view in, std::string& out) const {
        size_t start = 0;
        for (;;) {
            const size_t nul = in.find('\0', start);
            const std::string_view piece = in.substr(
                start, nul == std::string_view::npos ? std::string_view::npos : nul - start);
            if (!piece.empty()) {
                const UtCUtf::Result r =
                    UtCUtf::Convert(piece.data(), static_cast<int64_t>(piece.size()),
                                    static_cast<unsigned short>(encoding_), eUtEncodingTypeUtf8);
                if (!r.ok) throw std::bad_alloc();
                out.append(static_cast<const char*>(r.text), static_cast<size_t>(r.units));
                UtFreeMemory(r.text);
            }
            if (nul == std::string_view::npos) return;
            out += '\0';
            start = nul + 1;
        }
    }

    int encoding_;
    std::string how_;
};

class WatchedReader : public UtCCsvReader {
  public:
    WatchedReader(const UtCString& name, Progress& progress)
        : UtCCsvReader(name), progress_(progress) {}
    WatchedReader(std::FILE* stream, Progress& progress)
        : UtCCsvReader(stream, UtCString("-", eUtEncodingTypeUtf8, eUtEncodingTypeUtf8)),
          progress_(progress) {}

  protected:
    void ScanProgress(uint64_t position, uint64_t size) override { progress_.Show(position, size); }

  private:
    Progress& progress_;
};

std::string Kinds(uint32_t implicitMask) {
    std::string k;
    auto add = [&](const char* s) { k += k.empty() ? s : std::string(", ") + s; };
    if ((implicitMask & (UtCCsvReader::eTypeSmallInteger | UtCCsvReader::eTypeLargeInteger)) != 0)
        add("whole number");
    if ((implicitMask & UtCCsvReader::eTypeReal) != 0) add("real");
    if ((implicitMask & UtCCsvReader::eTypeText) != 0) add("text");
    return k.empty() ? "(no values)" : k;
}

std::string Printable(char d) {
    if (d == '\t') return "TAB";
    if (d == ' ') return "space";
    return std::string("'") + d + "'";
}

// Column index of a header name or a 1-based number below the column count; -1 otherwise.
long ResolveColumn(const std::string& col, const std::vector<std::string>& names, size_t columns) {
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == col) return static_cast<long>(i);
    }
    if (!col.empty() && col.size() < 10 &&
        col.find_first_not_of("0123456789") == std::string::npos) {
        const long n = std::stol(col);
        if (n >= 1 && static_cast<size_t>(n) <= columns) return n - 1;
    }
    return -1;
}

// "1G", "512M", "64K" or a number of bytes; false for anything else.
bool ParseSize(const std::string& text, uint64_t& bytes) {
    if (text.empty() || text.size() > 15) return false;
    size_t digits = 0;
    while (digits < text.size() && text[digits] >= '0' && text[digits] <= '9') ++digits;
    if (digits == 0) return false;
    uint64_t n = std::stoull(text.substr(0, digits));
    const std::string unit = text.substr(digits);
    int shift = 0;
    if (unit == "K" || unit == "k" || unit == "KiB")
        shift = 10;
    else if (unit == "M" || unit == "m" || unit == "MiB")
        shift = 20;
    else if (unit == "G" || unit == "g" || unit == "GiB")
        shift = 30;
    else if (!unit.empty() && unit != "B")
        return false;
    if (n > (uint64_t{1} << (63 - shift))) return false;
    bytes = n << shift;
    return true;
}

// What a job does with each data row; the rows arrive converted to UTF-8.
class RowSink {
  public:
    virtual ~RowSink() = default;
    // raw: the fields as read, in the file's encoding; utf8: the same fields in UTF-8.
    virtual bool Row(const std::vector<std::string_view>& raw,
                     const std::vector<std::string_view>& utf8) = 0;
};

// Kinds of each column, ragged rows and trailing rows without numbers, for the description.
class Describer : public RowSink {
  public:
    explicit Describer(eUtEncodingType e, size_t headerWidth)
        : encoding_(e), headerWidth_(headerWidth) {}
    bool Row(const std::vector<std::string_view>& raw,
             const std::vector<std::string_view>&) override {
        if (masks_.size() < raw.size()) masks_.resize(raw.size());
        bool any = false, number = false;
        for (size_t i = 0; i < raw.size(); ++i) {
            if (raw[i].empty()) continue;  // a missing value has no kind
            const UtCCsvReader::TColumnMasks m =
                UtCCsvReader::ClassifyField(raw[i].data(), raw[i].size(), encoding_, &comma_);
            masks_[i].implicitMask |= m.implicitMask;
            masks_[i].explicitMask |= m.explicitMask;
            any = true;
            number =
                number || (m.implicitMask & ~static_cast<uint32_t>(UtCCsvReader::eTypeText)) != 0;
        }
        ++rows_;
        if (headerWidth_ != 0 && raw.size() != headerWidth_) ++ragged_;
        trailingText_ = (any && !number) ? trailingText_ + 1 : 0;
        return true;
    }
    std::vector<UtCCsvReader::TColumnMasks> masks_;
    uint64_t rows_ = 0, ragged_ = 0, trailingText_ = 0;
    bool comma_ = false;

  private:
    eUtEncodingType encoding_;
    size_t headerWidth_;
};

// Trailing rows that hold text but no number, when rows with numbers came before them: they look
// like notes under the data. Counted by the row sinks that do not classify every field.
class FooterWatch {
  public:
    void Row(const std::vector<std::string_view>& raw) {
        bool any = false, number = false;
        for (const std::string_view f : raw) {
            if (f.empty()) continue;
            any = true;
            double v = 0;
            if (UtCCsvReader::FieldToDouble(f.data(), f.size(), eUtEncodingTypeUtf8, v)) {
                number = true;
                break;
            }
        }
        ++rows_;
        trailing_ = (any && !number) ? trailing_ + 1 : 0;
    }
    uint64_t Trailing() const { return trailing_ < rows_ ? trailing_ : 0; }

  private:
    uint64_t rows_ = 0, trailing_ = 0;
};

class Grouper : public RowSink {
  public:
    Grouper(std::vector<long> group, std::vector<long> sum, CommaRule commas)
        : group_(std::move(group)),
          sum_(std::move(sum)),
          totals_(group_.size(), sum_.size(), commas),
          keys_(group_.size()),
          sums_(sum_.size()) {}
    bool Row(const std::vector<std::string_view>& raw,
             const std::vector<std::string_view>& utf8) override {
        footer_.Row(raw);
        for (size_t k = 0; k < group_.size(); ++k) keys_[k] = Cell(utf8, group_[k]);
        for (size_t k = 0; k < sum_.size(); ++k) sums_[k] = Cell(utf8, sum_[k]);
        totals_.Add(keys_.data(), sums_.data());
        return true;
    }
    static std::string_view Cell(const std::vector<std::string_view>& row, long col) {
        return static_cast<size_t>(col) < row.size() ? row[static_cast<size_t>(col)]
                                                     : std::string_view();
    }
    std::vector<long> group_, sum_;
    GroupTotals totals_;
    FooterWatch footer_;

  private:
    std::vector<std::string_view> keys_, sums_;
};

class Sorter : public RowSink {
  public:
    Sorter(std::vector<SortKey> keys, uint64_t budget, CommaRule commas)
        : sort_(std::move(keys), budget, commas) {}
    bool Row(const std::vector<std::string_view>& raw,
             const std::vector<std::string_view>& utf8) override {
        footer_.Row(raw);
        width_ = std::max(width_, utf8.size());
        return sort_.Add(utf8);
    }
    ExternalSort sort_;
    FooterWatch footer_;
    size_t width_ = 0;
};

// The state of one run of the job.
struct Job {
    const CsvOptions& o;
    std::ostream& out;
    std::ostream& err;
    std::FILE* stream = nullptr;  // standard input, or null for a file
    std::unique_ptr<Progress> progress;
    std::unique_ptr<WatchedReader> reader;
    std::unique_ptr<Utf8Fields> text;
    std::vector<std::string> names;  // the header in UTF-8: fields of the last title line
    size_t firstWidth = 0;           // fields of the first data row
    std::vector<std::string_view> raw, utf8;
    std::vector<std::string> storage;
    bool pending = false;  // raw and utf8 hold the first data row, read ahead
    uint64_t badText = 0;  // line of the first field that is not valid text, 0 when none

    int Fail(int code, const std::string& message) const {
        err << "kbase csv: " << message << "\n";
        return code;
    }
};

int CheckOptions(const CsvOptions& o, uint64_t& budget, std::ostream& err) {
    auto usage = [&](const std::string& m) {
        err << "kbase csv: " << m << "\n";
        return kExitUsage;
    };
    if (o.input.empty()) return usage("give a file, or - for standard input");
    if (o.delimiter.size() > 1 && o.delimiter != "tab" && o.delimiter != "\\t") {
        return usage("the delimiter must be one character, not '" + o.delimiter + "'");
    }
    if (o.delimiter == "\n" || o.delimiter == "\r" || (o.quotes && o.delimiter == "\"")) {
        return usage("the delimiter cannot be a line break or the quote");
    }
    if (o.footer < 0) return usage("--footer needs a number of lines from 0");
    if (!ParseSize(o.memory, budget) || budget < (uint64_t{16} << 20)) {
        return usage("--memory needs a size of at least 16M, such as 512M or 2G, not '" + o.memory +
                     "'");
    }
    return kExitOk;
}

int OpenInput(Job& job) {
    const CsvOptions& o = job.o;
    job.progress = std::make_unique<Progress>(job.err, o.progress);
    // The program's checks of the input (a folder, a closed standard input) come first.
    const bool standard = o.input == "-" || o.input == "/dev/stdin";
    {
        InputFile check;
        if (const int rc = check.Open(standard ? "-" : o.input, "kbase csv", job.err);
            rc != kExitOk)
            return rc;
    }
    if (standard) {
        job.stream = stdin;
        job.reader = std::make_unique<WatchedReader>(stdin, *job.progress);
        return kExitOk;
    }
    job.reader = std::make_unique<WatchedReader>(
        UtCString(o.input.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8), *job.progress);
    if (!job.reader->IsOpen())
        return job.Fail(kExitIo, "cannot open '" + o.input + "': " + std::strerror(errno));
    return kExitOk;
}

const char* ReadStateText(UtCCsvReader::TReadState s) {
    switch (s) {
        case UtCCsvReader::eReadLineTooLong:
            return "a line is longer than 1 GiB";
        case UtCCsvReader::eReadNoMemory:
            return "out of memory";
        case UtCCsvReader::eReadNotOpen:
            return "it could not be opened";
        default:
            return "read error";
    }
}

// Guesses what was not given: the encoding (a mark decides at once), the delimiter and the title
// lines, from the first block of the input, which stays unread.
int DetectFormat(Job& job) {
    const CsvOptions& o = job.o;
    UtCCsvReader& r = *job.reader;
    r.SetQuoted(o.quotes);
    int encoding = 0;
    std::string how;
    if (!o.encoding.empty()) {
        if (!ParseCodePage(o.encoding, encoding))
            return job.Fail(kExitUsage,
                            "unknown code page '" + o.encoding + "' (see kbase recode --list)");
        how = "code page " + std::to_string(encoding) + " (as given)";
        r.SetFileEncoding(static_cast<eUtEncodingType>(encoding));
    }
    const bool guessDelimiter = o.delimiter.empty();
    const bool read = r.DetectFromHead(o.titles < 0);
    if (!read && r.GetReadState() != UtCCsvReader::eReadEnd &&
        r.GetReadState() != UtCCsvReader::eReadOk) {
        return job.Fail(kExitIo,
                        "cannot read '" + o.input + "': " + ReadStateText(r.GetReadState()));
    }
    if (o.encoding.empty() && r.GetFileEncoding() == eUtEncodingTypeUtf8) {
        encoding = 65001;
        how = "UTF-8 (byte-order mark)";
    }
    if (!guessDelimiter) r.SetColDelimiter(o.delimiter.size() == 1 ? o.delimiter[0] : '\t');
    if (o.titles >= 0) r.SetTitleLineCount(static_cast<uint64_t>(o.titles));
    job.text = std::make_unique<Utf8Fields>(encoding, how);
    return kExitOk;
}

// Reads the next record into job.raw and job.utf8; false at the end of the data.
bool NextRecord(Job& job) {
    const int n = job.reader->ReadRecord();
    if (n < 0) return false;
    job.raw.resize(static_cast<size_t>(n));
    unsigned char high = 0;  // the bits of every byte: below 0x80 means all ASCII
    for (int i = 0; i < n; ++i) {
        const char* p = job.reader->GetFieldPtr(i);
        const size_t len = job.reader->GetFieldLength(i);
        job.raw[static_cast<size_t>(i)] = std::string_view(p, len);
        for (size_t b = 0; b < len; ++b) high |= static_cast<unsigned char>(p[b]);
    }
    // ASCII reads the same in every code page the program takes, so most rows need no conversion.
    if (high < 0x80) {
        job.utf8.assign(job.raw.begin(), job.raw.end());
        return true;
    }
    job.utf8.resize(job.raw.size());
    if (job.storage.size() < job.raw.size()) job.storage.resize(job.raw.size());
    for (size_t k = 0; k < job.raw.size(); ++k) {
        if (!job.text->Convert(job.raw[k], job.storage[k], job.utf8[k]) && job.badText == 0) {
            job.badText = job.reader->GetRecordNumber();
        }
    }
    return true;
}

void ReadTitles(Job& job) {
    for (uint64_t t = 0; t < job.reader->GetTitleLineCount() && NextRecord(job); ++t) {
        job.names.assign(job.utf8.begin(), job.utf8.end());
    }
}

// Feeds every data row to the sink, holding back the last --footer rows, which are dropped.
int ReadRows(Job& job, RowSink& sink) {
    std::deque<std::vector<std::string>> held;  // the rows that may be the footer, in UTF-8 and raw
    std::vector<std::string_view> heldRaw, heldUtf8;
    const size_t footer = static_cast<size_t>(job.o.footer);
    while (std::exchange(job.pending, false) || NextRecord(job)) {
        bool ok = true;
        if (footer == 0) {
            ok = sink.Row(job.raw, job.utf8);
        } else {
            std::vector<std::string> copy;
            for (size_t i = 0; i < job.raw.size(); ++i) copy.emplace_back(job.raw[i]);
            for (size_t i = 0; i < job.utf8.size(); ++i) copy.emplace_back(job.utf8[i]);
            held.push_back(std::move(copy));
            if (held.size() > footer) {
                const std::vector<std::string>& row = held.front();
                const size_t half = row.size() / 2;
                heldRaw.assign(row.begin(), row.begin() + static_cast<long>(half));
                heldUtf8.assign(row.begin() + static_cast<long>(half), row.end());
                ok = sink.Row(heldRaw, heldUtf8);
                held.pop_front();
            }
        }
        if (!ok) return kExitIo;
        job.progress->Show(job.reader->GetFilePosition(), job.reader->GetFileSize());
    }
    job.progress->Finish();
    const UtCCsvReader::TReadState state = job.reader->GetReadState();
    if (state != UtCCsvReader::eReadEnd && state != UtCCsvReader::eReadUnclosedQuote) {
        return job.Fail(kExitIo,
                        "cannot read '" + job.o.input + "' to its end: " + ReadStateText(state));
    }
    if (state == UtCCsvReader::eReadUnclosedQuote) {
        job.err << "kbase csv: warning: a quoted field opened on line "
                << job.reader->GetRecordNumber()
                << " never closes; it runs to the end of the file (try --no-quotes)\n";
    }
    if (job.badText != 0) {
        return job.Fail(kExitContent, "line " + std::to_string(job.badText) + " is not valid " +
                                          job.text->How() +
                                          " text; give the file's code page with --encoding");
    }
    return kExitOk;
}

int Describe(Job& job) {
    UtCCsvReader& r = *job.reader;
    Describer d(static_cast<eUtEncodingType>(job.text->Encoding()), job.names.size());
    if (const int rc = ReadRows(job, d); rc != kExitOk) return rc;
    const size_t columns = std::max(d.masks_.size(), job.names.size());
    std::ostream& out = job.out;
    out << "file:           " << job.o.input << "\n"
        << "size:           " << (job.stream != nullptr ? r.GetFilePosition() : r.GetFileSize())
        << " bytes\n"
        << "encoding:       " << (job.text->How().empty() ? "ASCII" : job.text->How()) << "\n"
        << "delimiter:      " << Printable(r.GetColDelimiter()) << "\n"
        << "quoting:        " << (job.o.quotes ? "RFC 4180" : "none") << "\n"
        << "title lines:    " << r.GetTitleLineCount() << "\n"
        << "columns:        " << columns << "\n"
        << "rows:           " << d.rows_ << "\n"
        << "ragged rows:    " << d.ragged_ << "\n"
        << "decimal commas: " << (d.comma_ ? "yes" : "no") << "\n";
    if (d.trailingText_ != 0 && d.trailingText_ < d.rows_) {
        out << "footer?:        the last " << d.trailingText_
            << " rows hold no number (counted as rows; --footer " << d.trailingText_
            << " drops them)\n";
    }
    out << "column  kinds                       name\n";
    for (size_t i = 0; i < columns; ++i) {
        char line[64];
        std::snprintf(line, sizeof line, "%6zu  %-28s", i + 1,
                      Kinds(i < d.masks_.size() ? d.masks_[i].implicitMask : 0).c_str());
        out << line << (i < job.names.size() ? job.names[i] : std::string()) << "\n";
    }
    out.flush();
    if (!out)
        return job.Fail(kExitIo, "cannot write the output: " + std::string(std::strerror(errno)));
    return kExitOk;
}

void NoteFooter(const Job& job, uint64_t trailing) {
    if (trailing == 0) return;
    job.err << "kbase csv: note: the last " << trailing
            << " rows hold no number; they were kept as data"
            << " (if they are notes under the table, drop them with --footer " << trailing << ")\n";
}

// Resolves columns named on the command line; false (with a message) for one that is missing.
bool ResolveAll(const Job& job, const std::vector<std::string>& cols, std::vector<long>& out,
                const char* what) {
    const size_t columns = std::max(job.names.size(), job.firstWidth);
    for (const std::string& c : cols) {
        const long i = ResolveColumn(c, job.names, columns);
        if (i < 0) {
            job.err << "kbase csv: no column '" << c << "' to " << what << " (the file has "
                    << columns << " columns; give a header name or a number from 1)\n";
            return false;
        }
        out.push_back(i);
    }
    return true;
}

std::string ColumnName(const Job& job, long col) {
    const auto c = static_cast<size_t>(col);
    return c < job.names.size() ? job.names[c] : "column " + std::to_string(c + 1);
}

// Sort keys from "COL" or "COL:desc" against the output's column names; false (with a message)
// for a column that is missing.
bool ParseSortKeys(const Job& job, const std::vector<std::string>& names, size_t width,
                   std::vector<SortKey>& keys) {
    for (std::string c : job.o.sort) {
        bool down = false;
        for (const char* suffix : {":desc", ":asc"}) {
            const size_t n = std::strlen(suffix);
            if (c.size() > n && c.compare(c.size() - n, n, suffix) == 0) {
                down = suffix[1] == 'd';
                c.resize(c.size() - n);
            }
        }
        const long i = ResolveColumn(c, names, width);
        if (i < 0) {
            job.err << "kbase csv: no column '" << c << "' to sort by (the output has " << width
                    << " columns; give a header name or a number from 1)\n";
            return false;
        }
        keys.push_back(SortKey{static_cast<size_t>(i), down});
    }
    return true;
}

// Writes the header and the rows that produce hands over, sorted when keys are given.
int WriteRows(Job& job, const std::vector<std::string>& header, const std::vector<SortKey>& keys,
              uint64_t budget, const std::function<bool(const ExternalSort::RowSink&)>& produce) {
    CsvOut out(job.out, job.reader->GetColDelimiter());
    for (const std::string& name : header) out.Field(name);
    out.EndRow();
    auto write = [&](const std::vector<std::string_view>& fields) {
        for (const std::string_view f : fields) out.Field(f);
        out.EndRow();
        return out.Good();
    };
    bool ok = true;
    if (keys.empty()) {
        ok = produce(write);
    } else {
        ExternalSort sorted(keys, budget, CommaRuleFor(job.reader->GetColDelimiter()));
        ok = produce(
                 [&](const std::vector<std::string_view>& fields) { return sorted.Add(fields); }) &&
             sorted.Finish(write);
        if (!ok && !sorted.Error().empty()) return job.Fail(kExitIo, sorted.Error());
    }
    if (!out.Flush() || !ok)
        return job.Fail(kExitIo, "cannot write the output: " + std::string(std::strerror(errno)));
    return kExitOk;
}

int Totals(Job& job, uint64_t budget) {
    std::vector<long> group, sum;
    if (!ResolveAll(job, job.o.group, group, "group by") || !ResolveAll(job, job.o.sum, sum, "sum"))
        return kExitUsage;
    std::vector<std::string> header;
    for (const long c : group) header.push_back(ColumnName(job, c));
    for (const long c : sum) header.push_back(ColumnName(job, c));
    std::vector<SortKey> keys;
    if (!ParseSortKeys(job, header, header.size(), keys)) return kExitUsage;
    const char d = job.reader->GetColDelimiter();
    Grouper g(group, sum, CommaRuleFor(d));
    if (const int rc = ReadRows(job, g); rc != kExitOk) return rc;
    NoteFooter(job, g.footer_.Trailing());
    for (size_t k = 0; k < sum.size(); ++k) {
        if (!g.totals_.SawNumber(k))
            job.err << "kbase csv: note: column '" << ColumnName(job, sum[k])
                    << "' holds no number\n";
    }
    // A decimal comma only where the file wrote one and the delimiter cannot clash with it.
    const bool commaOut = g.totals_.UsedComma() && d != ',';
    return WriteRows(job, header, keys, budget, [&](const ExternalSort::RowSink& sink) {
        return g.totals_.ForEach("%.2f", commaOut, sink);
    });
}

int SortRows(Job& job, uint64_t budget) {
    const size_t width = std::max(job.names.size(), job.firstWidth);
    std::vector<std::string> header;
    for (size_t k = 0; k < width; ++k) header.push_back(ColumnName(job, static_cast<long>(k)));
    std::vector<SortKey> keys;
    if (!ParseSortKeys(job, header, width, keys)) return kExitUsage;
    Sorter s(keys, budget, CommaRuleFor(job.reader->GetColDelimiter()));
    const int rc = ReadRows(job, s);
    if (rc != kExitOk) return s.sort_.Error().empty() ? rc : job.Fail(kExitIo, s.sort_.Error());
    NoteFooter(job, s.footer_.Trailing());
    // Rows wider than the header and the first row get names of their own.
    for (size_t k = width; k < s.width_; ++k)
        header.push_back(ColumnName(job, static_cast<long>(k)));
    return WriteRows(job, header, {}, budget, [&](const ExternalSort::RowSink& sink) {
        const bool ok = s.sort_.Finish(sink);
        if (!ok && !s.sort_.Error().empty()) job.err << "kbase csv: " << s.sort_.Error() << "\n";
        return ok;
    });
}

int Run(Job& job, uint64_t budget) {
    if (const int rc = OpenInput(job); rc != kExitOk) return rc;
    if (const int rc = DetectFormat(job); rc != kExitOk) return rc;
    ReadTitles(job);
    // Columns by number may reach past the header: the first row is read ahead for its width.
    job.pending = NextRecord(job);
    if (job.pending) job.firstWidth = job.raw.size();
    const bool totals = !job.o.sum.empty() || !job.o.group.empty();
    if (!totals && job.o.sort.empty()) return Describe(job);
    return totals ? Totals(job, budget) : SortRows(job, budget);
}

}  // namespace

int Csv(const CsvOptions& o, std::ostream& out, std::ostream& err) {
    uint64_t budget = 0;
    if (const int rc = CheckOptions(o, budget, err); rc != kExitOk) return rc;
    Job job{o, out, err};
    try {
        return Run(job, budget);
    } catch (const std::bad_alloc&) {
        return job.Fail(kExitIo, "out of memory");
    }
}

}  // namespace kbase_tool
