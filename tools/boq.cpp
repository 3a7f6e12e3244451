// The boq job: read the takeoff, total the quantities per OZ, nest the ranges, write the bill.
#include "boq.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>

#include "codepages.h"
#include "gaeb_jobs.h"
#include "io.h"
#include "kbase/gaeb/UtGAEB.h"
#include "kbase/tables/UtCCsvReader.h"
#include "kbase/tables/UtTable.h"

namespace kbase_tool {

namespace {

enum Column { kOZ, kBereich, kBereichstitel, kKurztext, kLangtext, kMenge, kME, kColumns };
const char* const kKeys[kColumns] = {"oz",    "bereich", "bereichstitel", "kurztext", "langtext",
                                     "menge", "me"};
const bool kRequired[kColumns] = {true, false, false, true, false, true, true};

// Rows of OZ and quantity are totalled by SumColumn whenever this many are waiting, so that the
// table holds about one row per position.
constexpr uint64_t kBlockRows = 1 << 16;
// Partial totals keep nine decimals: exact for every quantity a takeoff writes.
constexpr const char* kPartialFormat = "%.9f";

std::string Lower(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

std::string Trim(std::string_view s) {
    const size_t a = s.find_first_not_of(" \t");
    if (a == std::string_view::npos) return std::string();
    const size_t b = s.find_last_not_of(" \t");
    return std::string(s.substr(a, b - a + 1));
}

// An OZ or range number from its field. A dotted one ("01.02.0010") loses the blanks around it; a
// number without dots keeps its leading blanks, which belong to it: GAEB right-aligns each level
// of such a number in its width (" 1 1   1").
std::string Number(std::string_view s) {
    std::string t = Trim(s);
    if (t.empty() || t.find('.') != std::string::npos) return t;
    const size_t b = s.find_last_not_of(" \t");
    return std::string(s.substr(0, b + 1));
}

bool Dotted(const std::string& number) {
    return number.find('.') != std::string::npos;
}

bool IsUtf8(std::string_view s) {
    for (size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        const size_t n = c < 0x80         ? 1
                         : (c >> 5) == 6  ? 2
                         : (c >> 4) == 14 ? 3
                         : (c >> 3) == 30 ? 4
                                          : 0;
        if (n == 0 || i + n > s.size()) return false;
        for (size_t k = 1; k < n; ++k) {
            if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return false;
        }
        i += n;
    }
    return true;
}

// A quantity: an optional sign, digits with at most one decimal point or comma. The text with a
// point, or empty when it is no number.
std::string QuantityText(std::string_view s) {
    std::string t = Trim(s);
    size_t digits = 0, separators = 0;
    for (size_t i = 0; i < t.size(); ++i) {
        char& c = t[i];
        if (c >= '0' && c <= '9') {
            ++digits;
        } else if (c == '.' || c == ',') {
            ++separators;
            c = '.';
        } else if (!((c == '-' || c == '+') && i == 0)) {
            return std::string();
        }
    }
    return digits > 0 && separators <= 1 ? t : std::string();
}

std::vector<std::string> SplitOZ(const std::string& oz) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t dot; (dot = oz.find('.', start)) != std::string::npos; start = dot + 1) {
        parts.push_back(oz.substr(start, dot - start));
    }
    parts.push_back(oz.substr(start));
    return parts;
}

std::string OutlineText(const std::vector<size_t>& widths) {
    std::string s;
    for (size_t w : widths) s += (s.empty() ? "" : ".") + std::to_string(w);
    return s;
}

struct PositionInfo {
    std::string kurztext, langtext, me;  // in the takeoff's encoding
    std::string range;                   // the range named on its lines (an OZ without dots)
    uint64_t line = 0;                   // its first line
    bool quantity = false;               // some line gave a quantity
};

struct RangeInfo {
    std::string title;
    uint64_t line = 0;
};

struct Job {
    const BoqOptions& o;
    std::ostream& out;
    std::ostream& err;
    const std::string who = "kbase boq";
    std::unique_ptr<UtCCsvReader> reader;
    FILE* stream = nullptr;
    bool ownStream = false;
    int encoding = 65001;
    std::string columnName[kColumns];
    int column[kColumns] = {-1, -1, -1, -1, -1, -1, -1};
    std::vector<size_t> outline;
    uint64_t outlineLine = 0;
    std::map<std::string, PositionInfo> positions;
    std::map<std::string, RangeInfo> ranges;
    UtTable totals;
    uint64_t waiting = 0;

    ~Job() {
        reader.reset();
        if (ownStream) std::fclose(stream);
    }
    int Fail(int code, const std::string& message) {
        err << who << ": " << message << "\n";
        return code;
    }
    int FailLine(uint64_t line, const std::string& message) {
        return Fail(kExitContent, Name() + " line " + std::to_string(line) + ": " + message);
    }
    std::string Name() const {
        return o.input == "-" ? std::string("standard input,") : "'" + o.input + "'";
    }
};

// ---- steps ----------------------------------------------------------------------------------

int ParseOptions(Job& job) {
    for (int c = 0; c < kColumns; ++c) job.columnName[c] = kBillColumns[c];
    for (const std::string& m : job.o.map) {
        const size_t eq = m.find('=');
        const std::string key = Lower(Trim(m.substr(0, eq == std::string::npos ? 0 : eq)));
        int c = 0;
        while (c < kColumns && key != kKeys[c]) ++c;
        if (eq == std::string::npos || c == kColumns) {
            return job.Fail(
                kExitUsage,
                "--map needs KEY=NAME with KEY one of oz, kurztext, langtext, menge, me, "
                "bereich, bereichstitel, not '" +
                    m + "'");
        }
        job.columnName[c] = m.substr(eq + 1);
    }
    if (!job.o.encoding.empty() && !ParseCodePage(job.o.encoding, job.encoding)) {
        return job.Fail(kExitUsage,
                        "unknown code page '" + job.o.encoding + "' (see kbase recode --list)");
    }
    if (!job.o.delimiter.empty() && job.o.delimiter != "tab" && job.o.delimiter.size() != 1) {
        return job.Fail(kExitUsage, "--delimiter needs one character or 'tab'");
    }
    return kExitOk;
}

int OpenTakeoff(Job& job) {
    {
        InputFile check;
        if (const int rc = check.Open(job.o.input, job.who, job.err); rc != kExitOk) return rc;
    }
    if (job.o.input == "-") {
        job.stream = stdin;
    } else {
        job.stream = std::fopen(job.o.input.c_str(), "rb");
        if (job.stream == nullptr) {
            return job.Fail(kExitIo, "cannot open '" + job.o.input + "': " + std::strerror(errno));
        }
        job.ownStream = true;
    }
    job.reader = std::make_unique<UtCCsvReader>(
        job.stream, UtCString(job.o.input.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
    UtCCsvReader& r = *job.reader;
    r.SetQuoted(true);
    if (!r.DetectFromHead(false) && r.GetReadState() != UtCCsvReader::eReadEnd &&
        r.GetReadState() != UtCCsvReader::eReadOk) {
        return job.Fail(kExitIo, "cannot read " + job.Name());
    }
    if (!job.o.delimiter.empty())
        r.SetColDelimiter(job.o.delimiter == "tab" ? '\t' : job.o.delimiter[0]);
    if (r.GetColDelimiter() == 0) r.SetColDelimiter(',');
    return kExitOk;
}

// A field in UTF-8 (the takeoff's encoding converted), or false when it is no text of it.
bool FieldText(Job& job, int col, std::string& out) {
    out.clear();
    if (col < 0) return true;
    const std::string_view raw(job.reader->GetFieldPtr(col), job.reader->GetFieldLength(col));
    if (job.encoding == 65001) {
        if (!IsUtf8(raw) || raw.find('\0') != std::string_view::npos) return false;
        out.assign(raw);
        return true;
    }
    if (raw.find('\0') != std::string_view::npos) return false;
    out = UtCString(std::string(raw).c_str(), static_cast<eUtEncodingType>(job.encoding),
                    eUtEncodingTypeUtf8)
              .GetUtf8String();
    return true;
}

// The columns named by the header's fields.
void FindColumns(Job& job, const std::vector<std::string>& names) {
    for (int c = 0; c < kColumns; ++c) job.column[c] = -1;
    for (size_t i = 0; i < names.size(); ++i) {
        for (int c = 0; c < kColumns; ++c) {
            if (job.column[c] < 0 && Lower(Trim(names[i])) == Lower(Trim(job.columnName[c])))
                job.column[c] = static_cast<int>(i);
        }
    }
}

bool HasRequired(const Job& job) {
    for (int c = 0; c < kColumns; ++c) {
        if (kRequired[c] && job.column[c] < 0) return false;
    }
    return true;
}

// A guessed delimiter that leaves the header in one piece was misled by the data (long texts full
// of ';'): the delimiter that cuts the header into the required names is the one.
void DelimiterFromHeader(Job& job, const std::string& header) {
    for (const char d : {',', ';', '\t', '|'}) {
        std::vector<std::string> names;
        size_t start = 0;
        for (size_t at; (at = header.find(d, start)) != std::string::npos; start = at + 1)
            names.push_back(header.substr(start, at - start));
        names.push_back(header.substr(start));
        FindColumns(job, names);
        if (HasRequired(job)) {
            job.reader->SetColDelimiter(d);
            return;
        }
    }
    FindColumns(job, {header});
}

int ReadHeader(Job& job) {
    const int n = job.reader->ReadRecord();
    if (n < 0) return job.Fail(kExitContent, job.Name() + " has no header line");
    const uint64_t line = job.reader->GetRecordNumber();
    std::vector<std::string> names(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        if (!FieldText(job, i, names[static_cast<size_t>(i)]))
            return job.FailLine(line, "the header is not text of the takeoff's code page");
    }
    FindColumns(job, names);
    if (!HasRequired(job) && n == 1 && job.o.delimiter.empty()) DelimiterFromHeader(job, names[0]);
    for (int c = 0; c < kColumns; ++c) {
        if (kRequired[c] && job.column[c] < 0) {
            return job.FailLine(line, "no column '" + job.columnName[c] + "' (name it with --map " +
                                          kKeys[c] + "=NAME)");
        }
    }
    return kExitOk;
}

void SumWaiting(Job& job) {
    const long sumCol = 1;
    UtCStringList formats;
    formats.Add(UtCString(kPartialFormat));
    job.totals.SumColumn(1, &sumCol, &formats, 0, nullptr);
    job.waiting = 0;
}

// Checks an OZ against the outline of the first one; the first sets it.
int CheckOutline(Job& job, const std::string& oz, uint64_t line) {
    const std::vector<std::string> parts = SplitOZ(oz);
    std::vector<size_t> widths;
    for (const std::string& p : parts) {
        if (p.empty() || p.find_first_of(" \t") != std::string::npos) {
            return job.FailLine(line, "OZ '" + oz + "' has an empty part or a blank");
        }
        widths.push_back(p.size());
    }
    if (job.outline.empty()) {
        job.outline = widths;
        job.outlineLine = line;
    } else if (widths != job.outline) {
        return job.FailLine(line, "OZ '" + oz + "' does not fit the outline " +
                                      OutlineText(job.outline) + " of line " +
                                      std::to_string(job.outlineLine));
    }
    return kExitOk;
}

// A range named on a line. A dotted OZ lies in the range when the range is one of its leading
// parts ("01.02" of "01.02.0010"); an OZ without dots when it begins with the range's number
// ("0101" of "01010010"), and such a range is then its own (see RangeChain). A range without dots
// is kept even without a title, since it may hold ranges of its own.
int TakeRange(Job& job, const std::string& range, const std::string& title, const std::string& oz,
              uint64_t line) {
    if (!oz.empty()) {
        const bool inside = range.size() < oz.size() && oz.compare(0, range.size(), range) == 0 &&
                            (Dotted(oz) ? oz[range.size()] == '.' : !Dotted(range));
        if (!inside) return job.FailLine(line, "OZ '" + oz + "' is not in range '" + range + "'");
    }
    if (title.empty() && Dotted(range)) return kExitOk;
    RangeInfo& r = job.ranges[range];
    if (r.line == 0) {
        r = {title, line};
    } else if (r.title.empty()) {
        r.title = title;
    } else if (!title.empty() && r.title != title) {
        return job.FailLine(
            line, "range '" + range + "' has another title than on line " + std::to_string(r.line));
    }
    return kExitOk;
}

int TakePosition(Job& job, const std::string& oz, const std::string (&f)[kColumns], uint64_t line) {
    auto [it, fresh] = job.positions.try_emplace(oz);
    PositionInfo& p = it->second;
    const std::string range = Dotted(oz) ? std::string() : Number(f[kBereich]);
    if (fresh) {
        p.kurztext = f[kKurztext];
        p.langtext = f[kLangtext];
        p.me = f[kME];
        p.range = range;
        p.line = line;
    } else {
        const char* what = p.kurztext != f[kKurztext]   ? "short text"
                           : p.langtext != f[kLangtext] ? "long text"
                           : p.me != f[kME]             ? "unit"
                           : p.range != range           ? "range"
                                                        : nullptr;
        if (what != nullptr) {
            return job.FailLine(line, "OZ '" + oz + "' has another " + what + " than on line " +
                                          std::to_string(p.line));
        }
    }
    const std::string quantity = QuantityText(f[kMenge]);
    if (quantity.empty() && !Trim(f[kMenge]).empty()) {
        return job.FailLine(line, "quantity '" + f[kMenge] + "' is no number");
    }
    if (!quantity.empty()) p.quantity = true;
    UtTableRow& row = job.totals.AddRow();
    row.AddElem(UtCString(oz.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
    row.AddElem(UtCString(quantity.empty() ? "0" : quantity.c_str(), eUtEncodingTypeUtf8,
                          eUtEncodingTypeUtf8));
    if (++job.waiting >= kBlockRows) SumWaiting(job);
    return kExitOk;
}

int ReadLines(Job& job) {
    std::string f[kColumns];
    for (;;) {
        const int n = job.reader->ReadRecord();
        if (n < 0) break;
        const uint64_t line = job.reader->GetRecordNumber();
        bool any = false;
        for (int c = 0; c < kColumns; ++c) {
            if (!FieldText(job, job.column[c], f[c])) {
                return job.FailLine(
                    line, "column '" + job.columnName[c] + "' is not " +
                              (job.encoding == 65001
                                   ? std::string("UTF-8 (give --encoding 1252?)")
                                   : "text of code page " + std::to_string(job.encoding)));
            }
            any = any || !Trim(f[c]).empty();
        }
        if (!any) continue;
        const std::string oz = Number(f[kOZ]), range = Number(f[kBereich]);
        if (oz.empty() && range.empty()) return job.FailLine(line, "no OZ");
        // A position in a range of its own has its outline checked once all ranges are known.
        if (!oz.empty() && (Dotted(oz) || range.empty())) {
            if (const int rc = CheckOutline(job, oz, line); rc != kExitOk) return rc;
        }
        if (!range.empty()) {
            // A title is kept as written (a bill read back gives its own), unless it is blank.
            const std::string title =
                Trim(f[kBereichstitel]).empty() ? std::string() : f[kBereichstitel];
            if (const int rc = TakeRange(job, range, title, oz, line); rc != kExitOk) return rc;
        }
        if (oz.empty()) continue;
        if (const int rc = TakePosition(job, oz, f, line); rc != kExitOk) return rc;
    }
    const UtCCsvReader::TReadState state = job.reader->GetReadState();
    if (state == UtCCsvReader::eReadUnclosedQuote) {
        return job.Fail(kExitContent, job.Name() + " ends inside a quoted field");
    }
    if (state != UtCCsvReader::eReadEnd && state != UtCCsvReader::eReadOk) {
        return job.Fail(kExitIo, "cannot read " + job.Name());
    }
    if (job.positions.empty()) return job.Fail(kExitContent, job.Name() + " holds no position");
    SumWaiting(job);
    return kExitOk;
}

// ---- the bill -------------------------------------------------------------------------------

// Sets a text from UTF-8; a character 1252 lacks, a text too long or holding "[end]" is an error.
template <class Set>
int SetText(Job& job, const std::string& text, const char* what, uint64_t line, Set set) {
    if (text.find("[end]") != std::string::npos)
        return job.FailLine(line, std::string(what) + " holds \"[end]\"");
    const int status = set(UtCString(text.c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
    if ((status & kGAEBTextReplaced) != 0) {
        return job.FailLine(line, std::string(what) + " holds a character that Windows-1252 lacks");
    }
    if ((status & kGAEBTextCut) != 0)
        return job.FailLine(line, std::string(what) + " is too long for a bill");
    return kExitOk;
}

void MakeOutline(Job& job, UtGAEBLVInfo* info) {
    for (size_t i = 0; i < job.outline.size(); ++i) {
        auto* level = new UtGAEBLVGlied;
        const bool last = i + 1 == job.outline.size();
        level->SetTyp(last ? "Position" : "LVStufe");
        if (!last) level->SetBez(("Stufe " + std::to_string(i + 1)).c_str());
        level->SetLaenge(static_cast<short>(job.outline[i]));
        info->AddLVGlied(level);
    }
}

int MakeInfo(Job& job, UtGAEB& bill) {
    if (!job.o.date.empty()) {
        unsigned d = 0, m = 0, y = 0;
        char tail = 0;
        if (std::sscanf(job.o.date.c_str(), "%2u.%2u.%4u%c", &d, &m, &y, &tail) != 3 || d < 1 ||
            d > 31 || m < 1 || m > 12) {
            return job.Fail(kExitUsage, "--date needs DD.MM.YYYY, not '" + job.o.date + "'");
        }
        bill.GetInfoPtr()->GetDatumPtr()->SetDate(static_cast<unsigned short>(d),
                                                  static_cast<unsigned short>(m),
                                                  static_cast<unsigned short>(y));
    }
    UtGAEBVergabe* v = bill.GetVergabePtr();
    v->SetDP(83);
    UtGAEBLVInfo* info = v->GetLVPtr()->GetLVInfoPtr();
    const std::string name = !job.o.name.empty() ? job.o.name
                             : job.o.input == "-"
                                 ? std::string("LV")
                                 : std::filesystem::path(job.o.input).stem().string();
    if (const int rc = SetText(job, name, "the bill's name", 0,
                               [&](const UtCString& s) { return info->SetName(s); });
        rc != kExitOk)
        return rc;
    if (const int rc = SetText(job, job.o.title, "the bill's title", 0,
                               [&](const UtCString& s) { return info->SetBez(s); });
        rc != kExitOk)
        return rc;
    info->SetKurzLang(1);
    return kExitOk;
}

// The innermost range of chain (range numbers, outermost first), made with its parents when
// missing; null for an empty chain. open holds the ranges of the last position, outermost first.
UtGAEBLVBereich* RangeFor(Job& job, UtGAEBLV* lv, const std::vector<std::string>& chain,
                          std::vector<UtGAEBLVBereich*>& open, std::string& failure) {
    for (size_t i = 0; i < chain.size(); ++i) {
        const std::string& oz = chain[i];
        if (i < open.size() && std::strcmp(open[i]->GetOZ(), oz.c_str()) == 0) continue;
        open.resize(i);
        auto* r = new UtGAEBLVBereich;
        (i == 0 ? static_cast<void>(lv->AddLVEntity(r)) : open[i - 1]->AddLVEntity(r));
        r->SetOZ(oz.c_str());
        const auto it = job.ranges.find(oz);
        if (it != job.ranges.end() && !it->second.title.empty()) {
            if (SetText(job, it->second.title, "the range title", it->second.line,
                        [&](const UtCString& s) { return r->SetBez(s); }) != kExitOk) {
                failure = "x";
            }
        }
        open.push_back(r);
    }
    return chain.empty() ? nullptr : open[chain.size() - 1];
}

// The ranges a position lies in, outermost first. A dotted OZ: its leading parts ("01",
// "01.02"). Otherwise the range its lines name, inside the longest range without dots whose
// number begins that one's, and so on outwards ("01" > "0101" > "01010010").
std::vector<std::string> RangeChain(const Job& job, const std::string& oz,
                                    const PositionInfo& info) {
    std::vector<std::string> chain;
    if (Dotted(oz)) {
        const std::vector<std::string> parts = SplitOZ(oz);
        std::string prefix;
        for (size_t i = 0; i + 1 < parts.size(); ++i) {
            prefix += (i == 0 ? "" : ".") + parts[i];
            chain.push_back(prefix);
        }
        return chain;
    }
    for (std::string range = info.range; !range.empty();) {
        chain.insert(chain.begin(), range);
        std::string parent;
        for (size_t n = range.size() - 1; n > 0 && parent.empty(); --n) {
            const auto it = job.ranges.find(range.substr(0, n));
            if (it != job.ranges.end() && !Dotted(it->first)) parent = it->first;
        }
        range = parent;
    }
    return chain;
}

// The outline of the positions in ranges without dots. Their levels have fixed widths, and a
// position may skip one (" 3  1" lies in range " 3" with a blank second level): every range's
// number ends on a level, and every such OZ has the length of all levels together.
struct ChainOutline {
    std::vector<size_t> ends;  // where the levels end
    size_t length = 0;         // of every OZ
    uint64_t line = 0;         // of the position that set length
};

int TakeChain(Job& job, ChainOutline& outline, const std::string& oz, const PositionInfo& info,
              const std::vector<std::string>& chain) {
    if (info.range.empty()) return kExitOk;  // checked when read
    if (outline.line == 0) {
        outline.length = oz.size();
        outline.line = info.line;
    } else if (oz.size() != outline.length) {
        return job.FailLine(info.line, "OZ '" + oz + "' is not as long as the OZ of line " +
                                           std::to_string(outline.line) + " (" +
                                           std::to_string(outline.length) + " characters)");
    }
    for (const std::string& r : chain) {
        if (std::find(outline.ends.begin(), outline.ends.end(), r.size()) == outline.ends.end())
            outline.ends.push_back(r.size());
    }
    return kExitOk;
}

// Turns the levels into widths; they must agree with the outline of dotted OZ, if any.
int FinishChainOutline(Job& job, ChainOutline& outline) {
    if (outline.line == 0) return kExitOk;
    std::sort(outline.ends.begin(), outline.ends.end());
    outline.ends.push_back(outline.length);
    std::vector<size_t> widths;
    size_t done = 0;
    for (size_t end : outline.ends) {
        widths.push_back(end - done);
        done = end;
    }
    if (job.outline.empty()) {
        job.outline = widths;
        job.outlineLine = outline.line;
    } else if (widths != job.outline) {
        return job.FailLine(outline.line, "the ranges' numbers give the outline " +
                                              OutlineText(widths) + ", not the outline " +
                                              OutlineText(job.outline) + " of line " +
                                              std::to_string(job.outlineLine));
    }
    return kExitOk;
}

double TotalOf(const UtCString& text) {
    double v = 0;
    const std::string s = text.GetUtf8String();
    std::from_chars(s.data(), s.data() + s.size(), v);
    return v;
}

// Whether some position lies in range.
bool HoldsPosition(const Job& job, const std::string& range) {
    for (auto it = job.positions.lower_bound(range);
         it != job.positions.end() && it->first.compare(0, range.size(), range) == 0; ++it) {
        const std::string& oz = it->first;
        if (oz.size() > range.size() && (!Dotted(oz) || oz[range.size()] == '.')) return true;
    }
    return false;
}

int BuildBill(Job& job, UtGAEB& bill) {
    if (const int rc = MakeInfo(job, bill); rc != kExitOk) return rc;
    for (const auto& [range, info] : job.ranges) {
        if (!HoldsPosition(job, range))
            return job.FailLine(info.line, "range '" + range + "' holds no position");
    }
    // The outline levels are known only when every position's ranges are.
    std::vector<std::vector<std::string>> chains;
    ChainOutline outline;
    const uint64_t rows = job.totals.GetRowCount();
    chains.reserve(rows);
    for (uint64_t row = 0; row < rows; ++row) {
        UtCString ozText;
        job.totals.GetElem(row, 0, ozText);
        const std::string oz = ozText.GetUtf8String();
        const PositionInfo& info = job.positions.at(oz);
        chains.push_back(RangeChain(job, oz, info));
        if (const int rc = TakeChain(job, outline, oz, info, chains.back()); rc != kExitOk)
            return rc;
    }
    if (const int rc = FinishChainOutline(job, outline); rc != kExitOk) return rc;
    MakeOutline(job, bill.GetVergabePtr()->GetLVPtr()->GetLVInfoPtr());
    UtGAEBLV* lv = bill.GetVergabePtr()->GetLVPtr();
    std::vector<UtGAEBLVBereich*> open;
    std::string failure;
    for (uint64_t row = 0; row < rows; ++row) {
        UtCString ozText, total;
        job.totals.GetElem(row, 0, ozText);
        job.totals.GetElem(row, 1, total);
        const std::string oz = ozText.GetUtf8String();
        const PositionInfo& info = job.positions.at(oz);
        UtGAEBLVBereich* range = RangeFor(job, lv, chains[row], open, failure);
        if (!failure.empty()) return kExitContent;
        auto* p = new UtGAEBPosition;
        (range != nullptr ? range->AddLVEntity(p) : lv->AddLVEntity(p));
        p->SetOZ(oz.c_str());
        p->SetMenge(TotalOf(total));
        p->SetMengeFlag(info.quantity ? 1 : 0);
        UtGAEBBeschreibung* b = p->GetBeschreibungPtr();
        if (SetText(job, info.me, "the unit", info.line,
                    [&](const UtCString& s) { return p->SetME(s); }) != kExitOk ||
            SetText(job, info.kurztext, "the short text", info.line,
                    [&](const UtCString& s) { return b->SetKurztext(s); }) != kExitOk ||
            SetText(job, info.langtext, "the long text", info.line,
                    [&](const UtCString& s) { return b->SetLangtext(s); }) != kExitOk) {
            return kExitContent;
        }
    }
    return kExitOk;
}

}  // namespace

int Boq(const BoqOptions& options, std::ostream& out, std::ostream& err) {
    Job job{options, out, err};
    int rc = ParseOptions(job);
    if (rc == kExitOk) rc = OpenTakeoff(job);
    if (rc == kExitOk) rc = ReadHeader(job);
    if (rc == kExitOk) rc = ReadLines(job);
    if (rc != kExitOk) return rc;
    UtGAEB bill(eGAEBTypeLV);
    rc = BuildBill(job, bill);
    if (rc != kExitOk) return rc;
    return WriteBill(bill, options.output, job.who, out, err);
}

}  // namespace kbase_tool
