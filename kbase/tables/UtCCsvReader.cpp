// UtCCsvReader.
#include "kbase/tables/UtCCsvReader.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "basert/locale.h"
#include "kbase/tables/internal/bit_masks.h"
#include "kbase/tables/internal/line_source.h"
#include "kbase/tables/internal/numbers.h"
#include "kbase/tables/internal/record_cutter.h"

using kbase_tables_internal::ByteMask;
using kbase_tables_internal::LineSource;
using kbase_tables_internal::LowestBit;
using kbase_tables_internal::RecordCutter;
using kbase_tables_internal::TextToDouble;
using kbase_tables_internal::TextToInt64;

namespace {

constexpr char kCtrlZ = 0x1A;
constexpr int kTitleProbeLines = 1000;
constexpr int kDelimiterProbeLines = 20;
constexpr uint64_t kProgressBytes = uint64_t{1} << 16;
// The head that DetectFromHead looks at, and the part of it the delimiter is guessed from.
constexpr size_t kHeadBytes = size_t{1} << 18;  // inside the first block read
constexpr size_t kGuessBytes = size_t{1} << 16;
constexpr int kGuessRecords = 50;

// The decimal-comma reading: with the user's separator taken as the point, then with every ','
// as the point.
bool ToDoubleWithComma(const char* p, size_t n, eUtEncodingType e, double& v) {
    std::string t(p, n);
    const char sep = OsUserGetActDecimalSeparator();
    if (sep != '.' && sep != ',') {
        std::string s = t;
        std::replace(s.begin(), s.end(), sep, '.');
        if (TextToDouble(s.c_str(), s.size(), e, v)) return true;
    }
    std::replace(t.begin(), t.end(), ',', '.');
    return TextToDouble(t.c_str(), t.size(), e, v);
}

// The read state that a status of the source leaves.
UtCCsvReader::TReadState StateOf(LineSource::Status s) {
    switch (s) {
        case LineSource::Status::kLine:
            return UtCCsvReader::eReadOk;
        case LineSource::Status::kEnd:
            return UtCCsvReader::eReadEnd;
        case LineSource::Status::kTooLong:
            return UtCCsvReader::eReadLineTooLong;
        case LineSource::Status::kNoMemory:
            return UtCCsvReader::eReadNoMemory;
        case LineSource::Status::kReadError:
            break;
    }
    return UtCCsvReader::eReadError;
}

// How well a delimiter cuts a sample: the most common field count above 1 and on how many
// records it occurs.
struct Fit {
    int records = 0;
    int fields = 0;
    bool BetterThan(const Fit& o) const { return records != o.records ? records > o.records : fields > o.fields; }
};

// When quoted, a record whose quotes the candidate cuts through (text after a closing quote, a
// quote inside a field) does not count: "Wand";"1,5" cut at ',' gives as many fields as at ';'.
Fit FitOf(const char* sample, size_t n, char delimiter, bool quoted, bool complete) {
    std::string copy(sample, n);  // cutting writes into the bytes
    RecordCutter cutter;
    cutter.SetRules(delimiter, quoted, quoted);
    std::vector<int> counts;
    size_t at = 0;
    for (int records = 0; at < n && records < kGuessRecords; ++records) {
        cutter.Restart();
        RecordCutter::Result r = cutter.Cut(copy.data() + at, n - at, complete);
        if (r == RecordCutter::Result::kNeedMore) {
            if (records > 0) break;  // cut short by the end of the sample
            copy.assign(sample, n);  // the only record: taken as it is, cut afresh
            cutter.Forget();
            cutter.Restart();
            r = cutter.Cut(copy.data() + at, n - at, true);
        }
        at += cutter.Consumed();
        if (r == RecordCutter::Result::kEmpty) {
            --records;
            continue;
        }
        if (!(quoted && cutter.Irregular())) counts.push_back(cutter.FieldCount());
    }
    std::sort(counts.begin(), counts.end());
    Fit best;
    for (size_t i = 0; i < counts.size();) {
        size_t j = i;
        while (j < counts.size() && counts[j] == counts[i]) ++j;
        const Fit f{static_cast<int>(j - i), counts[i]};
        if (counts[i] > 1 && f.BetterThan(best)) best = f;
        i = j;
    }
    return best;
}

char GuessIn(const char* sample, size_t n, bool quoted, bool complete) {
    static const char kCandidates[] = {'\t', ',', ';', '|', ' '};  // the order of ties
    if (sample == nullptr) return 0;
    char chosen = 0;
    Fit best;
    for (char c : kCandidates) {
        const Fit f = FitOf(sample, n, c, quoted, complete);
        if (f.BetterThan(best)) {
            best = f;
            chosen = c;
        }
    }
    return chosen;
}

}  // namespace

UtCCsvReader::UtCCsvReader(const UtCString& fileName)
    : fileName_(fileName),
      source_(std::make_unique<LineSource>()),
      cutter_(std::make_unique<RecordCutter>()),
      ownLine_(1, '\0') {
    line_ = ownLine_.data();
    if (!source_->Open(fileName.GetUtf8String(0).c_str())) {
        state_ = eReadNotOpen;
        return;
    }
    fileSize_ = source_->Size();
    if (source_->HadMark()) fileEncoding_ = eUtEncodingTypeUtf8;
}

UtCCsvReader::UtCCsvReader(std::FILE* stream, const UtCString& name)
    : fileName_(name),
      source_(std::make_unique<LineSource>()),
      cutter_(std::make_unique<RecordCutter>()),
      ownLine_(1, '\0') {
    line_ = ownLine_.data();
    if (!source_->Attach(stream)) {
        state_ = stream == nullptr ? eReadNotOpen : eReadError;
        return;
    }
    fileSize_ = source_->Size();
    if (source_->HadMark()) fileEncoding_ = eUtEncodingTypeUtf8;
}

UtCCsvReader::~UtCCsvReader() = default;

bool UtCCsvReader::IsOpen() const { return source_->IsOpen(); }

uint64_t UtCCsvReader::GetFilePosition() const { return source_->Position(); }

void UtCCsvReader::ScanProgress(uint64_t, uint64_t) {}

// ---- reading lines --------------------------------------------------------------------------------

bool UtCCsvReader::ReadLine() {
    if (!source_->IsOpen() || dataEnded_) return false;
    for (;;) {
        char* line = nullptr;
        size_t length = 0;
        const LineSource::Status s = source_->Next(line, length);
        if (s != LineSource::Status::kLine) {
            state_ = StateOf(s);
            return false;
        }
        ++lines_;
        if (length == 0) continue;
        if (line[0] == kCtrlZ && !disableZ_) {
            dataEnded_ = true;
            state_ = eReadEnd;
            return false;
        }
        line_ = line;
        lineLength_ = length;
        fieldCount_ = 0;
        recordLine_ = lines_;
        return true;
    }
}

bool UtCCsvReader::FetchMore() {
    const LineSource::Status s = source_->More();
    if (s == LineSource::Status::kLine || s == LineSource::Status::kEnd) return true;
    state_ = StateOf(s);
    return false;
}

// Reads the next non-empty record with the cutter, in the current mode; line_ is its start and
// the cutter holds its fields.
bool UtCCsvReader::ReadNextRecord() {
    fieldCount_ = 0;
    if (!source_->IsOpen() || dataEnded_) return false;
    cutter_->SetRules(delimiter_, quoted_);
    cutter_->Restart();
    for (;;) {
        if (source_->Epoch() != sourceEpoch_) {
            cutter_->Forget();
            sourceEpoch_ = source_->Epoch();
        }
        const size_t n = source_->Available();
        if (n == 0) {
            if (source_->AtEnd()) {
                if (state_ != eReadUnclosedQuote) state_ = eReadEnd;
                return false;
            }
            if (!FetchMore()) return false;
            continue;
        }
        char* p = source_->Data();
        if (cutter_->Scanned() == 0 && p[0] == kCtrlZ && !disableZ_) {
            dataEnded_ = true;
            state_ = eReadEnd;
            return false;
        }
        const RecordCutter::Result r = cutter_->Cut(p, n, source_->AtEnd());
        if (r == RecordCutter::Result::kNeedMore) {
            if (cutter_->Scanned() > source_->MaxLine()) {
                state_ = eReadLineTooLong;
                return false;
            }
            if (!FetchMore()) return false;
            continue;
        }
        source_->Consume(cutter_->Consumed());
        ++lines_;
        if (r == RecordCutter::Result::kEmpty) {
            cutter_->Restart();
            continue;
        }
        recordLine_ = lines_;
        lines_ += cutter_->InnerBreaks();
        line_ = p;
        lineLength_ = cutter_->TextEnd();
        fieldCount_ = cutter_->FieldCount();
        spans_ = cutter_->Spans();
        if (cutter_->Unclosed()) state_ = eReadUnclosedQuote;
        return true;
    }
}

int UtCCsvReader::ReadRecord() {
    if (!tokenStart_.empty()) std::fill(tokenStart_.begin(), tokenStart_.end(), -1);
    return ReadNextRecord() ? fieldCount_ : -1;
}


bool UtCCsvReader::Rewind() {
    // A stream that cannot seek (a pipe) is left where it is: nothing read is lost.
    if (source_->IsOpen() && !source_->CanRewind()) return false;
    dataEnded_ = false;
    fieldCount_ = 0;
    lines_ = 0;
    recordLine_ = 0;
    ownLine_.assign(1, '\0');
    line_ = ownLine_.data();
    lineLength_ = 0;
    std::fill(tokenStart_.begin(), tokenStart_.end(), -1);
    if (!source_->Rewind()) {
        if (state_ == eReadOk || state_ == eReadEnd) state_ = source_->IsOpen() ? eReadError : eReadNotOpen;
        return false;
    }
    state_ = eReadOk;
    return true;
}

bool UtCCsvReader::SetToFirstRow(bool skipTitleLines) {
    if (!Rewind()) return false;
    for (uint64_t i = 0; skipTitleLines && i < titleLines_; ++i) {
        if (!ReadRow()) break;
    }
    line_ = ownLine_.data();
    lineLength_ = 0;
    fieldCount_ = 0;
    return true;
}

// Cuts the current line: token 0 at offset 0, then a token wherever a character that is not the
// delimiter follows one, whose last delimiter becomes the terminator of the token before. Stops
// recording at limit tokens (limit < 0: no limit). Returns the number of tokens.
int UtCCsvReader::CutTokens(int limit, int* starts) const {
    char* p = line_;
    const size_t n = lineLength_;
    const char d = delimiter_;
    if (starts != nullptr) starts[0] = 0;
    int found = 1;
    if (limit >= 0 && limit < 2) return found;
    size_t i0 = 0;
    while (i0 < n && p[i0] == d) ++i0;
    if (i0 == n) i0 = 0;  // a line of delimiters only: token 0 is all of it
    // The delimiters after token 0 are found 64 bytes at a time as bit masks; each run of them
    // that a non-delimiter follows ends a token (at its last delimiter) and starts the next.
    bool inRun = false;
    bool full = false;
    for (size_t base = i0 + 1; base < n && !full; base += 64) {
        const size_t len = n - base < 64 ? n - base : 64;
        uint64_t delimiters = ByteMask(p + base, len, d);
        uint64_t others = ~delimiters & (len == 64 ? ~uint64_t{0} : (uint64_t{1} << len) - 1);
        for (;;) {
            if (!inRun) {
                if (delimiters == 0) break;
                inRun = true;
                others &= ~uint64_t{0} << LowestBit(delimiters);
            }
            if (others == 0) break;  // the run goes on into the next block, or to the end
            const unsigned e = LowestBit(others);
            const size_t m = base + e;
            inRun = false;
            p[m - 1] = '\0';
            if (limit >= 0 && found >= limit) {
                full = true;
                break;
            }
            if (starts != nullptr) starts[found] = static_cast<int>(m);
            ++found;
            delimiters &= ~uint64_t{0} << e;
            others &= ~(uint64_t{1} << e);
        }
    }
    if (n > 0 && p[n - 1] == d) p[n - 1] = '\0';
    return found;
}

bool UtCCsvReader::ParseNextRow(bool all) {
    const int columns = GetColCount();
    if (columns == 0 && tokenStart_.empty()) return false;
    if (tokenStart_.size() < static_cast<size_t>(columns)) tokenStart_.resize(static_cast<size_t>(columns), -1);
    int limit = columns;
    if (!all && maxParseIndex_ < limit) limit = maxParseIndex_;
    if (limit < 0) limit = 0;
    std::fill(tokenStart_.begin(), tokenStart_.end(), -1);
    if (quoted_) {
        if (!ReadNextRecord()) return false;
        const int found = std::min(fieldCount_, static_cast<int>(tokenStart_.size()));
        for (int i = 0; i < found && i < limit; ++i) tokenStart_[static_cast<size_t>(i)] = static_cast<int>(cutter_->FieldStart(i));
        return fieldCount_ >= limit;
    }
    if (!ReadLine()) return false;
    const int found = CutTokens(limit, tokenStart_.data());
    return found >= limit;
}

bool UtCCsvReader::SkipNextRow() {
    std::fill(tokenStart_.begin(), tokenStart_.end(), -1);
    return ReadRow();
}

const UtCString& UtCCsvReader::GetToken(int i) {
    // Assignment keeps the target's encoding, so the result string takes the file's first.
    const eUtEncodingType e =
        fileEncoding_ == eUtEncodingTypeSystemDefault ? UtCString::systemEncodingType() : fileEncoding_;
    if (token_.encodingType() != e) {
        token_.Empty();
        token_.ChangeEncodingType(e);
    }
    token_ = UtCString(GetTokenPtr(i), e, e);
    return token_;
}

bool UtCCsvReader::GetTokenDouble(int i, double& value) {
    const char* p = GetTokenPtr(i);
    const size_t n = std::strlen(p);
    value = 0.0;
    if (TextToDouble(p, n, fileEncoding_, value)) return true;
    return std::memchr(p, ',', n) != nullptr && ToDoubleWithComma(p, n, fileEncoding_, value);
}

void UtCCsvReader::SetMLine(const char* text) {
    if (text == nullptr) text = "";
    const size_t n = std::strlen(text);
    ownLine_.assign(text, text + n + 1);
    line_ = ownLine_.data();
    lineLength_ = n;
    fieldCount_ = 0;
    std::fill(tokenStart_.begin(), tokenStart_.end(), -1);
}

void UtCCsvReader::SetMTokenStartIndex(const std::vector<int>& starts) {
    tokenStart_ = starts;
    for (int& s : tokenStart_) {
        if (s < 0 || static_cast<size_t>(s) > lineLength_) s = -1;
    }
}

// ---- classifying ------------------------------------------------------------------------------

UtCCsvReader::TColumnMasks UtCCsvReader::ClassifyField(const char* p, size_t n, eUtEncodingType e, bool* comma) {
    using kbase_tables_internal::Shape;
    TColumnMasks m;
    long long whole = 0;
    double real = 0.0;
    // The common fields are decided in one pass; the others read as the string would.
    const Shape shape = kbase_tables_internal::QuickShape(p, n, whole);
    const bool isWhole = shape == Shape::kWhole || (shape == Shape::kOther && TextToInt64(p, n, e, whole));
    if (isWhole) {
        // Taken as an unsigned 32-bit value, so negative numbers count as large ones.
        if (static_cast<uint32_t>(whole) > 255) {
            m.implicitMask |= eTypeLargeInteger;
            m.explicitMask |= eTypeLargeInteger | eTypeReal | eTypeText;
        } else {
            m.implicitMask |= eTypeSmallInteger;
            m.explicitMask |= eTypeSmallInteger | eTypeLargeInteger | eTypeReal | eTypeText;
        }
        return m;
    }
    if (shape == Shape::kReal || (shape == Shape::kOther && TextToDouble(p, n, e, real))) {
        m.implicitMask |= eTypeReal;
        m.explicitMask |= eTypeReal | eTypeText;
        return m;
    }
    // A ',' up to where a token's string would end (its first NUL), in one pass: fields are short.
    bool hasComma = false;
    for (size_t i = 0; i < n; ++i) {
        if (p[i] == '\0') {
            n = i;
            break;
        }
        if (p[i] == ',') hasComma = true;
    }
    if (!hasComma) {
        m.implicitMask |= eTypeText;
        m.explicitMask |= eTypeText;
    } else if (ToDoubleWithComma(p, n, e, real)) {
        if (comma != nullptr) *comma = true;
        m.implicitMask |= eTypeReal;
        m.explicitMask |= eTypeReal | eTypeText;
    }
    // A ',' token that is no number either adds no kind at all, not even text: kept on purpose.
    return m;
}

UtCCsvReader::TColumnMasks UtCCsvReader::CalcTypeMask(const UtCString& token) {
    if (token.isUtf16EncodingType()) {
        const std::string narrow = token.GetAnsiString();
        return ClassifyField(narrow.c_str(), narrow.size(), UtCString::systemEncodingType(), &decimalComma_);
    }
    size_t n = 0;
    const char* p = kbase_tables_internal::Bytes(token, n);
    return ClassifyField(p, n, token.encodingType(), &decimalComma_);
}

UtCCsvReader::TColumnMasks UtCCsvReader::ClassifyToken(const UtCString& token) { return CalcTypeMask(token); }

bool UtCCsvReader::FieldToDouble(const char* p, size_t n, eUtEncodingType e, double& value) {
    return TextToDouble(p, n, e, value);
}

bool UtCCsvReader::IsTitleLine(const UtCStringList& tokens) const {
    bool any = false;
    for (long i = 0; i < tokens.count(); ++i) {
        const UtCString& t = tokens[i];
        if (t.IsEmpty()) continue;
        any = true;
        std::string narrow;
        size_t n = 0;
        const char* p = nullptr;
        eUtEncodingType e = t.encodingType();
        if (t.isUtf16EncodingType()) {
            narrow = t.GetAnsiString();
            p = narrow.c_str();
            n = narrow.size();
            e = UtCString::systemEncodingType();
        } else {
            p = kbase_tables_internal::Bytes(t, n);
        }
        bool comma = false;
        const TColumnMasks m = ClassifyField(p, n, e, &comma);
        if ((m.implicitMask & (eTypeLargeInteger | eTypeSmallInteger | eTypeReal)) != 0) return false;
    }
    return any;
}

char UtCCsvReader::AutoColDel(const UtCString& line) {
    static const char kCandidates[] = {'\t', ' ', ',', ';'};  // ascending, the order of ties
    uint64_t counts[4] = {0, 0, 0, 0};
    const int n = line.GetLength();
    const bool wide = line.isUtf16EncodingType();
    // Candidates are ASCII: in 8-bit text and UTF-8 they are single bytes that no multi-byte
    // character contains.
    std::u16string units;
    std::string narrow;
    size_t length = 0;
    if (wide) {
        units.assign(line.uptr(), static_cast<size_t>(n));
        length = units.size();
    } else {
        size_t m = 0;
        const char* p = kbase_tables_internal::Bytes(line, m);
        narrow.assign(p, m);
        length = m;
    }
    auto at = [&](size_t i) -> int { return wide ? static_cast<int>(units[i]) : static_cast<unsigned char>(narrow[i]); };
    bool inside = false;  // between a quote and the next one, in quoted mode
    for (size_t i = 0; i < length; ++i) {
        const int c = at(i);
        if (quoted_ && c == '"') inside = !inside;
        if (inside) continue;
        for (int k = 0; k < 4; ++k) {
            if (c != kCandidates[k]) continue;
            // A run of blanks counts once.
            const bool blank = c == ' ' || c == '\t';
            if (!(blank && i > 0 && at(i - 1) == c)) ++counts[k];
        }
    }
    int best = -1;
    for (int k = 0; k < 4; ++k) {
        if (counts[k] > (best < 0 ? 0 : counts[best])) best = k;
    }
    if (best >= 0) delimiter_ = kCandidates[best];
    return delimiter_;
}

std::vector<int> UtCCsvReader::GetIndicesImplicitFor(TTypeInfo kind, bool exactly) const {
    std::vector<int> out;
    for (size_t i = 0; i < masks_.size(); ++i) {
        const uint32_t m = masks_[i].implicitMask;
        if (exactly ? m == kind : (m & kind) != 0) out.push_back(static_cast<int>(i));
    }
    return out;
}

std::vector<int> UtCCsvReader::GetIndicesExplicitFor(TTypeInfo kind, bool exactly) const {
    std::vector<int> out;
    for (size_t i = 0; i < masks_.size(); ++i) {
        const uint32_t m = masks_[i].explicitMask;
        if (exactly ? m == kind : (m & kind) != 0) out.push_back(static_cast<int>(i));
    }
    return out;
}

// ---- rescanning -------------------------------------------------------------------------------

void UtCCsvReader::RowFields(std::vector<std::pair<const char*, size_t>>& out) {
    out.clear();
    if (quoted_) {
        for (int i = 0; i < fieldCount_; ++i) out.emplace_back(line_ + cutter_->FieldStart(i), cutter_->FieldLength(i));
        return;
    }
    rowStarts_.resize(lineLength_ / 2 + 2);
    const int found = CutTokens(-1, rowStarts_.data());
    for (int i = 0; i < found; ++i) {
        const char* p = line_ + rowStarts_[static_cast<size_t>(i)];
        out.emplace_back(p, std::strlen(p));
    }
}

uint64_t UtCCsvReader::CountTitleLines(const std::function<bool(FieldList&)>& nextRow) const {
    const eUtEncodingType e = fileEncoding_;
    uint64_t titles = 0;
    bool other = false;
    FieldList fields;
    for (int probed = 0; probed < kTitleProbeLines && nextRow(fields); ++probed) {
        UtCStringList tokens;
        for (const auto& f : fields) tokens.Add(UtCString(f.first, static_cast<int>(f.second), e, e));
        if (!IsTitleLine(tokens)) {
            other = true;
            break;
        }
        ++titles;
    }
    return other ? titles : std::min<uint64_t>(titles, 1);
}

char UtCCsvReader::GuessDelimiter(const char* sample, size_t n, bool quoted) {
    return GuessIn(sample, n, quoted, false);
}

bool UtCCsvReader::DetectFromHead(bool titles) {
    if (!source_->IsOpen() || dataEnded_) return false;
    const LineSource::Status s = source_->Peek(kHeadBytes);
    if (s != LineSource::Status::kLine) {
        state_ = StateOf(s);
        return false;
    }
    const size_t n = std::min(source_->Available(), kHeadBytes);
    if (n == 0) return false;
    const bool complete = source_->AtEnd() && n == source_->Available();
    const char* data = source_->Data();
    const char d = GuessIn(data, std::min(n, kGuessBytes), quoted_, complete && n <= kGuessBytes);
    if (d != 0) delimiter_ = d;
    if (!titles) return true;
    std::string head(data, n);  // cutting writes into the bytes, which ReadRecord reads later
    RecordCutter cutter;
    cutter.SetRules(delimiter_, quoted_);
    size_t at = 0;
    titleLines_ = CountTitleLines([&](FieldList& fields) {
        while (at < n) {
            char* p = head.data() + at;
            if (p[0] == kCtrlZ && !disableZ_) return false;
            cutter.Restart();
            const RecordCutter::Result r = cutter.Cut(p, n - at, complete);
            if (r == RecordCutter::Result::kNeedMore) return false;
            at += cutter.Consumed();
            if (r == RecordCutter::Result::kEmpty) continue;
            fields.clear();
            for (int i = 0; i < cutter.FieldCount(); ++i) fields.emplace_back(p + cutter.FieldStart(i), cutter.FieldLength(i));
            return true;
        }
        return false;
    });
    return true;
}

// ---- rescanning -------------------------------------------------------------------------------

bool UtCCsvReader::Reset(bool detect) {
    if (!Rewind()) return false;
    FieldList fields;
    const eUtEncodingType e = fileEncoding_;
    if (detect) {
        if (quoted_) {
            // The first bytes, cut as records: a vote of lines would count what is inside quotes.
            const LineSource::Status s = source_->Peek(kGuessBytes);
            if (s != LineSource::Status::kLine) return false;
            const size_t n = std::min(source_->Available(), kGuessBytes);
            const char d = GuessIn(source_->Data(), n, true, source_->AtEnd() && n == source_->Available());
            if (d != 0) delimiter_ = d;
        } else {
            // A vote of AutoColDel over the first lines: a title line alone ("Table: Area") can
            // easily point at the wrong candidate.
            const char kept = delimiter_;
            int votes[256] = {};
            for (int probed = 0; probed < kDelimiterProbeLines && ReadLine(); ++probed) {
                delimiter_ = kept;
                ++votes[static_cast<unsigned char>(AutoColDel(UtCString(line_, static_cast<int>(lineLength_), e, e)))];
            }
            delimiter_ = kept;
            for (char c : {'\t', ' ', ',', ';'}) {
                if (votes[static_cast<unsigned char>(c)] > votes[static_cast<unsigned char>(delimiter_)]) delimiter_ = c;
            }
            if (!Rewind()) return false;
        }
        titleLines_ = CountTitleLines([&](FieldList& out) {
            if (!ReadRow()) return false;
            RowFields(out);
            return true;
        });
        if (state_ != eReadOk && state_ != eReadEnd && state_ != eReadUnclosedQuote) return false;
    }

    if (!Rewind()) return false;
    masks_.clear();
    decimalComma_ = false;
    dataRows_ = 0;
    size_t columns = 0;
    for (uint64_t i = 0; i < titleLines_ && ReadRow(); ++i) {
        if (i + 1 == titleLines_) {
            RowFields(fields);
            columns = fields.size();
        }
    }
    uint64_t nextReport = kProgressBytes;
    while (ReadRow()) {
        RowFields(fields);
        if (fields.size() > masks_.size()) masks_.resize(fields.size());
        for (size_t t = 0; t < fields.size(); ++t) {
            const TColumnMasks m = ClassifyField(fields[t].first, fields[t].second, e, &decimalComma_);
            masks_[t].implicitMask |= m.implicitMask;
            masks_[t].explicitMask |= m.explicitMask;
        }
        ++dataRows_;
        if (source_->Position() >= nextReport) {
            ScanProgress(source_->Position(), fileSize_);
            nextReport = source_->Position() + kProgressBytes;
        }
    }
    if (state_ != eReadEnd && state_ != eReadUnclosedQuote) return false;
    ScanProgress(source_->Position(), fileSize_);
    if (columns > masks_.size()) masks_.resize(columns);
    tokenStart_.assign(masks_.size(), -1);
    return SetToFirstRow(true);
}
