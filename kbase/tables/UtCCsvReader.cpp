// UtCCsvReader.
#include "kbase/tables/UtCCsvReader.h"

#include <algorithm>
#include <cstring>
#include <string>

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define KBASE_CSV_SSE2 1
#endif
#if defined(_MSC_VER)
#include <intrin.h>
#endif

#include "basert/locale.h"
#include "kbase/tables/internal/line_source.h"
#include "kbase/tables/internal/numbers.h"

using kbase_tables_internal::LineSource;
using kbase_tables_internal::Parse;

namespace {

constexpr char kCtrlZ = 0x1A;
constexpr int kTitleProbeLines = 1000;
constexpr int kDelimiterProbeLines = 20;
constexpr uint64_t kProgressBytes = uint64_t{1} << 16;

bool ToDouble(const char* p, size_t n, eUtEncodingType e, double& v) {
    const Parse r = kbase_tables_internal::AsciiToDouble(p, n, v);
    if (r != Parse::kUndecided) return r == Parse::kYes;
    return UtCString(p, static_cast<int>(n), e, e).Convert(v);
}

bool ToInt64(const char* p, size_t n, eUtEncodingType e, long long& v) {
    const Parse r = kbase_tables_internal::AsciiToInt64(p, n, v);
    if (r != Parse::kUndecided) return r == Parse::kYes;
    return UtCString(p, static_cast<int>(n), e, e).Convert(v);
}

// The decimal-comma reading: with the user's separator taken as the point, then with every ','
// as the point.
bool ToDoubleWithComma(const char* p, size_t n, eUtEncodingType e, double& v) {
    std::string t(p, n);
    const char sep = OsUserGetActDecimalSeparator();
    if (sep != '.' && sep != ',') {
        std::string s = t;
        std::replace(s.begin(), s.end(), sep, '.');
        if (ToDouble(s.c_str(), s.size(), e, v)) return true;
    }
    std::replace(t.begin(), t.end(), ',', '.');
    return ToDouble(t.c_str(), t.size(), e, v);
}

// Bit k is set when p[from + k] == d (k < len <= 64). Nothing past p[from + len) is read.
inline uint64_t DelimiterMask(const char* p, size_t from, size_t len, char d) {
    uint64_t mask = 0;
    size_t k = 0;
#if defined(KBASE_CSV_SSE2)
    const __m128i needle = _mm_set1_epi8(d);
    for (; k + 16 <= len; k += 16) {
        const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + from + k));
        mask |= static_cast<uint64_t>(static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, needle)))) << k;
    }
#endif
    for (; k < len; ++k) mask |= static_cast<uint64_t>(p[from + k] == d) << k;
    return mask;
}

// Index of the lowest set bit of a non-zero mask.
inline unsigned LowestBit(uint64_t mask) {
#if defined(_MSC_VER)
    unsigned long i = 0;
    _BitScanForward64(&i, mask);
    return static_cast<unsigned>(i);
#else
    return static_cast<unsigned>(__builtin_ctzll(mask));
#endif
}

}  // namespace

UtCCsvReader::UtCCsvReader(const UtCString& fileName)
    : fileName_(fileName), source_(std::make_unique<LineSource>()), ownLine_(1, '\0') {
    line_ = ownLine_.data();
    if (!source_->Open(fileName.GetUtf8String(0).c_str())) {
        state_ = eReadNotOpen;
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
        switch (s) {
            case LineSource::Status::kLine:
                break;
            case LineSource::Status::kEnd:
                state_ = eReadEnd;
                return false;
            case LineSource::Status::kTooLong:
                state_ = eReadLineTooLong;
                return false;
            case LineSource::Status::kNoMemory:
                state_ = eReadNoMemory;
                return false;
            case LineSource::Status::kReadError:
                state_ = eReadError;
                return false;
        }
        if (length == 0) continue;
        if (line[0] == kCtrlZ && !disableZ_) {
            dataEnded_ = true;
            state_ = eReadEnd;
            return false;
        }
        line_ = line;
        lineLength_ = length;
        return true;
    }
}

bool UtCCsvReader::Rewind() {
    dataEnded_ = false;
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
        if (!ReadLine()) break;
    }
    line_ = ownLine_.data();
    lineLength_ = 0;
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
        uint64_t delimiters = DelimiterMask(p, base, len, d);
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
    if (!ReadLine()) return false;
    const int found = CutTokens(limit, tokenStart_.data());
    return found >= limit;
}

bool UtCCsvReader::SkipNextRow() {
    std::fill(tokenStart_.begin(), tokenStart_.end(), -1);
    return ReadLine();
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
    if (ToDouble(p, n, fileEncoding_, value)) return true;
    return std::memchr(p, ',', n) != nullptr && ToDoubleWithComma(p, n, fileEncoding_, value);
}

void UtCCsvReader::SetMLine(const char* text) {
    if (text == nullptr) text = "";
    const size_t n = std::strlen(text);
    ownLine_.assign(text, text + n + 1);
    line_ = ownLine_.data();
    lineLength_ = n;
    std::fill(tokenStart_.begin(), tokenStart_.end(), -1);
}

void UtCCsvReader::SetMTokenStartIndex(const std::vector<int>& starts) {
    tokenStart_ = starts;
    for (int& s : tokenStart_) {
        if (s < 0 || static_cast<size_t>(s) > lineLength_) s = -1;
    }
}

// ---- classifying ------------------------------------------------------------------------------

UtCCsvReader::TColumnMasks UtCCsvReader::ClassifyBytes(const char* p, size_t n, eUtEncodingType e,
                                                       bool* comma) const {
    TColumnMasks m;
    long long whole = 0;
    double real = 0.0;
    if (ToInt64(p, n, e, whole)) {
        // Taken as an unsigned 32-bit value, so negative numbers count as large ones.
        if (static_cast<uint32_t>(whole) > 255) {
            m.implicitMask |= eTypeLargeInteger;
            m.explicitMask |= eTypeLargeInteger | eTypeReal | eTypeText;
        } else {
            m.implicitMask |= eTypeSmallInteger;
            m.explicitMask |= eTypeSmallInteger | eTypeLargeInteger | eTypeReal | eTypeText;
        }
    } else if (ToDouble(p, n, e, real)) {
        m.implicitMask |= eTypeReal;
        m.explicitMask |= eTypeReal | eTypeText;
    } else if (std::memchr(p, ',', n) == nullptr) {
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
        return ClassifyBytes(narrow.c_str(), narrow.size(), UtCString::systemEncodingType(), &decimalComma_);
    }
    size_t n = 0;
    const char* p = kbase_tables_internal::Bytes(token, n);
    return ClassifyBytes(p, n, token.encodingType(), &decimalComma_);
}

UtCCsvReader::TColumnMasks UtCCsvReader::ClassifyToken(const UtCString& token) { return CalcTypeMask(token); }

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
        const TColumnMasks m = ClassifyBytes(p, n, e, &comma);
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
    for (size_t i = 0; i < length; ++i) {
        const int c = at(i);
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

bool UtCCsvReader::Reset(bool detect) {
    if (!Rewind()) return false;
    std::vector<int> starts;
    auto cutAll = [&]() {
        starts.resize(lineLength_ / 2 + 2);
        return CutTokens(-1, starts.data());
    };
    const eUtEncodingType e = fileEncoding_;
    if (detect) {
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
        uint64_t titles = 0;
        bool other = false;
        for (int probed = 0; probed < kTitleProbeLines && ReadLine(); ++probed) {
            const int found = cutAll();
            UtCStringList tokens;
            for (int t = 0; t < found; ++t) tokens.Add(UtCString(line_ + starts[static_cast<size_t>(t)], e, e));
            if (!IsTitleLine(tokens)) {
                other = true;
                break;
            }
            ++titles;
        }
        titleLines_ = other ? titles : std::min<uint64_t>(titles, 1);
        if (state_ != eReadOk && state_ != eReadEnd) return false;
    }

    if (!Rewind()) return false;
    masks_.clear();
    decimalComma_ = false;
    dataRows_ = 0;
    size_t columns = 0;
    for (uint64_t i = 0; i < titleLines_ && ReadLine(); ++i) {
        if (i + 1 == titleLines_) columns = static_cast<size_t>(cutAll());
    }
    uint64_t nextReport = kProgressBytes;
    while (ReadLine()) {
        const size_t found = static_cast<size_t>(cutAll());
        if (found > masks_.size()) masks_.resize(found);
        for (size_t t = 0; t < found; ++t) {
            const char* p = line_ + starts[t];
            const TColumnMasks m = ClassifyBytes(p, std::strlen(p), e, &decimalComma_);
            masks_[t].implicitMask |= m.implicitMask;
            masks_[t].explicitMask |= m.explicitMask;
        }
        ++dataRows_;
        if (source_->Position() >= nextReport) {
            ScanProgress(source_->Position(), fileSize_);
            nextReport = source_->Position() + kProgressBytes;
        }
    }
    if (state_ != eReadEnd) return false;
    ScanProgress(source_->Position(), fileSize_);
    if (columns > masks_.size()) masks_.resize(columns);
    tokenStart_.assign(masks_.size(), -1);
    return SetToFirstRow(true);
}
