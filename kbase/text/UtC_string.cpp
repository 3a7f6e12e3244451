// UtCString: lifecycle, assignment, concatenation, access, conversion, memory record, hash.
// Searching, editing, formatting and number conversion live in UtC_string_edit.cpp and
// UtC_string_format.cpp.
#include <cstring>
#include <map>

#include "basert/locale.h"
#include "basert/memory.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/internal/UtC_string_impl.h"

using namespace kbase_text_internal;

namespace {

unsigned short g_systemEncoding = eUtEncodingTypeUnknown;

// Frees a block of the runtime at the end of a scope, also when copying out of it throws.
struct FreeAtExit {
    void* block;
    ~FreeAtExit() { UtFreeMemory(block); }
};

// Buffers used when even an empty buffer cannot be allocated, so that a string never has a
// null text. They are never written and never freed.
char g_emptyNarrow[4] = {0, 0, 0, 0};
char g_emptyUtf8[4] = {'\xEF', '\xBB', '\xBF', 0};
char16_t g_emptyWide[2] = {0, 0};

bool IsStaticEmpty(const void* p) {
    return p == g_emptyNarrow || p == g_emptyUtf8 || p == g_emptyWide;
}

void PutLE32(unsigned char* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
void PutLE64(unsigned char* p, uint64_t v) {
    for (int i = 0; i < 8; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}
uint32_t GetLE32(const unsigned char* p) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(p[i]) << (8 * i);
    return v;
}
uint64_t GetLE64(const unsigned char* p) {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
    return v;
}

constexpr uint64_t kRecordHeader = 24;
constexpr uint64_t kRecordVersion = 0x3FF0000000000000ULL;  // the double 1.0

// Process-wide scratch blocks of GetBuffer/GetUBuffer, by index. Single-threaded by contract.
struct ScratchBlock {
    void* block = nullptr;
    bool wide = false;
};
std::map<uint16_t, ScratchBlock>& ScratchMap() {
    static std::map<uint16_t, ScratchBlock> map;
    return map;
}

// The next free index: one past the largest while that stays below 0xFFFE, else the first gap.
uint16_t NextScratchIndex() {
    auto& map = ScratchMap();
    if (!map.empty() && map.rbegin()->first < 0xFFFE) return static_cast<uint16_t>(map.rbegin()->first + 1);
    for (uint32_t i = 1; i <= 0xFFFE; ++i) {
        if (map.find(static_cast<uint16_t>(i)) == map.end()) return static_cast<uint16_t>(i);
    }
    return 0;  // 0xFFFF: none left
}

}  // namespace

// ---- lifecycle -----------------------------------------------------------------------------

eUtEncodingType UtCString::systemEncodingType() {
    if (g_systemEncoding == eUtEncodingTypeUnknown) g_systemEncoding = OsUserCodePageBySystemDflt();
    return static_cast<eUtEncodingType>(g_systemEncoding);
}

unsigned short UtCString::MapEncodingType(unsigned short e) {
    return e == eUtEncodingTypeSystemDefault ? static_cast<unsigned short>(systemEncodingType()) : e;
}

void UtCString::Init(unsigned short e) {
    text_ = nullptr;
    length_ = 0;
    bufferIndex_ = 0;
    encoding_ = MapEncodingType(e);
}

// Constructors that assign text start without a buffer, so that the text's block is the only
// allocation; when assigning failed, the empty buffer is put in place here.
void UtCString::EnsureBuffer() {
    if (text_ == nullptr) SetEmpty();
}

UtCString& UtCString::SetEmpty() {
    const bool wide = IsWide(encoding_);
    const bool utf8 = encoding_ == kUtf8;
    void* p = nullptr;
    const uint64_t units = utf8 ? 4 : 1;
    if (TextAlloc(&p, units, wide ? 2 : 1) == kUtMemOk) {
        if (wide) {
            static_cast<char16_t*>(p)[0] = 0;
        } else if (utf8) {
            std::memcpy(p, g_emptyUtf8, 4);
        } else {
            static_cast<char*>(p)[0] = 0;
        }
    } else {
        p = wide ? static_cast<void*>(g_emptyWide) : utf8 ? g_emptyUtf8 : g_emptyNarrow;
    }
    if (!IsStaticEmpty(text_)) UtFreeMemory(text_);
    text_ = p;
    length_ = 0;
    return *this;
}

void UtCString::Free() {
    if (!IsStaticEmpty(text_)) UtFreeMemory(text_);
    text_ = nullptr;
    length_ = 0;
    if (bufferIndex_ != 0) ReleaseBufferImpl(false, encoding_, false);
}

void UtCString::Swap(UtCString& other, bool withBufferIndex) {
    std::swap(text_, other.text_);
    std::swap(encoding_, other.encoding_);
    std::swap(length_, other.length_);
    if (withBufferIndex) std::swap(bufferIndex_, other.bufferIndex_);
}

bool UtCString::Adopt(void* block, int64_t units, int64_t codePoints) {
    if (!IsStaticEmpty(text_)) UtFreeMemory(text_);
    text_ = block;
    if (encoding_ == kUtf8) {
        length_ = static_cast<int32_t>(codePoints >= 0 ? codePoints
                                                       : UtCUtf8::CountCodePoints(static_cast<char*>(block) + 3, units - 3));
    } else {
        length_ = static_cast<int32_t>(units);
    }
    return true;
}

bool UtCString::Assign(const void* text, int64_t count, unsigned short source) {
    source = MapEncodingType(source);
    if (source != encoding_ && (UtCUtf::IsUnknown(source) || UtCUtf::IsUnknown(encoding_))) {
        SetEmpty();  // nothing can ever be produced: the empty string
        return false;
    }
    // A converter that could not get memory fails here, like any allocation: string unchanged.
    const UtCUtf::Result r = UtCUtf::Convert(text, count, source, encoding_, true);
    if (!r.ok) return false;
    return Adopt(r.text, r.units, r.codePoints);
}

UtCString::UtCString() {
    Init(eUtEncodingTypeSystemDefault);
    SetEmpty();
}
UtCString::UtCString(eUtEncodingType e) {
    Init(e);
    SetEmpty();
}
UtCString::UtCString(const char* text, eUtEncodingType source, eUtEncodingType target) {
    Init(target);
    Set(text, -1, source);
    EnsureBuffer();
}
UtCString::UtCString(const char* text, int count, eUtEncodingType source, eUtEncodingType target) {
    Init(target);
    Set(text, count, source);
    EnsureBuffer();
}
UtCString::UtCString(const char16_t* text, eUtEncodingType e) {
    Init(e);
    Set(text, -1);
    EnsureBuffer();
}
UtCString::UtCString(const char16_t* text, int count, eUtEncodingType e) {
    Init(e);
    Set(text, count);
    EnsureBuffer();
}
UtCString::UtCString(const UtCString& other) {
    Init(other.encoding_);
    Set(&other);
    EnsureBuffer();
}
UtCString::UtCString(const UtCString& other, eUtEncodingType e) {
    Init(e);
    Set(&other);
    EnsureBuffer();
}
UtCString::UtCString(UtCString&& other) noexcept {
    Init(other.encoding_);
    SetEmpty();
    Swap(other, false);
}
UtCString::UtCString(const std::string& text, eUtEncodingType source, eUtEncodingType target) {
    Init(target);
    Set(text.data(), static_cast<int64_t>(text.size()), source);
    EnsureBuffer();
}
UtCString::UtCString(const std::u16string& text, eUtEncodingType e) {
    Init(e);
    Set(text.data(), static_cast<int64_t>(text.size()));
    EnsureBuffer();
}

UtCString::~UtCString() { Free(); }

void UtCString::constructor(eUtEncodingType e) {
    Init(e);
    SetEmpty();
}
void UtCString::constructor(const char* text, eUtEncodingType source, eUtEncodingType target) {
    new (this) UtCString(text, source, target);
}
void UtCString::constructor(const char* text, int count, eUtEncodingType source,
                            eUtEncodingType target) {
    new (this) UtCString(text, count, source, target);
}
void UtCString::constructor(const char16_t* text, eUtEncodingType e) { new (this) UtCString(text, e); }
void UtCString::constructor(const char16_t* text, int count, eUtEncodingType e) {
    new (this) UtCString(text, count, e);
}
void UtCString::constructor(const UtCString& other) { new (this) UtCString(other); }
void UtCString::constructor(const UtCString& other, eUtEncodingType e) { new (this) UtCString(other, e); }
void UtCString::constructor(long long v, eUtEncodingType e) { new (this) UtCString(v, e); }
void UtCString::constructor(double v, int digits, eUtEncodingType e) { new (this) UtCString(v, digits, e); }
void UtCString::destructor() { Free(); }

// ---- assignment -------------------------------------------------------------------------------

bool UtCString::Set(const UtCString* other) {
    if (other == nullptr) {
        SetEmpty();
        return true;
    }
    if (other == this) return true;
    if (other->encoding_ == encoding_) {
        const uint64_t bytes = other->BufferSize();
        if (bytes == 0) {
            SetEmpty();
            return true;
        }
        void* p = nullptr;
        if (TextAlloc(&p, bytes, 1) != kUtMemOk) return false;
        std::memcpy(p, other->text_, bytes);
        if (!IsStaticEmpty(text_)) UtFreeMemory(text_);
        text_ = p;
        length_ = other->length_;
        return true;
    }
    if (other->isUtf16EncodingType()) return Set(other->uptr(), -1);
    return Set(other->ptr(), -1, other->encoding_);
}

bool UtCString::Set(const char* text, int64_t count, unsigned short source) {
    if (text == nullptr || count == 0) {
        SetEmpty();
        return true;
    }
    return Assign(text, count, source);
}

bool UtCString::Set(const char16_t* text, int64_t count) {
    if (text == nullptr || count == 0) {
        SetEmpty();
        return true;
    }
    return Assign(text, count, eUtEncodingTypeUtf16);
}

UtCString& UtCString::operator=(const UtCString& other) {
    Set(&other);
    return *this;
}
UtCString& UtCString::operator=(UtCString&& other) noexcept {
    if (this == &other) return *this;
    if (other.encoding_ == encoding_) {
        Swap(other, false);
    } else {
        Set(&other);
    }
    return *this;
}
UtCString& UtCString::operator=(const char* text) {
    Set(text, -1, eUtEncodingTypeSystemDefault);
    return *this;
}
UtCString& UtCString::operator=(const char16_t* text) {
    Set(text, -1);
    return *this;
}
UtCString& UtCString::operator=(const std::string& text) {
    Set(text.data(), static_cast<int64_t>(text.size()), eUtEncodingTypeSystemDefault);
    return *this;
}
UtCString& UtCString::operator=(const std::u16string& text) {
    Set(text.data(), static_cast<int64_t>(text.size()));
    return *this;
}

// ---- concatenation -------------------------------------------------------------------------

int64_t UtCString::ByteOffset(int index) const {
    const char* t = static_cast<const char*>(text_);
    const int64_t total = static_cast<int64_t>(std::strlen(t + 3));
    return 3 + UtCUtf8::OffsetOfCodePoint(t + 3, total, index);
}

bool UtCString::Add(const void* a, int64_t countA, unsigned short encA, const void* b,
                    int64_t countB, unsigned short encB) {
    const Span whole = StoredSpan(*this);
    return Splice(*this, whole.units, 0, a, countA, MapEncodingType(encA), b, countB,
                  MapEncodingType(encB));
}

bool UtCString::AppendText(const void* text, int64_t count, unsigned short source) {
    return Add(text, count, source, nullptr, 0, encoding_);
}

bool UtCString::Add(const char* text, int64_t count, unsigned short source) {
    if (text == nullptr || count == 0) return true;
    return AppendText(text, count, source);
}

bool UtCString::Add(const char16_t* text, int64_t count) {
    if (text == nullptr || count == 0) return true;
    text = UtCUtf16::SkipBOM(text);
    // count is in characters: a surrogate pair is one character of two units.
    int64_t units = 0;
    if (count < 0) {
        units = UtCUtf16::Length(text);
    } else {
        for (int64_t taken = 0; taken < count && text[units] != 0; ++taken) {
            const bool pair = text[units] >= 0xD800 && text[units] <= 0xDBFF &&
                              text[units + 1] >= 0xDC00 && text[units + 1] <= 0xDFFF;
            units += pair ? 2 : 1;
        }
    }
    if (units == 0) return true;
    return AppendText(text, units, eUtEncodingTypeUtf16);
}

UtCString& UtCString::operator+=(const UtCString& other) { return Append(other); }
UtCString& UtCString::operator+=(const char* text) {
    Add(text, -1, eUtEncodingTypeSystemDefault);
    return *this;
}
UtCString& UtCString::operator+=(const char16_t* text) {
    Add(text, -1);
    return *this;
}
UtCString& UtCString::operator+=(char c) { return Append(c); }
UtCString& UtCString::operator+=(char16_t c) { return Append(c); }

UtCString& UtCString::Append(const UtCString& other) {
    if (&other == this) {
        const UtCString copy(other);
        return Append(copy);
    }
    if (other.isUtf16EncodingType()) {
        Add(other.uptr(), -1);
    } else {
        Add(other.ptr(), -1, other.encoding_);
    }
    return *this;
}
UtCString& UtCString::Append(char c) {
    if (c != 0) Add(&c, 1, eUtEncodingTypeSystemDefault);
    return *this;
}
UtCString& UtCString::Append(char16_t c) {
    if (c != 0) AppendText(&c, 1, eUtEncodingTypeUtf16);
    return *this;
}

UtCString& UtCString::Prepend(const UtCString& other) {
    const UtCString copy(other);
    const Span s = StoredSpan(copy);
    Splice(*this, 0, 0, s.text, s.units, copy.encoding_, nullptr, 0, encoding_);
    return *this;
}
UtCString& UtCString::Prepend(const char* text, eUtEncodingType e) { return Insert(0, text, e); }
UtCString& UtCString::Prepend(const char16_t* text) { return Insert(0, text); }
UtCString& UtCString::Prepend(char c) { return Insert(0, c); }
UtCString& UtCString::Prepend(char16_t c) { return Insert(0, c); }

UtCString& UtCString::Insert(int position, const UtCString& other) {
    const UtCString copy(other);
    const Span s = StoredSpan(copy);
    Splice(*this, UnitOffset(*this, position), 0, s.text, s.units, copy.encoding_, nullptr, 0, encoding_);
    return *this;
}
UtCString& UtCString::Insert(int position, const char* text, eUtEncodingType e) {
    if (text != nullptr && *text != 0) {
        Splice(*this, UnitOffset(*this, position), 0, text, -1, MapEncodingType(e), nullptr, 0, encoding_);
    }
    return *this;
}
UtCString& UtCString::Insert(int position, const char16_t* text) {
    if (text != nullptr && *UtCUtf16::SkipBOM(text) != 0) {
        Splice(*this, UnitOffset(*this, position), 0, text, -1, eUtEncodingTypeUtf16, nullptr, 0, encoding_);
    }
    return *this;
}
UtCString& UtCString::Insert(int position, char c) {
    if (c != 0) {
        Splice(*this, UnitOffset(*this, position), 0, &c, 1, systemEncodingType(), nullptr, 0, encoding_);
    }
    return *this;
}
UtCString& UtCString::Insert(int position, char16_t c) {
    if (c != 0) {
        Splice(*this, UnitOffset(*this, position), 0, &c, 1, eUtEncodingTypeUtf16, nullptr, 0, encoding_);
    }
    return *this;
}

namespace {
template <typename T>
UtCString Concat(const UtCString& a, const T& b) {
    UtCString r(a);
    r += b;
    return r;
}
template <typename T>
UtCString ConcatFront(const T& a, const UtCString& b) {
    UtCString r(b);
    r.Prepend(a);
    return r;
}
}  // namespace

UtCString operator+(const UtCString& a, const UtCString& b) { return Concat(a, b); }
UtCString operator+(const UtCString& a, const char* b) { return Concat(a, b); }
UtCString operator+(const char* a, const UtCString& b) { return ConcatFront(a, b); }
UtCString operator+(const UtCString& a, const char16_t* b) { return Concat(a, b); }
UtCString operator+(const char16_t* a, const UtCString& b) { return ConcatFront(a, b); }
UtCString operator+(const UtCString& a, char b) { return Concat(a, b); }
UtCString operator+(const UtCString& a, char16_t b) { return Concat(a, b); }

// ---- access ---------------------------------------------------------------------------------

const char16_t* UtCString::uptr() const {
    return isUtf16EncodingType() ? static_cast<const char16_t*>(text_) : nullptr;
}

const char* UtCString::stringSkipBOM() const { return UtCUtf8::SkipBOM(ptr()); }

char UtCString::GetCharAt(int i) const {
    if (i < 0 || i >= length_) return 0;
    if (isUtf16EncodingType()) {
        const char16_t u = uptr()[i];
        return u < 0x80 ? static_cast<char>(u) : '?';
    }
    if (isUtf8EncodingType()) return ptr()[ByteOffset(i)];
    return ptr()[i];
}

char16_t UtCString::GetWcharAt(int i) const {
    if (i < 0 || i >= length_) return 0;
    if (isUtf16EncodingType()) return uptr()[i];
    const char* t = ptr();
    int64_t at = i;
    int64_t n = 1;
    if (isUtf8EncodingType()) {
        at = ByteOffset(i);
        n = 1;
        while ((static_cast<unsigned char>(t[at + n]) & 0xC0) == 0x80) ++n;
    }
    char16_t out[4] = {0, 0, 0, 0};
    const UtCUtf::Result r = UtCUtf::Convert(t + at, n, encoding_, eUtEncodingTypeUtf16);
    if (r.ok && r.units > 0) out[0] = static_cast<const char16_t*>(r.text)[0];
    UtFreeMemory(r.text);
    return out[0];
}

namespace {
// Replaces character i by one character given in encoding e (converted when it differs).
void ReplaceCharAt(UtCString& s, int i, const void* c, unsigned short e) {
    const int64_t from = UnitOffset(s, i);
    Splice(s, from, UnitOffset(s, i + 1) - from, c, 1, e, nullptr, 0, UtCStringAccess::Encoding(s));
}
}  // namespace

void UtCString::SetAt(int i, char c) {
    if (i < 0 || i >= length_) return;
    if (isAnsiEncodingType()) {
        static_cast<char*>(text_)[i] = c;
    } else {
        ReplaceCharAt(*this, i, &c, systemEncodingType());
    }
}

void UtCString::SetAt(int i, char16_t c) {
    if (i < 0 || i >= length_) return;
    if (isUtf16EncodingType()) {
        static_cast<char16_t*>(text_)[i] = c;
    } else {
        ReplaceCharAt(*this, i, &c, eUtEncodingTypeUtf16);
    }
}

uint64_t UtCString::BufferSize() const {
    if (text_ == nullptr) return isAnsiEncodingType() ? 1 : 0;
    if (isUtf16EncodingType()) return 2 * (static_cast<uint64_t>(UtCUtf16::Length(uptr())) + 1);
    const char* t = ptr();
    if (isAnsiEncodingType() && length_ >= 0 && t[length_] == 0) return static_cast<uint64_t>(length_) + 1;
    return std::strlen(t) + 1;
}

uint64_t UtCString::hash() const {
    const auto* bytes = static_cast<const unsigned char*>(text_);
    uint64_t n = 0;
    if (bytes != nullptr) {
        if (isUtf16EncodingType() || isUtf8EncodingType()) {
            n = BufferSize();  // terminator included
        } else if (length_ >= 1) {
            n = static_cast<uint64_t>(length_);
        }
    }
    // h = (h << 1) ^ b per byte, b sign-extended. Shifts distribute over XOR, so eight bytes fold
    // into one term that does not depend on h: h = (h << 8) ^ (b0 << 7) ^ ... ^ b7.
    auto ext = [](unsigned char c) { return static_cast<uint64_t>(static_cast<int64_t>(static_cast<signed char>(c))); };
    uint64_t h = 0;
    uint64_t i = 0;
    for (; i + 8 <= n; i += 8) {
        const unsigned char* p = bytes + i;
        const uint64_t term = (ext(p[0]) << 7) ^ (ext(p[1]) << 6) ^ (ext(p[2]) << 5) ^ (ext(p[3]) << 4) ^
                              (ext(p[4]) << 3) ^ (ext(p[5]) << 2) ^ (ext(p[6]) << 1) ^ ext(p[7]);
        h = (h << 8) ^ term;
    }
    for (; i < n; ++i) h = (h << 1) ^ ext(bytes[i]);
    const uint64_t t = h >> 10;
    return (t >> 10) ^ t ^ h;
}

// ---- conversion -------------------------------------------------------------------------------

bool UtCString::ChangeEncodingType(eUtEncodingType target) {
    const unsigned short e = MapEncodingType(target);
    if (e == encoding_) return true;
    if (!UtCUtf::IsAvailable(e) || !UtCUtf::IsAvailable(encoding_)) return false;
    const Span s = StoredSpan(*this);
    const UtCUtf::Result r = UtCUtf::Convert(s.text, s.units, encoding_, e, true);
    if (!r.ok) return false;
    encoding_ = e;
    return Adopt(r.text, r.units);
}

bool UtCString::ToAnsi(eUtEncodingType target) {
    const unsigned short e = MapEncodingType(target);
    if (UtCUtf::IsUtf16(e)) return false;
    return ChangeEncodingType(static_cast<eUtEncodingType>(e));
}

bool UtCString::ToAnsiIfRepresentable(eUtEncodingType target) {
    const unsigned short e = MapEncodingType(target);
    if (UtCUtf::IsUtf16(e) || !UtCUtf::IsAvailable(e) || !UtCUtf::IsAvailable(encoding_)) return false;
    if (e == encoding_) return true;
    const Span s = StoredSpan(*this);
    const UtCUtf::Result r = UtCUtf::Convert(s.text, s.units, encoding_, e, true);
    if (!r.ok) return false;
    if (r.replaced != 0) {
        UtFreeMemory(r.text);
        return false;
    }
    encoding_ = e;
    return Adopt(r.text, r.units);
}

bool UtCString::ToUnicode(eUtEncodingType target) {
    if (!UtCUtf::IsUtf16(target) && !UtCUtf::IsUtf8(target)) return false;
    return ChangeEncodingType(target);
}

int UtCString::GetAnsiString(char** out, eUtEncodingType target) const {
    if (out == nullptr) return -1;
    *out = nullptr;
    const unsigned short e = MapEncodingType(target);
    if (UtCUtf::IsUtf16(e)) return -1;
    const Span s = StoredSpan(*this);
    const UtCUtf::Result r = UtCUtf::Convert(s.text, s.units, encoding_, e, false);
    if (!r.ok) return -1;
    *out = static_cast<char*>(r.text);
    return static_cast<int>(r.units);
}

std::string UtCString::GetAnsiString() const {
    char* p = nullptr;
    const int n = GetAnsiString(&p, eUtEncodingTypeSystemDefault);
    const FreeAtExit owner{p};
    return n > 0 ? std::string(p, static_cast<size_t>(n)) : std::string();
}

int UtCString::GetUtf8String(char** out, int withBom) const {
    if (out == nullptr) return -1;
    *out = nullptr;
    const Span s = StoredSpan(*this);
    const UtCUtf::Result r = UtCUtf::Convert(s.text, s.units, encoding_, kUtf8, withBom != 0);
    if (!r.ok) return -1;
    *out = static_cast<char*>(r.text);
    return static_cast<int>(r.units);
}

std::string UtCString::GetUtf8String(int withBom) const {
    char* p = nullptr;
    const int n = GetUtf8String(&p, withBom);
    const FreeAtExit owner{p};
    return n > 0 ? std::string(p, static_cast<size_t>(n)) : std::string();
}

int UtCString::GetUtf16String(char16_t** out) const {
    if (out == nullptr) return -1;
    *out = nullptr;
    const Span s = StoredSpan(*this);
    const UtCUtf::Result r = UtCUtf::Convert(s.text, s.units, encoding_, eUtEncodingTypeUtf16);
    if (!r.ok) return -1;
    *out = static_cast<char16_t*>(r.text);
    return static_cast<int>(r.units);
}

std::u16string UtCString::GetUtf16String() const {
    char16_t* p = nullptr;
    const int n = GetUtf16String(&p);
    const FreeAtExit owner{p};
    return n > 0 ? std::u16string(p, static_cast<size_t>(n)) : std::u16string();
}

bool UtCString::toCharArray(char* out, const uint64_t& size, const eUtEncodingType& target) const {
    if (out == nullptr || size == 0) return false;
    const unsigned short e = MapEncodingType(target);
    const int elem = UtCUtf::IsUtf16(e) ? 2 : 1;
    const Span s = StoredSpan(*this);
    const UtCUtf::Result r = UtCUtf::Convert(s.text, s.units, encoding_, e, false);
    const uint64_t need = r.ok ? (static_cast<uint64_t>(r.units) + 1) * elem : 0;
    const bool fits = r.ok && need <= size;
    if (fits) {
        std::memcpy(out, r.text, need);
    } else if (size >= static_cast<uint64_t>(elem)) {
        std::memset(out, 0, elem);
    }
    UtFreeMemory(r.text);
    return fits;
}

int64_t UtCString::GetMemCopy(void** out, eUtEncodingType* e) const {
    if (out == nullptr) return -1;
    *out = nullptr;
    const uint64_t bytes = BufferSize();
    if (e != nullptr) *e = encodingType();
    if (bytes == 0) return 0;
    if (TextAlloc(out, bytes, 1) != kUtMemOk) return -1;
    std::memcpy(*out, text_, bytes);
    return static_cast<int64_t>(bytes);
}

bool UtCString::SetMemCopy(const void* bytes, int64_t byteCount, eUtEncodingType e) {
    if (bytes == nullptr || byteCount <= 0) {
        SetEmpty();
        return true;
    }
    if (UtCUtf::IsUtf16(e)) {
        int64_t units = byteCount / 2;
        const auto* w = static_cast<const char16_t*>(bytes);
        int64_t n = 0;
        while (n < units && w[n] != 0) ++n;
        return Set(w, n == 0 ? -1 : n) || n == 0;
    }
    const auto* c = static_cast<const char*>(bytes);
    const auto* nul = static_cast<const char*>(std::memchr(c, 0, static_cast<size_t>(byteCount)));
    const int64_t n = nul != nullptr ? nul - c : byteCount;
    if (n == 0) {
        SetEmpty();
        return true;
    }
    return Set(c, n, e);
}

// ---- memory record ------------------------------------------------------------------------------

bool UtCString::SaveToMem(unsigned char** block, uint64_t& size) const {
    if (block == nullptr) return false;
    const uint64_t n = BufferSize();
    void* p = *block;
    if (TextAlloc(&p, size + kRecordHeader + n, 1) != kUtMemOk) return false;
    auto* out = static_cast<unsigned char*>(p) + size;
    PutLE64(out, kRecordVersion);
    PutLE32(out + 8, encoding_);
    PutLE32(out + 12, static_cast<uint32_t>(length_));
    PutLE64(out + 16, n);
    if (n != 0) std::memcpy(out + kRecordHeader, text_, n);
    *block = static_cast<unsigned char*>(p);
    size += kRecordHeader + n;
    return true;
}

namespace {

// Reads a record's text into a new block of n + 1 elements; null when refused.
void* ReadRecordText(const unsigned char* src, uint64_t n, bool wide) {
    const uint64_t elem = wide ? 2 : 1;
    void* p = nullptr;
    if (n >= UINT64_MAX / 2 - 2) return nullptr;
    if (TextAlloc(&p, n + 1, elem) != kUtMemOk) return nullptr;
    std::memcpy(p, src, n);
    // Terminate at the element after the copied bytes (and the byte after them, for an odd count).
    auto* bytes = static_cast<unsigned char*>(p);
    std::memset(bytes + n, 0, static_cast<size_t>((n + 1) * elem - n));
    return p;
}

}  // namespace

bool UtCString::ReadFromMem(const unsigned char* block, uint64_t& offset) {
    if (block == nullptr) return false;
    const unsigned char* rec = block + offset;
    // 256 and 65535 are never stored in a string; a record naming them means the system encoding.
    uint16_t e = static_cast<uint16_t>(GetLE32(rec + 8));
    if (e == eUtEncodingTypeSystemDefault || e == eUtEncodingTypeUnknown) e = MapEncodingType(eUtEncodingTypeSystemDefault);
    const auto len = static_cast<int32_t>(GetLE32(rec + 12));
    const uint64_t n = GetLE64(rec + 16);
    void* p = ReadRecordText(rec + kRecordHeader, n, UtCUtf::IsUtf16(e));
    if (p == nullptr) return false;
    if (!IsStaticEmpty(text_)) UtFreeMemory(text_);
    text_ = p;
    encoding_ = e;
    length_ = len;
    offset += kRecordHeader + n;
    return true;
}

bool UtCString::ReadFromMem(const unsigned char* block, uint64_t blockSize, uint64_t& offset) {
    if (block == nullptr || offset > blockSize || blockSize - offset < kRecordHeader) return false;
    const unsigned char* rec = block + offset;
    const uint16_t e = static_cast<uint16_t>(GetLE32(rec + 8));
    const auto len = static_cast<int32_t>(GetLE32(rec + 12));
    const uint64_t n = GetLE64(rec + 16);
    if (n > blockSize - offset - kRecordHeader) return false;
    if (e == eUtEncodingTypeSystemDefault || e == eUtEncodingTypeUnknown) return false;  // never stored
    // The stored length must agree with the text, or later members would index past the buffer.
    const bool wide = UtCUtf::IsUtf16(e);
    const unsigned char* t = rec + kRecordHeader;
    if (len < 0) return false;
    if (wide) {
        if (n < 2 || n % 2 != 0 || t[n - 1] != 0 || t[n - 2] != 0) return false;
        const uint64_t units = n / 2 - 1;
        for (uint64_t i = 0; i < units; ++i) {
            if (t[2 * i] == 0 && t[2 * i + 1] == 0) return false;
        }
        if (static_cast<uint64_t>(len) != units) return false;
    } else {
        if (n < 1 || t[n - 1] != 0 || std::memchr(t, 0, static_cast<size_t>(n - 1)) != nullptr) return false;
        if (e == kUtf8) {
            if (!UtCUtf8::HasBOM(reinterpret_cast<const char*>(t), static_cast<int64_t>(n - 1))) return false;
            if (static_cast<int64_t>(len) !=
                UtCUtf8::CountCodePoints(reinterpret_cast<const char*>(t) + 3, static_cast<int64_t>(n - 4))) {
                return false;
            }
        } else if (static_cast<uint64_t>(len) != n - 1) {
            return false;
        }
    }
    void* p = ReadRecordText(t, n, wide);
    if (p == nullptr) return false;
    if (!IsStaticEmpty(text_)) UtFreeMemory(text_);
    text_ = p;
    encoding_ = e;
    length_ = len;
    offset += kRecordHeader + n;
    return true;
}

// ---- scratch buffers ------------------------------------------------------------------------------

namespace {
void* GetScratch(uint16_t& index, int n, bool wide) {
    auto& map = ScratchMap();
    if (index != 0) {
        auto it = map.find(index);
        if (it != map.end() && it->second.block != nullptr) return nullptr;  // one at a time
        if (it != map.end()) map.erase(it);
        index = 0;  // stale
    }
    if (n >= 0) {
        void* p = nullptr;
        if (UtAllocMemoryBlock(&p, static_cast<uint64_t>(n) + 4, wide ? 2 : 1) != kUtMemOk) return nullptr;
        if (wide) {
            static_cast<char16_t*>(p)[0] = 0;
        } else {
            static_cast<char*>(p)[0] = 0;
        }
        const uint16_t next = NextScratchIndex();
        if (next == 0) {
            UtFreeMemory(p);
            return nullptr;
        }
        try {
            map[next] = ScratchBlock{p, wide};
        } catch (...) {  // std::bad_alloc from the map: the block has no owner yet
            UtFreeMemory(p);
            throw;
        }
        index = next;
    }
    auto it = map.find(index);
    return it != map.end() ? it->second.block : nullptr;
}
}  // namespace

char* UtCString::GetBuffer(int n) { return static_cast<char*>(GetScratch(bufferIndex_, n, false)); }

char16_t* UtCString::GetUBuffer(int n) { return static_cast<char16_t*>(GetScratch(bufferIndex_, n, true)); }

void UtCString::ReleaseBufferImpl(bool assign, unsigned short e, bool wide) {
    auto& map = ScratchMap();
    auto it = map.find(bufferIndex_);
    if (it == map.end()) {
        bufferIndex_ = 0;
        return;
    }
    const ScratchBlock b = it->second;
    map.erase(it);
    bufferIndex_ = 0;
    if (assign && b.block != nullptr) {
        if (wide || b.wide) {
            Set(static_cast<const char16_t*>(b.block), -1);
        } else {
            Set(static_cast<const char*>(b.block), -1, e);
        }
    }
    UtFreeMemory(b.block);
}

void UtCString::ReleaseBuffer(eUtEncodingType e) { ReleaseBufferImpl(true, e, false); }

void UtCString::ReleaseUBuffer() { ReleaseBufferImpl(true, eUtEncodingTypeUtf16, true); }
