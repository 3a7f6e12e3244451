#include "csv.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "basert/fileio.h"
#include "basert/files.h"
#include "kbase/tables/UtCCsvReader.h"
#include "kbase/tables/UtTable.h"
#include "kbase/text/UtCString.h"

namespace kbase_tool {

namespace {

constexpr int kExitOk = 0;
constexpr int kExitIo = 1;
constexpr int kExitUsage = 2;

using Clock = std::chrono::steady_clock;

// A bar on err, drawn only once a pass has taken more than a moment, and at most ten times a
// second.
class Progress {
public:
    Progress(std::ostream& err, bool enabled, const char* what) : err_(err), enabled_(enabled), what_(what) {}
    ~Progress() { Finish(); }
    void Show(uint64_t position, uint64_t size) {
        if (!enabled_ || size == 0) return;
        const auto now = Clock::now();
        if (now - start_ < std::chrono::milliseconds(500) || now - last_ < std::chrono::milliseconds(100)) return;
        last_ = now;
        const int percent = static_cast<int>(std::min<uint64_t>(100, position * 100 / size));
        std::string bar(static_cast<size_t>(percent / 4), '#');
        bar.resize(25, '.');
        char text[160];
        std::snprintf(text, sizeof text, "\r%s [%s] %3d%%  %.1f of %.1f MB", what_, bar.c_str(), percent,
                      static_cast<double>(position) / 1e6, static_cast<double>(size) / 1e6);
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
    const char* what_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point last_ = Clock::time_point();
    bool drawn_ = false;
};

class WatchedReader : public UtCCsvReader {
public:
    WatchedReader(const UtCString& name, Progress& progress) : UtCCsvReader(name), progress_(progress) {}

protected:
    void ScanProgress(uint64_t position, uint64_t size) override { progress_.Show(position, size); }

private:
    Progress& progress_;
};

// Whether the bytes are UTF-8 (a sequence cut at the end of the sample counts as valid).
bool LooksUtf8(const unsigned char* p, size_t n) {
    for (size_t i = 0; i < n;) {
        const unsigned char c = p[i];
        size_t len = c < 0x80 ? 1 : (c >= 0xC2 && c <= 0xDF) ? 2 : (c >= 0xE0 && c <= 0xEF) ? 3 : (c >= 0xF0 && c <= 0xF4) ? 4 : 0;
        if (len == 0) return false;
        for (size_t k = 1; k < len; ++k) {
            if (i + k >= n) return true;
            if ((p[i + k] & 0xC0) != 0x80) return false;
        }
        i += len;
    }
    return true;
}

// The file's code page: a mark says UTF-8; else UTF-8 when the first 64 KiB are valid UTF-8,
// else Windows-1252.
int SniffEncoding(FILE* f, std::string& how) {
    std::vector<unsigned char> head(1 << 16);
    const size_t n = std::fread(head.data(), 1, head.size(), f);
    if (n >= 3 && std::memcmp(head.data(), "\xEF\xBB\xBF", 3) == 0) {
        how = "UTF-8 (byte-order mark)";
        return 65001;
    }
    if (LooksUtf8(head.data(), n)) {
        how = "UTF-8";
        return 65001;
    }
    how = "Windows-1252 (not valid UTF-8)";
    return 1252;
}

std::vector<std::string_view> Split(std::string_view line, char d) {
    std::vector<std::string_view> fields;
    size_t start = 0;
    for (;;) {
        const size_t at = line.find(d, start);
        if (at == std::string_view::npos) {
            fields.push_back(line.substr(start));
            return fields;
        }
        fields.push_back(line.substr(start, at - start));
        start = at + 1;
    }
}

std::string Utf8(std::string_view bytes, int e) {
    const auto enc = static_cast<eUtEncodingType>(e);
    return UtCString(bytes.data(), static_cast<int>(bytes.size()), enc, eUtEncodingTypeUtf8).GetUtf8String(0);
}

std::string Kinds(uint32_t implicitMask) {
    std::string k;
    auto add = [&](const char* s) { k += k.empty() ? s : std::string(", ") + s; };
    if ((implicitMask & (UtCCsvReader::eTypeSmallInteger | UtCCsvReader::eTypeLargeInteger)) != 0) add("whole number");
    if ((implicitMask & UtCCsvReader::eTypeReal) != 0) add("real");
    if ((implicitMask & UtCCsvReader::eTypeText) != 0) add("text");
    return k.empty() ? "(no values)" : k;
}

std::string Printable(char d) {
    if (d == '\t') return "TAB";
    if (d == ' ') return "space";
    return std::string("'") + d + "'";
}

// Column index of a name of the header or a 1-based number; -1 when there is none.
long ResolveColumn(const std::string& col, const std::vector<std::string>& names) {
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == col) return static_cast<long>(i);
    }
    if (!col.empty() && col.find_first_not_of("0123456789") == std::string::npos && col.size() < 9) {
        const long n = std::stol(col);
        if (n >= 1) return n - 1;
    }
    return -1;
}

bool IsNumber(const std::string& text) {
    double d = 0;
    return UtCString(text.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8).Convert(d);
}

// A decimal-comma number in the '.' form the table reads; the text itself otherwise.
std::string PointForm(const std::string& text, bool& changed) {
    changed = false;
    if (text.find(',') == std::string::npos || IsNumber(text)) return text;
    std::string t = text;
    std::replace(t.begin(), t.end(), ',', '.');
    if (!IsNumber(t)) return text;
    changed = true;
    return t;
}

struct Analysis {
    std::vector<std::string> names;  // fields of the last title line, UTF-8
    std::vector<UtCCsvReader::TColumnMasks> masks;
    uint64_t rows = 0;
    uint64_t footer = 0;  // trailing rows that look like title lines
    uint64_t ragged = 0;  // rows whose field count differs from the header's
};

}  // namespace

int Csv(const CsvOptions& o, std::ostream& out, std::ostream& err) {
    if (o.delimiter.size() > 1) {
        err << "kbase csv: the delimiter must be one character, not '" << o.delimiter << "'\n";
        return kExitUsage;
    }
    std::string encodingText;
    int encoding = o.encoding;
    {
        FILE* f = UtFileOpen(o.input.c_str(), "rb");
        if (f == nullptr) {
            err << "kbase csv: cannot open '" << o.input << "': " << std::strerror(errno) << "\n";
            return kExitIo;
        }
        const int sniffed = SniffEncoding(f, encodingText);
        UtFileClose(f);
        if (encoding == 0) {
            encoding = sniffed;
        } else {
            encodingText = "code page " + std::to_string(encoding) + " (as given)";
        }
    }
    if (!UtCUtf::IsAvailable(static_cast<unsigned short>(encoding))) {
        err << "kbase csv: unknown code page " << encoding << "\n";
        return kExitUsage;
    }

    Progress scanProgress(err, o.progress, "scanning");
    WatchedReader reader(UtCString(o.input.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8), scanProgress);
    reader.SetFileEncoding(static_cast<eUtEncodingType>(encoding));
    bool ok = reader.Reset(true);
    if (ok && (!o.delimiter.empty() || o.titles >= 0)) {
        if (!o.delimiter.empty()) reader.SetColDelimiter(o.delimiter[0]);
        if (o.titles >= 0) reader.SetTitleLineCount(static_cast<uint64_t>(o.titles));
        ok = reader.Reset(false);
    }
    scanProgress.Finish();
    if (!ok) {
        const char* why = reader.GetReadState() == UtCCsvReader::eReadLineTooLong ? "a line is longer than 1 GiB"
                          : reader.GetReadState() == UtCCsvReader::eReadNoMemory  ? "out of memory"
                                                                                 : "read error";
        err << "kbase csv: cannot read '" << o.input << "': " << why << "\n";
        return kExitIo;
    }
    const char d = reader.GetColDelimiter();
    const bool tableJob = !o.sum.empty() || !o.group.empty() || !o.sort.empty();

    // One pass over the lines, fields cut at every delimiter so that they line up with the header.
    Analysis a;
    reader.SetToFirstRow(false);
    for (uint64_t t = 0; t < reader.GetTitleLineCount() && reader.SkipNextRow(); ++t) {
        a.names.clear();
        for (std::string_view f : Split(reader.GetMLine(), d)) a.names.push_back(Utf8(f, encoding));
    }
    // Columns of the table job: the projection for totals, or every column for a plain sort.
    std::vector<long> sumCols, groupCols;
    for (const auto& list : {std::make_pair(&o.sum, &sumCols), std::make_pair(&o.group, &groupCols)}) {
        for (const std::string& c : *list.first) {
            const long i = ResolveColumn(c, a.names);
            if (i < 0) {
                err << "kbase csv: no column '" << c << "' (give a header name or a number from 1)\n";
                return kExitUsage;
            }
            list.second->push_back(i);
        }
    }
    const bool totals = !sumCols.empty() || !groupCols.empty();
    std::vector<long> projection = groupCols;
    projection.insert(projection.end(), sumCols.begin(), sumCols.end());

    UtTable table;
    std::vector<bool> pointFormColumn;  // output columns whose numbers were read with a decimal comma
    Progress readProgress(err, o.progress, "reading ");
    uint64_t footerRun = 0;
    while (reader.SkipNextRow()) {
        const std::vector<std::string_view> fields = Split(reader.GetMLine(), d);
        if (a.masks.size() < fields.size()) a.masks.resize(fields.size());
        bool any = false;
        bool number = false;
        for (size_t i = 0; i < fields.size(); ++i) {
            if (fields[i].empty()) continue;  // a missing value: no kind
            const auto enc = static_cast<eUtEncodingType>(encoding);
            const UtCCsvReader::TColumnMasks m =
                reader.ClassifyToken(UtCString(fields[i].data(), static_cast<int>(fields[i].size()), enc, enc));
            a.masks[i].implicitMask |= m.implicitMask;
            a.masks[i].explicitMask |= m.explicitMask;
            any = true;
            number = number || (m.implicitMask & ~static_cast<uint32_t>(UtCCsvReader::eTypeText)) != 0;
        }
        ++a.rows;
        if (!a.names.empty() && fields.size() != a.names.size()) ++a.ragged;
        footerRun = (any && !number) ? footerRun + 1 : 0;
        if (tableJob) {
            table.AddRow();
            const size_t width = totals ? projection.size() : fields.size();
            if (pointFormColumn.size() < width) pointFormColumn.resize(width, false);
            for (size_t k = 0; k < width; ++k) {
                const size_t src = totals ? static_cast<size_t>(projection[k]) : k;
                std::string text = src < fields.size() ? Utf8(fields[src], encoding) : std::string();
                bool changed = false;
                text = PointForm(text, changed);
                if (changed) pointFormColumn[k] = true;
                table.AddElem(UtCString(text.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
            }
        }
        readProgress.Show(reader.GetFilePosition(), reader.GetFileSize());
    }
    readProgress.Finish();
    if (reader.GetReadState() != UtCCsvReader::eReadEnd) {
        err << "kbase csv: cannot read '" << o.input << "' to its end\n";
        return kExitIo;
    }
    // Free text after the data (notes, copyright lines) is no data: it only counts when some
    // row before it held a number.
    if (footerRun < a.rows) a.footer = footerRun;

    if (!tableJob) {
        out << "file:           " << o.input << "\n"
            << "size:           " << reader.GetFileSize() << " bytes\n"
            << "encoding:       " << encodingText << "\n"
            << "delimiter:      " << Printable(d) << "\n"
            << "title lines:    " << reader.GetTitleLineCount() << "\n"
            << "columns:        " << std::max(a.masks.size(), a.names.size()) << "\n"
            << "rows:           " << a.rows - a.footer << "\n"
            << "footer lines:   " << a.footer << "\n"
            << "ragged rows:    " << a.ragged << "\n"
            << "decimal commas: " << (reader.GetDecimalComma() ? "yes" : "no") << "\n"
            << "column  kinds                       name\n";
        const size_t columns = std::max(a.masks.size(), a.names.size());
        for (size_t i = 0; i < columns; ++i) {
            char line[64];
            std::snprintf(line, sizeof line, "%6zu  %-28s", i + 1,
                          Kinds(i < a.masks.size() ? a.masks[i].implicitMask : 0).c_str());
            out << line << (i < a.names.size() ? a.names[i] : std::string()) << "\n";
        }
        return kExitOk;
    }

    // The table job on the data rows (the footer dropped).
    UtTable::RowList& rows = table.GetRowList();
    rows.resize(static_cast<size_t>(a.rows - a.footer));
    std::vector<std::string> names;
    const size_t width = totals ? projection.size() : std::max(a.masks.size(), a.names.size());
    for (size_t k = 0; k < width; ++k) {
        const size_t src = totals ? static_cast<size_t>(projection[k]) : k;
        names.push_back(src < a.names.size() ? a.names[src] : "column " + std::to_string(src + 1));
    }
    if (totals) {
        std::vector<long> sums;
        for (size_t k = groupCols.size(); k < projection.size(); ++k) sums.push_back(static_cast<long>(k));
        table.SumColumn(static_cast<unsigned short>(sums.size()), sums.data(), nullptr, 0, nullptr);
        for (size_t k = groupCols.size(); k < projection.size(); ++k) {
            if (k < pointFormColumn.size() && reader.GetDecimalComma()) pointFormColumn[k] = true;
        }
    }
    if (!o.sort.empty()) {
        std::vector<long> cols;
        std::vector<short> dirs;
        for (std::string c : o.sort) {
            short dir = 0;
            for (const char* suffix : {":desc", ":asc"}) {
                const size_t n = std::strlen(suffix);
                if (c.size() > n && c.compare(c.size() - n, n, suffix) == 0) {
                    dir = suffix[1] == 'd' ? 1 : 0;
                    c.resize(c.size() - n);
                }
            }
            const long i = ResolveColumn(c, names);
            if (i < 0 || static_cast<size_t>(i) >= width) {
                err << "kbase csv: no column '" << c << "' to sort by\n";
                return kExitUsage;
            }
            cols.push_back(i);
            dirs.push_back(dir);
        }
        table.Sort(static_cast<unsigned short>(cols.size()), cols.data(), dirs.data());
    }
    const std::string sep(1, d);
    for (size_t k = 0; k < names.size(); ++k) out << (k ? sep : "") << names[k];
    out << "\n";
    for (UtTableRow& row : rows) {
        for (long k = 0; k < row.count(); ++k) {
            std::string text = row[k].GetUtf8String(0);
            if (static_cast<size_t>(k) < pointFormColumn.size() && pointFormColumn[static_cast<size_t>(k)] && IsNumber(text)) {
                std::replace(text.begin(), text.end(), '.', ',');
            }
            out << (k ? sep : "") << text;
        }
        out << "\n";
    }
    return kExitOk;
}

}  // namespace kbase_tool
