// UtCString: comparison, search, pieces, edits, character classes, case, paths.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "basert/codepage.h"
#include "basert/files.h"
#include "basert/memory.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/internal/UtC_string_impl.h"

namespace kbase_text_internal {

void* UtCStringAccess::Text(const UtCString& s) { return s.text_; }
unsigned short UtCStringAccess::Encoding(const UtCString& s) { return s.encoding_; }
bool UtCStringAccess::Adopt(UtCString& s, void* block, int64_t units) { return s.Adopt(block, units); }

Span StoredSpan(const UtCString& s) {
    const void* t = UtCStringAccess::Text(s);
    if (t == nullptr) return Span{nullptr, 0};
    if (IsWide(UtCStringAccess::Encoding(s))) return Span{t, UtCUtf16::Length(static_cast<const char16_t*>(t))};
    if (UtCStringAccess::Encoding(s) == kUtf8) {
        return Span{t, static_cast<int64_t>(std::strlen(static_cast<const char*>(t)))};
    }
    return Span{t, s.GetLength()};
}

int64_t UnitOffset(const UtCString& s, int64_t i) {
    i = std::clamp<int64_t>(i, 0, s.GetLength());
    if (UtCStringAccess::Encoding(s) != kUtf8) return i;
    const Span sp = StoredSpan(s);
    const char* t = static_cast<const char*>(sp.text);
    return 3 + UtCUtf8::OffsetOfCodePoint(t + 3, sp.units - 3, i);
}

bool Splice(UtCString& s, int64_t at, int64_t removeUnits, const void* a, int64_t countA,
            unsigned short encA, const void* b, int64_t countB, unsigned short encB) {
    const unsigned short enc = UtCStringAccess::Encoding(s);
    const int elem = IsWide(enc) ? 2 : 1;
    const Span old = StoredSpan(s);
    const int64_t floor = enc == kUtf8 ? 3 : 0;  // nothing goes before the UTF-8 mark
    at = std::clamp<int64_t>(at, floor, old.units);
    removeUnits = std::clamp<int64_t>(removeUnits, 0, old.units - at);

    UtCUtf::Result pa, pb;
    if (a != nullptr && countA != 0) {
        if (encA != enc && (!UtCUtf::IsAvailable(encA) || !UtCUtf::IsAvailable(enc))) return false;
        pa = UtCUtf::Convert(a, countA, encA, enc, false);
        if (!pa.ok) return false;
    }
    if (b != nullptr && countB != 0) {
        if (encB != enc && (!UtCUtf::IsAvailable(encB) || !UtCUtf::IsAvailable(enc))) {
            UtFreeMemory(pa.text);
            return false;
        }
        pb = UtCUtf::Convert(b, countB, encB, enc, false);
        if (!pb.ok) {
            UtFreeMemory(pa.text);
            return false;
        }
    }
    const int64_t total = old.units - removeUnits + pa.units + pb.units;
    void* block = nullptr;
    const bool ok = TextAlloc(&block, static_cast<uint64_t>(total) + 1, elem) == kUtMemOk;
    if (ok) {
        auto* out = static_cast<char*>(block);
        const auto* in = static_cast<const char*>(old.text);
        size_t o = 0;
        auto put = [&](const void* p, int64_t units) {
            if (units > 0) std::memcpy(out + o, p, static_cast<size_t>(units) * elem);
            o += static_cast<size_t>(units) * elem;
        };
        put(in, at);
        put(pa.text, pa.units);
        put(pb.text, pb.units);
        put(in + (at + removeUnits) * elem, old.units - at - removeUnits);
        std::memset(out + o, 0, elem);
        UtCStringAccess::Adopt(s, block, total);
    }
    UtFreeMemory(pa.text);
    UtFreeMemory(pb.text);
    return ok;
}

}  // namespace kbase_text_internal

using namespace kbase_text_internal;

namespace {

// The characters of a string as code values: code-page bytes, UTF-16 units or UTF-8 code points.
// Index k of the result is character index k of the string.
std::vector<char32_t> CharsOf(const UtCString& s) {
    std::vector<char32_t> out;
    const Span sp = StoredSpan(s);
    out.reserve(static_cast<size_t>(s.GetLength()));
    if (s.isUtf16EncodingType()) {
        const auto* w = static_cast<const char16_t*>(sp.text);
        out.assign(w, w + sp.units);
    } else if (s.isUtf8EncodingType()) {
        const auto* t = static_cast<const unsigned char*>(sp.text);
        for (int64_t i = 3; i < sp.units;) {
            const unsigned char lead = t[i];
            int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
            char32_t c = extra == 0 ? lead : lead & (0x3F >> extra);
            ++i;
            while (extra-- > 0 && i < sp.units && (t[i] & 0xC0) == 0x80) c = (c << 6) | (t[i++] & 0x3F);
            while (i < sp.units && (t[i] & 0xC0) == 0x80) ++i;  // stray continuation bytes
            out.push_back(c);
        }
    } else {
        const auto* t = static_cast<const unsigned char*>(sp.text);
        out.assign(t, t + sp.units);
    }
    return out;
}

// The set's characters, read in the string's encoding.
std::vector<char32_t> SetIn(const UtCString& set, eUtEncodingType e) {
    std::vector<char32_t> v = CharsOf(set.encodingType() == e ? set : UtCString(set, e));
    std::sort(v.begin(), v.end());
    return v;
}

bool InSet(const std::vector<char32_t>& set, char32_t c) { return std::binary_search(set.begin(), set.end(), c); }

int CompareUnits16(const char16_t* a, const char16_t* b) {
    for (;; ++a, ++b) {
        if (*a != *b) return *a < *b ? -1 : 1;
        if (*a == 0) return 0;
    }
}

int Sign(int v) { return v < 0 ? -1 : (v > 0 ? 1 : 0); }

// UTF-16 form of any text, for comparisons across encodings.
struct Wide {
    char16_t* text = nullptr;
    bool ok = false;
    Wide(const void* t, int64_t n, unsigned short e) {
        const UtCUtf::Result r = UtCUtf::Convert(t, n, e, eUtEncodingTypeUtf16);
        text = static_cast<char16_t*>(r.text);
        ok = r.ok;
    }
    ~Wide() { UtFreeMemory(text); }
    Wide(const Wide&) = delete;
    Wide& operator=(const Wide&) = delete;
};

}  // namespace

// ---- comparison ---------------------------------------------------------------------------------

int UtCString::CompareToOther(const UtCString& other) const {
    if (other.encoding_ == encoding_) {
        if (isUtf16EncodingType()) return CompareUnits16(uptr(), other.uptr());
        return Sign(std::strcmp(ptr(), other.ptr()));
    }
    if (other.isUtf16EncodingType()) return CompareTo(other.uptr());
    return CompareTo(other.ptr(), other.encodingType());
}

int UtCString::CompareTo(const char* text, eUtEncodingType e) const {
    if (text == nullptr) return 1;
    const unsigned short enc = MapEncodingType(e);
    if (enc == encoding_ && !isUtf16EncodingType()) {
        return Sign(std::strcmp(UtCUtf8::SkipBOM(ptr()), enc == kUtf8 ? UtCUtf8::SkipBOM(text) : text));
    }
    const Wide a(text_, -1, encoding_);
    const Wide b(text, -1, enc);
    if (!a.ok || !b.ok) return 1;
    return CompareUnits16(a.text, b.text);
}

int UtCString::CompareTo(const char16_t* text) const {
    if (text == nullptr) return 1;
    if (isUtf16EncodingType()) return CompareUnits16(UtCUtf16::SkipBOM(uptr()), UtCUtf16::SkipBOM(text));
    const Wide a(text_, -1, encoding_);
    if (!a.ok) return 1;
    return CompareUnits16(a.text, UtCUtf16::SkipBOM(text));
}

int UtCString::CompareToNoCase(const UtCString& other) const {
    if (other.encoding_ == encoding_ && isAnsiEncodingType()) return BrStrICmp(encoding_, ptr(), other.ptr());
    if (other.isUtf16EncodingType()) return CompareToNoCase(other.uptr());
    return CompareToNoCase(other.ptr(), other.encodingType());
}

int UtCString::CompareToNoCase(const char* text, eUtEncodingType e) const {
    if (text == nullptr) return 1;
    const unsigned short enc = MapEncodingType(e);
    if (enc == encoding_ && isAnsiEncodingType()) return BrStrICmp(encoding_, ptr(), text);
    const Wide a(text_, -1, encoding_);
    const Wide b(text, -1, enc);
    if (!a.ok || !b.ok) return 1;
    return BrWcsICmp(a.text, b.text);
}

int UtCString::CompareToNoCase(const char16_t* text) const {
    if (text == nullptr) return 1;
    if (isUtf16EncodingType()) return BrWcsICmp(UtCUtf16::SkipBOM(uptr()), UtCUtf16::SkipBOM(text));
    const Wide a(text_, -1, encoding_);
    if (!a.ok) return 1;
    return BrWcsICmp(a.text, UtCUtf16::SkipBOM(text));
}

// ---- search ---------------------------------------------------------------------------------------

int UtCString::FindText(int start, const UtCString& text, bool noCase) const {
    if (start < 0) start = 0;
    if (text.IsEmpty() || start >= length_) return -1;
    if (noCase) {
        if (isUtf8EncodingType()) {
            // Case mapping can change UTF-8 byte counts: search the lowered UTF-16 forms and count
            // code points (a surrogate pair is one).
            const std::u16string hay = UtCString(*this, eUtEncodingTypeUtf16).toLower().GetUtf16String();
            const std::u16string needle = UtCString(text, eUtEncodingTypeUtf16).toLower().GetUtf16String();
            auto isHigh = [](char16_t u) { return u >= 0xD800 && u <= 0xDBFF; };
            size_t unit = 0;
            for (int i = 0; i < start && unit < hay.size(); ++i) unit += isHigh(hay[unit]) ? 2 : 1;
            const size_t pos = needle.empty() ? std::u16string::npos : hay.find(needle, unit);
            if (pos == std::u16string::npos) return -1;
            int codePoints = 0;
            for (size_t p = 0; p < pos; ++codePoints) p += isHigh(hay[p]) ? 2 : 1;
            return codePoints;
        }
        return toLower().FindText(start, text.toLower(), false);
    }
    const UtCString conv = text.encoding_ == encoding_ ? UtCString(text) : UtCString(text, encodingType());
    if (conv.IsEmpty()) return -1;
    if (isUtf16EncodingType()) {
        const std::u16string_view hay(uptr(), static_cast<size_t>(length_));
        const size_t pos = hay.find(std::u16string_view(conv.uptr(), static_cast<size_t>(conv.length_)),
                                    static_cast<size_t>(start));
        return pos == std::u16string_view::npos ? -1 : static_cast<int>(pos);
    }
    const Span sp = StoredSpan(*this);
    const Span needle = StoredSpan(conv);
    const int64_t skip = isUtf8EncodingType() ? 3 : 0;
    const std::string_view hay(static_cast<const char*>(sp.text), static_cast<size_t>(sp.units));
    const std::string_view what(static_cast<const char*>(needle.text) + skip, static_cast<size_t>(needle.units - skip));
    const int64_t from = UnitOffset(*this, start);
    const size_t pos = hay.find(what, static_cast<size_t>(from));
    if (pos == std::string_view::npos) return -1;
    if (!isUtf8EncodingType()) return static_cast<int>(pos);
    return start + static_cast<int>(UtCUtf8::CountCodePoints(hay.data() + from, static_cast<int64_t>(pos) - from));
}

int UtCString::Search(int start, const UtCString& text) const { return FindText(start, text, false); }

int UtCString::Search(int start, char c, eUtEncodingType e) const {
    if (c == 0) return -1;
    return FindText(start, UtCString(&c, 1, e, encodingType()), false);
}

int UtCString::Search(int start, char16_t c) const {
    if (c == 0) return -1;
    return FindText(start, UtCString(&c, 1, encodingType()), false);
}

int UtCString::Index(char c) const { return Search(0, c); }
int UtCString::Index(char16_t c) const { return Search(0, c); }

namespace {
// Last index of the one character that one holds, or -1.
int LastIndexOf(const UtCString& s, const UtCString& one) {
    const std::vector<char32_t> me = CharsOf(s), ch = CharsOf(one);
    if (ch.size() != 1) return -1;
    for (int i = static_cast<int>(me.size()) - 1; i >= 0; --i) {
        if (me[static_cast<size_t>(i)] == ch[0]) return i;
    }
    return -1;
}
}  // namespace

int UtCString::RIndex(char c) const {
    return c == 0 ? -1 : LastIndexOf(*this, UtCString(&c, 1, eUtEncodingTypeSystemDefault, encodingType()));
}

int UtCString::RIndex(char16_t c) const { return c == 0 ? -1 : LastIndexOf(*this, UtCString(&c, 1, encodingType())); }

int UtCString::FindOneOf(const UtCString& set, int start) const {
    const std::vector<char32_t> me = CharsOf(*this), s = SetIn(set, encodingType());
    for (size_t i = static_cast<size_t>(std::max(start, 0)); i < me.size(); ++i) {
        if (InSet(s, me[i])) return static_cast<int>(i);
    }
    return -1;
}

int UtCString::FindOneNotOf(const UtCString& set, int start) const {
    const std::vector<char32_t> me = CharsOf(*this), s = SetIn(set, encodingType());
    for (size_t i = static_cast<size_t>(std::max(start, 0)); i < me.size(); ++i) {
        if (!InSet(s, me[i])) return static_cast<int>(i);
    }
    return -1;
}

int UtCString::CountOccurrences(const UtCString& text) const {
    if (text.IsEmpty()) return 0;
    const int step = UtCString(text, encodingType()).length_;
    if (step <= 0) return 0;
    int count = 0;
    for (int pos = FindText(0, text, false); pos >= 0; pos = FindText(pos + step, text, false)) ++count;
    return count;
}

bool UtCString::StartsWith(const UtCString& prefix, bool noCase) const {
    const UtCString p(prefix, encodingType());
    if (p.length_ > length_) return false;
    const UtCString head = left(p.length_);
    return noCase ? head.CompareToNoCase(p) == 0 : head.CompareTo(p) == 0;
}

bool UtCString::StartsWithAscii(char c, bool noCase) const {
    if (length_ == 0) return false;
    const char first = GetCharAt(0);
    if (!noCase) return first == c;
    return std::tolower(static_cast<unsigned char>(first)) == std::tolower(static_cast<unsigned char>(c));
}

bool UtCString::EndsWith(const UtCString& suffix, bool noCase) const {
    const UtCString p(suffix, encodingType());
    if (p.length_ > length_) return false;
    const UtCString tail = right(p.length_);
    return noCase ? tail.CompareToNoCase(p) == 0 : tail.CompareTo(p) == 0;
}

bool UtCString::ConsistOnlyOf(const UtCString& set) const { return FindOneNotOf(set, 0) < 0; }


// ---- character classes ------------------------------------------------------------------------------

namespace {
enum class CharClass { kDigit, kSpace, kLetter };

int ClassOf(const UtCString& s, int i, CharClass cls) {
    if (i < 0 || i >= s.GetLength()) return 0;
    char16_t w = 0;
    if (s.isUtf16EncodingType()) {
        w = s.uptr()[i];
    } else if (s.isUtf8EncodingType()) {
        const Wide wide(s.ptr(), -1, kUtf8);
        if (!wide.ok || i >= UtCUtf16::Length(wide.text)) return 0;
        w = wide.text[i];
    } else {
        const auto byte = static_cast<unsigned char>(s.ptr()[i]);
        switch (cls) {
            case CharClass::kDigit: return BrIsDigitCp(s.encodingType(), byte) ? 1 : 0;
            case CharClass::kSpace: return BrIsSpaceCp(s.encodingType(), byte) ? 1 : 0;
            case CharClass::kLetter: return BrIsLetterCp(s.encodingType(), byte) ? 1 : 0;
        }
    }
    switch (cls) {
        case CharClass::kDigit: return BrIsDigitW(w) ? 1 : 0;
        case CharClass::kSpace: return BrIsSpaceW(w) ? 1 : 0;
        case CharClass::kLetter: return BrIsLetterW(w) ? 1 : 0;
    }
    return 0;
}
}  // namespace

int UtCString::IsDigit(int i) const { return ClassOf(*this, i, CharClass::kDigit); }
int UtCString::IsSpace(int i) const { return ClassOf(*this, i, CharClass::kSpace); }
int UtCString::IsLetter(int i) const { return ClassOf(*this, i, CharClass::kLetter); }

bool UtCString::IsNumber() const {
    if (length_ == 0) return false;
    if (isUtf8EncodingType()) return UtCString(*this, eUtEncodingTypeUtf16).IsNumber();
    for (int i = 0; i < length_; ++i) {
        if (!IsDigit(i)) return false;
    }
    return true;
}

// ---- pieces ----------------------------------------------------------------------------------------

UtCString UtCString::substr(int start, int count) const {
    if (start == 0 && count >= length_) return *this;
    if (start < 0) {
        if (start < -length_) return UtCString(encodingType());
        start += length_;
    }
    if (start >= length_) return UtCString(encodingType());
    if (count < 0 || static_cast<int64_t>(start) + count > length_) count = length_ - start;
    if (count == 0) return UtCString(encodingType());
    const int elem = isUtf16EncodingType() ? 2 : 1;
    const int64_t from = UnitOffset(*this, start);
    const int64_t to = UnitOffset(*this, static_cast<int64_t>(start) + count);
    return isUtf16EncodingType()
               ? UtCString(uptr() + from, static_cast<int>(to - from), encodingType())
               : UtCString(ptr() + from * elem, static_cast<int>(to - from), encodingType(), encodingType());
}

UtCString UtCString::left(int n) const { return n <= 0 ? UtCString(encodingType()) : substr(0, n); }

UtCString UtCString::right(int n) const {
    if (n <= 0) return UtCString(encodingType());
    if (n >= length_) return *this;
    return substr(length_ - n, n);
}

UtCString UtCString::SpanIncluding(const UtCString& set, int start) const {
    if (start < 0) start = 0;
    const int end = FindOneNotOf(set, start);
    return substr(start, end < 0 ? -1 : end - start);
}

UtCString UtCString::SpanExluding(const UtCString& set, int start) const {
    if (start < 0) start = 0;
    const int end = FindOneOf(set, start);
    return substr(start, end < 0 ? -1 : end - start);
}

// The SetTo... members compute the copy and exchange it with the string, so a refused allocation
// (watched) leaves the string as it was.
UtCString& UtCString::SetToSubstr(int start, int count) {
    const FailureWatch watch;
    UtCString part = substr(start, count);
    if (watch.ok()) Swap(part, false);
    return *this;
}
UtCString& UtCString::SetToLeft(int n) {
    const FailureWatch watch;
    UtCString part = left(n);
    if (watch.ok()) Swap(part, false);
    return *this;
}
UtCString& UtCString::SetToRight(int n) {
    const FailureWatch watch;
    UtCString part = right(n);
    if (watch.ok()) Swap(part, false);
    return *this;
}

// ---- edits -----------------------------------------------------------------------------------------

int UtCString::Delete(int position, int count) {
    if (position < 0 || position >= length_ || count <= 0) return length_;
    const int64_t from = UnitOffset(*this, position);
    const int64_t to = UnitOffset(*this, static_cast<int64_t>(position) + count);
    Splice(*this, from, to - from, nullptr, 0, encoding_, nullptr, 0, encoding_);
    return length_;
}

int UtCString::Remove(const UtCString& text) { return replace(text, UtCString(encodingType())); }

bool UtCString::RemoveAtStart(const UtCString& text, bool noCase) {
    if (text.IsEmpty() || !StartsWith(text, noCase)) return false;
    Delete(0, UtCString(text, encodingType()).length_);
    return true;
}

bool UtCString::RemoveAtEnd(const UtCString& text, bool noCase) {
    if (text.IsEmpty() || !EndsWith(text, noCase)) return false;
    const int n = UtCString(text, encodingType()).length_;
    Delete(length_ - n, n);
    return true;
}

int UtCString::replace(const UtCString& what, const UtCString& with, bool noCase, int limit) {
    if (what.IsEmpty() || limit == 0) return 0;
    const int whatLength = UtCString(what, encodingType()).length_;
    if (whatLength == 0) return 0;
    // Positions are found first on the unchanged text, then the result is built in one pass.
    std::vector<int> hits;
    for (int pos = FindText(0, what, noCase); pos >= 0; pos = FindText(pos + whatLength, what, noCase)) {
        hits.push_back(pos);
        if (limit > 0 && static_cast<int>(hits.size()) == limit) break;
    }
    if (hits.empty()) return 0;
    const FailureWatch watch;
    UtCString result(encodingType());
    int from = 0;
    for (const int pos : hits) {
        result.Append(substr(from, pos - from));
        result.Append(with);
        from = pos + whatLength;
    }
    result.Append(substr(from));
    if (!watch.ok()) return 0;
    Swap(result, false);
    return static_cast<int>(hits.size());
}

int UtCString::replace(char what, char with) {
    return replace(UtCString(&what, 1, eUtEncodingTypeSystemDefault, encodingType()),
                   UtCString(&with, 1, eUtEncodingTypeSystemDefault, encodingType()));
}

int UtCString::replace(char16_t what, char16_t with) {
    return replace(UtCString(&what, 1, encodingType()), UtCString(&with, 1, encodingType()));
}

int UtCString::replace(const UtCString& what, char with) {
    return replace(what, UtCString(&with, 1, eUtEncodingTypeSystemDefault, encodingType()));
}

namespace {
// Bounds [first, last) of the characters to keep when trimming those that match.
template <typename Pred>
void TrimBounds(const std::vector<char32_t>& chars, bool front, bool back, Pred match, int& first,
                int& last) {
    first = 0;
    last = static_cast<int>(chars.size());
    if (front) {
        while (first < last && match(chars[static_cast<size_t>(first)])) ++first;
    }
    if (back) {
        while (last > first && match(chars[static_cast<size_t>(last - 1)])) --last;
    }
}
}  // namespace

namespace {
UtCString& TrimWith(UtCString& s, bool front, bool back, const std::vector<char32_t>* set) {
    const std::vector<char32_t> chars = CharsOf(s);
    int first = 0, last = 0;
    if (set != nullptr) {
        TrimBounds(chars, front, back, [&](char32_t c) { return InSet(*set, c); }, first, last);
    } else if (s.isAnsiEncodingType()) {
        // Code pages trim what the C runtime calls space (blank, \t \n \v \f \r).
        TrimBounds(chars, front, back, [](char32_t c) { return std::isspace(static_cast<int>(c)) != 0; }, first, last);
    } else {
        TrimBounds(chars, front, back, [](char32_t c) { return c <= 0xFFFF && BrIsSpaceW(static_cast<char16_t>(c)); },
                   first, last);
    }
    if (first == 0 && last == s.GetLength()) return s;
    return s.SetToSubstr(first, last - first);
}
}  // namespace

UtCString& UtCString::trim() { return TrimWith(*this, true, true, nullptr); }
UtCString& UtCString::trimLeft() { return TrimWith(*this, true, false, nullptr); }
UtCString& UtCString::trimRight() { return TrimWith(*this, false, true, nullptr); }
UtCString& UtCString::trim(const UtCString& set) {
    const std::vector<char32_t> s = SetIn(set, encodingType());
    return TrimWith(*this, true, true, &s);
}
UtCString& UtCString::trimLeft(const UtCString& set) {
    const std::vector<char32_t> s = SetIn(set, encodingType());
    return TrimWith(*this, true, false, &s);
}
UtCString& UtCString::trimRight(const UtCString& set) {
    const std::vector<char32_t> s = SetIn(set, encodingType());
    return TrimWith(*this, false, true, &s);
}

namespace {
UtCString MappedCase(const UtCString& s, bool upper) {
    if (s.isUtf8EncodingType()) {
        UtCString wide(s, eUtEncodingTypeUtf16);
        return UtCString(MappedCase(wide, upper), eUtEncodingTypeUtf8);
    }
    UtCString copy(s);
    const Span sp = StoredSpan(copy);
    if (copy.isUtf16EncodingType()) {
        auto* w = const_cast<char16_t*>(static_cast<const char16_t*>(sp.text));
        upper ? BrToUpperW(w, sp.units) : BrToLowerW(w, sp.units);
    } else {
        auto* t = const_cast<char*>(static_cast<const char*>(sp.text));
        upper ? BrToUpperCp(copy.encodingType(), t, sp.units) : BrToLowerCp(copy.encodingType(), t, sp.units);
    }
    return copy;
}
}  // namespace

UtCString UtCString::toLower() const { return MappedCase(*this, false); }
UtCString UtCString::toUpper() const { return MappedCase(*this, true); }
UtCString& UtCString::SetToLower() {
    const FailureWatch watch;
    UtCString c = toLower();
    if (watch.ok()) Swap(c, false);
    return *this;
}
UtCString& UtCString::SetToUpper() {
    const FailureWatch watch;
    UtCString c = toUpper();
    if (watch.ok()) Swap(c, false);
    return *this;
}

UtCString& UtCString::Enclose(const UtCString& around) { return Enclose(around, around); }

UtCString& UtCString::Enclose(const UtCString& before, const UtCString& after) {
    const FailureWatch watch;
    UtCString result(before, encodingType());
    result.Append(*this);
    result.Append(after);
    if (watch.ok()) Swap(result, false);
    return *this;
}

// The tail from position is kept aside, the string cut there, the filler and the tail appended.
UtCString& UtCString::Expand(int width, char c, int position) {
    const int d = width - length_;
    if (d <= 0) return *this;
    const FailureWatch watch;
    const std::string fill(static_cast<size_t>(d), c);
    UtCString result = left(position);
    result.Append(UtCString(fill.c_str(), eUtEncodingTypeSystemDefault, encodingType()));
    result.Append(substr(position));
    if (watch.ok()) Swap(result, false);
    return *this;
}

UtCString& UtCString::ExpandW(int width, char16_t c, int position) {
    const int d = width - length_;
    if (d <= 0) return *this;
    const FailureWatch watch;
    const std::u16string fill(static_cast<size_t>(d), c);
    UtCString result = left(position);
    result.Append(UtCString(fill, encodingType()));
    result.Append(substr(position));
    if (watch.ok()) Swap(result, false);
    return *this;
}

bool UtCString::NormalizeForm(char form, bool compatibility) {
    if ((form != 'C' && form != 'D') || !isUtf16EncodingType()) return false;
    const int windowsForm = (form == 'C' ? 1 : 2) + (compatibility ? 4 : 0);
    const int64_t n = length_;
    if (n == 0) return true;
    const int64_t estimate = BrNormalize(windowsForm, uptr(), n, nullptr, 0);
    if (estimate <= 0) return false;
    // Twice the estimate, zeroed, as the system call wants room to spare.
    auto* out = static_cast<char16_t*>(UtCcalloc(static_cast<size_t>(estimate) * 2 + 1, 2));
    if (out == nullptr) return false;
    const int64_t got = BrNormalize(windowsForm, uptr(), n, out, estimate * 2);
    const bool ok = got > 0 && Set(out, got);
    UtCfree(out);
    return ok;
}

// ---- paths -------------------------------------------------------------------------------------------

namespace {
bool IsSeparator(char32_t c) { return c == '/' || c == '\\'; }

int LastSeparator(const std::vector<char32_t>& chars) {
    for (int i = static_cast<int>(chars.size()) - 1; i >= 0; --i) {
        if (IsSeparator(chars[static_cast<size_t>(i)])) return i;
    }
    return -1;
}

// Index of the extension's dot within the last component, or -1.
int ExtensionDot(const std::vector<char32_t>& chars) {
    const int start = LastSeparator(chars) + 1;
    for (int i = static_cast<int>(chars.size()) - 1; i > start; --i) {
        if (chars[static_cast<size_t>(i)] == '.') return i;
    }
    return -1;
}
}  // namespace

UtCString UtCString::SplitPath() const {
    const int sep = LastSeparator(CharsOf(*this));
    return sep < 0 ? UtCString(encodingType()) : left(sep + 1);
}

UtCString UtCString::SplitFileName() const {
    UtCString rest(encodingType());
    return SplitFileName(rest);
}

UtCString UtCString::SplitFileName(UtCString& rest) const {
    const int sep = LastSeparator(CharsOf(*this));
    UtCString name = substr(sep + 1);
    rest = sep < 0 ? UtCString(encodingType()) : left(sep + 1);
    return name;
}

UtCString UtCString::SplitFileExtension() const {
    UtCString rest(encodingType());
    return SplitFileExtension(rest);
}

UtCString UtCString::SplitFileExtension(UtCString& rest) const {
    const int dot = ExtensionDot(CharsOf(*this));
    if (dot < 0) {
        rest = *this;
        return UtCString(encodingType());
    }
    UtCString ext = substr(dot + 1);
    rest = left(dot);
    return ext;
}

bool UtCString::HasFileExtension(const UtCString& ext) const {
    UtCString want(ext, encodingType());
    want.RemoveAtStart(UtCString(".", eUtEncodingTypeSystemDefault, encodingType()));
    const int dot = ExtensionDot(CharsOf(*this));
    if (dot < 0) return want.IsEmpty();
    return substr(dot + 1).CompareToNoCase(want) == 0;
}

UtCString UtCString::JoinFilePath(const UtCString& a, const UtCString& b) {
    UtCString result(a);
    const UtCString slash("/", eUtEncodingTypeSystemDefault, a.encodingType());
    UtCString tail(b, a.encodingType());
    while (tail.IsAny() && IsSeparator(static_cast<unsigned char>(tail.GetCharAt(0)))) tail.Delete(0, 1);
    if (result.IsEmpty()) return tail;
    if (tail.IsEmpty()) return result;
    if (!IsSeparator(static_cast<unsigned char>(result.GetCharAt(result.GetLength() - 1)))) result.Append(slash);
    result.Append(tail);
    return result;
}

UtCString& UtCString::StandardizePath() {
    std::u16string path = GetUtf16String();
    std::replace(path.begin(), path.end(), u'\\', u'/');
    const bool absolute = !path.empty() && path[0] == u'/';
    const bool trailing = path.size() > 1 && path.back() == u'/';
    std::vector<std::u16string> parts;
    size_t i = 0;
    while (i <= path.size()) {
        const size_t j = std::min(path.find(u'/', i), path.size());
        const std::u16string part = path.substr(i, j - i);
        if (part == u"..") {
            if (!parts.empty() && parts.back() != u"..") {
                parts.pop_back();
            } else if (!absolute) {
                parts.push_back(part);
            }
        } else if (!part.empty() && part != u".") {
            parts.push_back(part);
        }
        i = j + 1;
    }
    std::u16string out = absolute ? u"/" : u"";
    for (size_t k = 0; k < parts.size(); ++k) {
        if (k != 0) out += u'/';
        out += parts[k];
    }
    if (trailing && !parts.empty()) out += u'/';
    if (out.empty() && !path.empty()) out = u".";
    const FailureWatch watch;
    UtCString result(out, encodingType());
    if (watch.ok()) Swap(result, false);
    return *this;
}

namespace {
std::string EnvValue(const std::string& name) {
    const int64_t n = OsGetEnv(name.c_str(), nullptr, 0);
    if (n < 0) return std::string();
    std::string v(static_cast<size_t>(n) + 1, '\0');
    OsGetEnv(name.c_str(), v.data(), v.size());
    v.resize(static_cast<size_t>(n));
    return v;
}
}  // namespace

UtCString& UtCString::PathAbsToEnv() {
    std::vector<std::string> names = {"HOME", "TMPDIR"};
    const std::string extra = EnvValue("KBASE_PATH_VARIABLES");
    for (size_t i = 0; i < extra.size();) {
        const size_t j = std::min(extra.find(',', i), extra.size());
        if (j > i) names.push_back(extra.substr(i, j - i));
        i = j + 1;
    }
    const std::string path = GetUtf8String(0);
    std::string bestName, bestValue;
    for (const std::string& name : names) {
        std::string value = EnvValue(name);
        while (value.size() > 1 && value.back() == '/') value.pop_back();
        if (value.empty() || value.size() <= bestValue.size()) continue;
        // The value must end at a component boundary of the path.
        if (path.compare(0, value.size(), value) == 0 && (path.size() == value.size() || path[value.size()] == '/')) {
            bestName = name;
            bestValue = value;
        }
    }
    if (!bestName.empty()) {
        const std::string out = "$" + bestName + path.substr(bestValue.size());
        const FailureWatch watch;
        UtCString result(out.c_str(), eUtEncodingTypeUtf8, encodingType());
        if (watch.ok()) Swap(result, false);
    }
    return *this;
}

UtCString& UtCString::PathEnvToAbs() {
    const std::string path = GetUtf8String(0);
    std::string name;
    size_t rest = 0;
    auto isNameChar = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; };
    if (path.size() > 1 && path[0] == '$' && path[1] == '{') {
        const size_t close = path.find('}');
        if (close != std::string::npos) {
            name = path.substr(2, close - 2);
            rest = close + 1;
        }
    } else if (!path.empty() && path[0] == '$') {
        size_t j = 1;
        while (j < path.size() && isNameChar(path[j])) ++j;
        name = path.substr(1, j - 1);
        rest = j;
    } else if (!path.empty() && path[0] == '%') {
        const size_t close = path.find('%', 1);
        if (close != std::string::npos) {
            name = path.substr(1, close - 1);
            rest = close + 1;
        }
    }
    if (name.empty() || OsGetEnv(name.c_str(), nullptr, 0) < 0) return *this;
    const std::string out = EnvValue(name) + path.substr(rest);
    const FailureWatch watch;
    UtCString result(out.c_str(), eUtEncodingTypeUtf8, encodingType());
    if (watch.ok()) Swap(result, false);
    return *this;
}
