// The GAEB classes: fields, lists and the stored form.
#include "kbase/gaeb/UtGAEB.h"

#include <charconv>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "basert/files.h"
#include "basert/memory.h"
#include "kbase/gaeb/internal/format.h"
#include "kbase/gaeb/internal/reader.h"

using kbase_gaeb_internal::kAfterEnd;
using kbase_gaeb_internal::Kept;

namespace {

constexpr auto kFileCodePage = eUtEncodingTypeAnsi1252;

int CopyIn(char* field, size_t size, const char* text) {
    if (text == nullptr) text = "";
    size_t n = std::strlen(text);
    int status = kGAEBOk;
    if (n > size - 1) {
        n = size - 1;  // 1252 has one byte per character, so any byte is a character boundary
        status = kGAEBTextCut;
    }
    std::memmove(field, text, n);
    field[n] = '\0';
    return status;
}

// The text in 1252, converted from its own encoding (through the system's, a character that page
// lacks would become '?' unnoticed); status is kGAEBTextReplaced when a character became '?'.
// Throws std::bad_alloc when memory is short, before any field is touched: an emptied field
// would be stored as if the text had been empty.
class FileText {
  public:
    FileText(const UtCString& text, int& status) {
        status = kGAEBOk;
        const char16_t* wide = text.isUtf16EncodingType() ? text.uptr() : nullptr;
        const void* units = wide != nullptr ? static_cast<const void*>(wide) : text.ptr();
        if (units == nullptr) return;
        const UtCUtf::Result r = UtCUtf::Convert(units, -1, text.encodingType(), kFileCodePage);
        if (!r.ok) throw std::bad_alloc();
        bytes_ = static_cast<char*>(r.text);
        if (r.replaced != 0) status = kGAEBTextReplaced;
    }
    ~FileText() { UtFreeMemory(bytes_); }
    FileText(const FileText&) = delete;
    FileText& operator=(const FileText&) = delete;
    const char* c_str() const { return bytes_ != nullptr ? bytes_ : ""; }

  private:
    char* bytes_ = nullptr;
};

int CopyIn(char* field, size_t size, const UtCString& text) {
    int status = kGAEBOk;
    const FileText converted(text, status);
    return status | CopyIn(field, size, converted.c_str());
}

// Copies a field into a caller's buffer; kGAEBTextCut when it does not fit, 3011 for no buffer.
int CopyOut(const char* field, char* out, size_t size) {
    if (out == nullptr || size == 0) return kGAEBNullFile;
    return CopyIn(out, size, field);
}

// A store writes through one buffer: every line of a bill is formatted straight into it, and it
// reaches the stream in writes of kChunk bytes. The outermost Store of a file sets it up and hands
// its rest on before it returns; nested Store calls find it through one thread-local pointer. A
// failed write stops the buffer: what was handed on stays written, later lines are refused.
// A chunk that stays in the processor's cache while the stream copies it out.
constexpr size_t kChunk = size_t{1} << 18;
constexpr size_t kFirstChunk = size_t{1} << 14;  // a small store allocates little

// The full-size buffer of the last large store on this thread, for the next one: fresh memory
// costs a page fault per page, more than formatting it does.
thread_local std::unique_ptr<char[]> spare;

class Sink {
  public:
    explicit Sink(FILE* file) : file_(file) {
        if (spare != nullptr) {
            data_ = spare.release();
            size_ = cap_ = kChunk;
        }
    }
    ~Sink() {
        if (size_ == kChunk && spare == nullptr) {
            spare.reset(data_);
        } else {
            delete[] data_;
        }
    }
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    FILE* File() const { return file_; }

    // Room for n more bytes at the end of the buffer (n <= kChunk), null after a failed write.
    char* Room(size_t n) {
        if (n <= cap_ - used_) return data_ + used_;
        return MakeRoom(n);
    }
    void Commit(char* end) { used_ = static_cast<size_t>(end - data_); }

    bool Append(const char* p, size_t n) {
        if (n <= cap_ - used_) {
            std::memcpy(data_ + used_, p, n);
            used_ += n;
            return true;
        }
        return AppendLong(p, n);
    }

    // Hands the buffer on; false when this or an earlier write failed.
    bool Drain() {
        if (!failed_ && used_ != 0 && std::fwrite(data_, 1, used_, file_) != used_) {
            failed_ = true;
            cap_ = 0;  // no room from now on: every later line is refused
        }
        used_ = 0;
        return !failed_;
    }

  private:
    char* MakeRoom(size_t n) {
        if (failed_) return nullptr;
        if (size_ < kChunk) {  // grow while the buffer is small
            size_t size = size_ == 0 ? kFirstChunk : size_ * 2;
            while (size < used_ + n && size < kChunk) size *= 2;
            char* data = new char[size];
            if (used_ != 0) std::memcpy(data, data_, used_);
            delete[] data_;
            data_ = data;
            size_ = cap_ = size;
            if (n <= cap_ - used_) return data_ + used_;
        }
        if (!Drain() || n > cap_) return nullptr;
        return data_;
    }

    bool AppendLong(const char* p, size_t n) {
        while (n != 0) {
            const size_t part = n < kChunk ? n : kChunk;
            char* room = Room(part);
            if (room == nullptr) return false;
            std::memcpy(room, p, part);
            used_ += part;
            p += part;
            n -= part;
        }
        return true;
    }

    FILE* file_;
    char* data_ = nullptr;
    size_t size_ = 0;  // allocated
    size_t cap_ = 0;   // usable: size_, or 0 after a failed write
    size_t used_ = 0;
    bool failed_ = false;
};

// The buffer of the store running on this thread; a plain pointer, so that reaching it costs no
// initialisation check.
thread_local Sink* current = nullptr;

// The buffer for file, null when no store of that file runs (a direct call of StoreLineStart or of
// a value's Store then writes at once).
Sink* SinkFor(FILE* file) {
    Sink* s = current;
    return (s != nullptr && s->File() == file) ? s : nullptr;
}

bool Put(FILE* file, const char* p, size_t n) {
    if (Sink* s = SinkFor(file)) return s->Append(p, n);
    return n == 0 || std::fwrite(p, 1, n, file) == n;
}

// Buffers the writes of one Store call and its children; a store of another file inside it (an
// application's object storing elsewhere) gets a buffer of its own.
class BufferedStore {
  public:
    explicit BufferedStore(FILE* file) : outer_(current) {
        if (SinkFor(file) == nullptr) {
            own_ = new Sink(file);
            current = own_;
        }
    }
    ~BufferedStore() {
        if (own_ != nullptr) {
            own_->Drain();
            current = outer_;
            delete own_;
        }
    }
    BufferedStore(const BufferedStore&) = delete;
    BufferedStore& operator=(const BufferedStore&) = delete;
    // The status with the handing on of the buffer's rest (the call that set it up only).
    int Finish(int status) {
        if (own_ != nullptr && !own_->Drain() && status == kGAEBOk) return kGAEBWriteFailed;
        return status;
    }

  private:
    Sink* outer_;
    Sink* own_ = nullptr;
};

// Blanks by the 64; more go out in several writes.
constexpr char kBlanks[] = "                                                                ";

// Bytes a line may take beyond its own in the buffer: the blanks and the short pieces are copied
// in fixed sizes (a copy of known size is a few moves, not a call).
constexpr size_t kSlack = 64;
// A value up to this size is formatted straight into the buffer; a longer one is written apart.
constexpr size_t kDirectValue = kChunk / 2;

size_t Blanks(int indent) {
    return indent > 0 ? static_cast<size_t>(indent) : 0;
}

// Writes "<indent blanks><a><b><c>" where b may be long: put together first, so that it is one
// write when unbuffered.
int PutPieces(FILE* file, int indent, std::string_view a, std::string_view b, std::string_view c) {
    std::string line(Blanks(indent), ' ');
    line.append(a).append(b).append(c);
    return Put(file, line.data(), line.size()) ? kGAEBOk : kGAEBWriteFailed;
}

// "<indent blanks>[key]value[end]\n"; key is a literal.
template <size_t N>
int PutValue(FILE* file, int indent, const char (&key)[N], std::string_view value) {
    static_assert(N + 8 <= kSlack);
    if (file == nullptr) return kGAEBNullFile;
    Sink* s = SinkFor(file);
    const size_t blanks = Blanks(indent);
    if (s == nullptr || blanks > 64 || value.size() > kDirectValue) {
        return PutPieces(file, indent, std::string_view("[", 1), std::string_view(key, N - 1),
                         std::string("]").append(value).append("[end]\n"));
    }
    char* p = s->Room(blanks + value.size() + 2 * kSlack);
    if (p == nullptr) return kGAEBWriteFailed;
    std::memcpy(p, kBlanks, 64);
    p += blanks;
    *p++ = '[';
    std::memcpy(p, key, N - 1);
    p += N - 1;
    *p++ = ']';
    std::memcpy(p, value.data(), value.size());
    p += value.size();
    std::memcpy(p, "[end]\n", 6);
    s->Commit(p + 6);
    return kGAEBOk;
}

template <size_t N>
int PutValue(FILE* file, int indent, const char (&key)[N], int value) {
    char buf[16];
    const auto r = std::to_chars(buf, buf + sizeof buf, value);
    return PutValue(file, indent, key, std::string_view(buf, static_cast<size_t>(r.ptr - buf)));
}

}  // namespace

// ---- UtGAEBObject -------------------------------------------------------------------------------

UtGAEBObject::UtGAEBObject() = default;

UtGAEBObject::~UtGAEBObject() {
    delete kept_;
}

size_t UtGAEBObject::GetKeptCount() const {
    return kept_ == nullptr ? 0 : kept_->items.size();
}

void UtGAEBObject::ResetKept() {
    delete kept_;
    kept_ = nullptr;
    absent_ = 0;
}

void UtGAEBObject::Keep(int anchor, int shadow, std::string raw) {
    if (kept_ == nullptr) kept_ = new Kept;
    kept_->items.push_back({anchor, shadow, std::move(raw)});
}

void UtGAEBObject::SetAbsent(int slot, bool on) {
    if (slot <= 0 || slot >= 32) return;
    if (on) {
        absent_ |= 1u << slot;
    } else {
        absent_ &= ~(1u << slot);
    }
}

int UtGAEBObject::SetText(char* field, size_t size, int slot, const char* text) {
    SetAbsent(slot, false);
    return CopyIn(field, size, text);
}

int UtGAEBObject::SetText(char* field, size_t size, int slot, const UtCString& text) {
    const int status = CopyIn(field, size, text);
    SetAbsent(slot, false);
    return status;
}

bool UtGAEBObject::Fresh(int slot) {
    if (slot <= 0 || slot >= 32) return true;
    const uint32_t bit = 1u << slot;
    if ((seen_ & bit) != 0) {
        duplicate_ = slot;
        return false;
    }
    seen_ |= bit;
    return true;
}

int UtGAEBObject::StoreLineStart(FILE* file, int indent) {
    if (file == nullptr) return kGAEBNullFile;
    for (int left = indent; left > 0; left -= 64) {
        if (!Put(file, kBlanks, static_cast<size_t>(left < 64 ? left : 64)))
            return kGAEBWriteFailed;
    }
    return kGAEBOk;
}

int UtGAEBObject::StoreTag(FILE* file, int indent, const char* what, bool lineFeed) {
    if (file == nullptr) return kGAEBNullFile;
    const std::string_view name = GetBlockName();
    const std::string_view head = what;
    Sink* s = SinkFor(file);
    const size_t blanks = Blanks(indent);
    if (s == nullptr || blanks > 64 || head.size() + name.size() > kSlack) {
        return PutPieces(file, indent, head, name, lineFeed ? "]\n" : "]");
    }
    char* p = s->Room(blanks + 3 * kSlack);
    if (p == nullptr) return kGAEBWriteFailed;
    std::memcpy(p, kBlanks, 64);
    p += blanks;
    std::memcpy(p, head.data(), head.size());
    p += head.size();
    std::memcpy(p, name.data(), name.size());
    p += name.size();
    p[0] = ']';
    p[1] = '\n';
    s->Commit(p + (lineFeed ? 2 : 1));
    return kGAEBOk;
}

int UtGAEBObject::StoreValue(FILE* file, int indent, const char* key, const char* value) {
    if (file == nullptr) return kGAEBNullFile;
    return PutPieces(file, indent, "[", key, std::string("]").append(value).append("[end]\n"));
}

int UtGAEBObject::StoreValue(FILE* file, int indent, const char* key, int value) {
    return StoreValue(file, indent, key, std::to_string(value).c_str());
}

int UtGAEBObject::StoreKept(FILE* file, int anchor) const {
    if (kept_ == nullptr) return kGAEBOk;
    for (const auto& item : kept_->items) {
        if (item.anchor != anchor) continue;
        if (item.shadow > 0 && !IsAbsent(item.shadow)) continue;  // the value was set since
        if (!Put(file, item.raw.data(), item.raw.size())) return kGAEBWriteFailed;
    }
    return kGAEBOk;
}

int UtGAEBObject::StoreSlot(FILE*, int, int) {
    return kGAEBOk;
}

int UtGAEBObject::StoreBlock(FILE* file, int indent, bool lineFeed) {
    if (file == nullptr) return kGAEBNullFile;
    BufferedStore buffered(file);
    // Most objects of a bill hold nothing kept: their block is the model's lines alone.
    const bool kept = kept_ != nullptr;
    int status = kept ? StoreKept(file, -1) : kGAEBOk;
    if (status == kGAEBOk) status = StoreTag(file, indent, "#begin[");
    if (status == kGAEBOk && kept) status = StoreKept(file, 0);
    const int slots = GetSlotCount();
    for (int slot = 1; slot <= slots && status == kGAEBOk; ++slot) {
        if (!IsAbsent(slot)) status = StoreSlot(file, indent + 1, slot);
        if (status == kGAEBOk && kept) status = StoreKept(file, slot);
    }
    // Text that followed the end tag on its line (a writer's trailer) goes back there.
    if (status == kGAEBOk) status = StoreTag(file, indent, "#end[", false);
    if (status == kGAEBOk && kept) status = StoreKept(file, kAfterEnd);
    if (status == kGAEBOk && lineFeed && !Put(file, "\n", 1)) status = kGAEBWriteFailed;
    return buffered.Finish(status);
}

int UtGAEBObject::Store(FILE* file, int indent) {
    return StoreBlock(file, indent, true);
}

// ---- UtGAEBDatum --------------------------------------------------------------------------------

UtGAEBDatum::UtGAEBDatum() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
#if defined(_WIN32)
    localtime_s(&local, &now);
#else
    localtime_r(&now, &local);
#endif
    SetDate(static_cast<unsigned short>(local.tm_mday),
            static_cast<unsigned short>(local.tm_mon + 1),
            static_cast<unsigned short>(local.tm_year + 1900));
}

void UtGAEBDatum::SetDate(unsigned short day, unsigned short month, unsigned short year) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%02u.%02u.%04u", day, month, year);
    CopyIn(datum_, sizeof datum_, buf);
    SetAbsent(1, false);
}

// Part index of "DD.MM.YYYY": 0 day, 1 month, 2 year.
unsigned short UtGAEBDatum::Part(int index) const {
    const char* p = datum_;
    for (int i = 0; i < index; ++i) {
        p = std::strchr(p, '.');
        if (p == nullptr) return 0;
        ++p;
    }
    unsigned value = 0;
    const char* end = p + std::strcspn(p, ".");
    const auto r = std::from_chars(p, end, value);
    return (r.ec == std::errc() && r.ptr == end && value <= 65535)
               ? static_cast<unsigned short>(value)
               : 0;
}

unsigned short UtGAEBDatum::GetDay() const {
    return Part(0);
}
unsigned short UtGAEBDatum::GetMonth() const {
    return Part(1);
}
unsigned short UtGAEBDatum::GetYear() const {
    return Part(2);
}
int UtGAEBDatum::GetDatum(char* out, size_t size) const {
    return CopyOut(datum_, out, size);
}
int UtGAEBDatum::SetDatum(const char* text) {
    return SetText(datum_, sizeof datum_, 1, text);
}

int UtGAEBDatum::Store(FILE* file, int indent) {
    if (file == nullptr) return kGAEBNullFile;
    return PutValue(file, indent, "Datum", datum_);
}

// ---- UtGAEBInfo ---------------------------------------------------------------------------------

UtGAEBInfo::UtGAEBInfo() {
    CopyIn(version_, sizeof version_, "1.2");
    CopyIn(zeichensatz_, sizeof zeichensatz_, "ANSI");
}

int UtGAEBInfo::GetVersion(char* out, size_t size) const {
    return CopyOut(version_, out, size);
}
int UtGAEBInfo::SetVersion(const char* text) {
    return SetText(version_, sizeof version_, kVersion, text);
}
int UtGAEBInfo::SetVersion(const UtCString& text) {
    return SetText(version_, sizeof version_, kVersion, text);
}
void UtGAEBInfo::SetVersMon(short v) {
    versMon_ = v;
    SetAbsent(kVersMon, false);
}
void UtGAEBInfo::SetVersJahr(short v) {
    versJahr_ = v;
    SetAbsent(kVersJahr, false);
}
int UtGAEBInfo::GetZeichensatz(char* out, size_t size) const {
    return CopyOut(zeichensatz_, out, size);
}
int UtGAEBInfo::SetZeichensatz(const char* text) {
    return SetText(zeichensatz_, sizeof zeichensatz_, kZeichensatz, text);
}

int UtGAEBInfo::StoreSlot(FILE* file, int indent, int slot) {
    switch (slot) {
        case kVersion:
            return PutValue(file, indent, "Version", version_);
        case kVersMon:
            return PutValue(file, indent, "VersMon", versMon_);
        case kVersJahr:
            return PutValue(file, indent, "VersJahr", versJahr_);
        case kDatum:
            return datum_.Store(file, indent);
        case kZeichensatz:
            return PutValue(file, indent, "Zeichensatz", zeichensatz_);
        default:
            return kGAEBOk;
    }
}

// ---- UtGAEBLVGlied ------------------------------------------------------------------------------

UtGAEBLVGlied::UtGAEBLVGlied() {
    flag_ = 1;
}

GAEB_LV_KEY_TYPE UtGAEBLVGlied::GetKeyType() const {
    if (std::strcmp(typ_, "LVStufe") == 0) return eGAEBLVKeyLVStufe;
    if (std::strcmp(typ_, "Position") == 0) return eGAEBLVKeyPosition;
    return eGAEBLVKeyOther;
}

int UtGAEBLVGlied::GetTyp(char* out, size_t size) const {
    return CopyOut(typ_, out, size);
}
int UtGAEBLVGlied::SetTyp(const char* text) {
    return SetText(typ_, sizeof typ_, kTyp, text);
}
int UtGAEBLVGlied::GetBez(char* out, size_t size) const {
    return CopyOut(bez_, out, size);
}
int UtGAEBLVGlied::SetBez(const char* text) {
    return SetText(bez_, sizeof bez_, kBez, text);
}
int UtGAEBLVGlied::SetBez(const UtCString& text) {
    return SetText(bez_, sizeof bez_, kBez, text);
}
void UtGAEBLVGlied::SetLaenge(short v) {
    laenge_ = v;
    SetAbsent(kLaenge, false);
}

int UtGAEBLVGlied::StoreSlot(FILE* file, int indent, int slot) {
    switch (slot) {
        case kTyp:
            return PutValue(file, indent, "Typ", typ_);
        case kBez:
            if (GetKeyType() != eGAEBLVKeyLVStufe || flag_ == 0) return kGAEBOk;
            return PutValue(file, indent, "Bez", bez_);
        case kLaenge:
            return PutValue(file, indent, "Laenge", laenge_);
        default:
            return kGAEBOk;
    }
}

// ---- UtGAEBLVInfo -------------------------------------------------------------------------------

UtGAEBLVInfo::~UtGAEBLVInfo() {
    ResetLVGliedList();
}

int UtGAEBLVInfo::GetName(char* out, size_t size) const {
    return CopyOut(name_, out, size);
}
int UtGAEBLVInfo::SetName(const char* text) {
    return SetText(name_, sizeof name_, kName, text);
}
int UtGAEBLVInfo::SetName(const UtCString& text) {
    return SetText(name_, sizeof name_, kName, text);
}
int UtGAEBLVInfo::GetBez(char* out, size_t size) const {
    return CopyOut(bez_, out, size);
}
int UtGAEBLVInfo::SetBez(const char* text) {
    return SetText(bez_, sizeof bez_, kBez, text);
}
int UtGAEBLVInfo::SetBez(const UtCString& text) {
    return SetText(bez_, sizeof bez_, kBez, text);
}
void UtGAEBLVInfo::SetKurzLang(short v) {
    kurzLang_ = v;
    SetAbsent(kKurzLang, false);
}
void UtGAEBLVInfo::AddLVGlied(UtGAEBLVGlied* glied) {
    std::unique_ptr<UtGAEBLVGlied> owned(glied);  // deleted if the list cannot grow
    if (owned != nullptr) glieder_.push_back(owned.get());
    owned.release();
}
UtGAEBLVGlied* UtGAEBLVInfo::GetLVGliedPtr(int index) const {
    return (index >= 0 && index < GetLVGliedCount()) ? glieder_[static_cast<size_t>(index)]
                                                     : nullptr;
}
void UtGAEBLVInfo::ResetLVGliedList() {
    for (UtGAEBLVGlied* g : glieder_) delete g;
    glieder_.clear();
}

int UtGAEBLVInfo::StoreSlot(FILE* file, int indent, int slot) {
    switch (slot) {
        case kName:
            return PutValue(file, indent, "Name", name_);
        case kBez:
            return PutValue(file, indent, "Bez", bez_);
        case kKurzLang:
            return PutValue(file, indent, "KurzLang", kurzLang_);
        default: {
            UtGAEBLVGlied* g = GetLVGliedPtr(slot - kGlieder);
            return g == nullptr ? kGAEBOk : g->Store(file, indent);
        }
    }
}

// ---- entity lists -------------------------------------------------------------------------------

UtGAEBEntityList::~UtGAEBEntityList() {
    Reset();
}

void UtGAEBEntityList::Add(UtGAEBLVEntity* entity) {
    std::unique_ptr<UtGAEBLVEntity> owned(entity);  // deleted if the list cannot grow
    if (owned != nullptr) items_.push_back(owned.get());
    owned.release();
}

UtGAEBLVEntity* UtGAEBEntityList::Get(int index) const {
    return (index >= 0 && index < Count()) ? items_[static_cast<size_t>(index)] : nullptr;
}

void UtGAEBEntityList::Reset() {
    for (UtGAEBLVEntity* e : items_) delete e;
    items_.clear();
}

namespace {

std::string_view Trimmed(const char* text) {
    std::string_view s(text);
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
}

}  // namespace

UtGAEBLVBereich* UtGAEBEntityList::FindLVBereich(const char* oz) const {
    if (oz == nullptr) return nullptr;
    const std::string_view wanted = Trimmed(oz);
    for (UtGAEBLVEntity* e : items_) {
        if (e->GetLVEntityType() != eGAEBLVEntityBereich) continue;
        auto* range = static_cast<UtGAEBLVBereich*>(e);
        if (Trimmed(range->GetOZ()) == wanted) return range;
        if (UtGAEBLVBereich* inner = range->FindLVBereich(oz)) return inner;
    }
    return nullptr;
}

int UtGAEBEntityList::StoreItem(FILE* file, int indent, int index) const {
    UtGAEBLVEntity* e = Get(index);
    return e == nullptr ? kGAEBOk : e->Store(file, indent);
}

UtGAEBLVEntity* UtGAEBEntityList::AddFor(const std::string& blockName) {
    UtGAEBLVEntity* e = nullptr;
    if (kbase_gaeb_internal::NameIs(blockName, "LVBereich")) {
        e = new UtGAEBLVBereich;
    } else if (kbase_gaeb_internal::NameIs(blockName, "Position")) {
        e = new UtGAEBPosition;
    }
    Add(e);
    return e;
}

// ---- UtGAEBLVBereich ----------------------------------------------------------------------------

int UtGAEBLVBereich::GetOZ(char* out, size_t size) const {
    return CopyOut(oz_, out, size);
}
int UtGAEBLVBereich::SetOZ(const char* text) {
    return SetText(oz_, sizeof oz_, kOZ, text);
}
int UtGAEBLVBereich::SetOZ(const UtCString& text) {
    return SetText(oz_, sizeof oz_, kOZ, text);
}
int UtGAEBLVBereich::GetBez(char* out, size_t size) const {
    return CopyOut(bez_, out, size);
}
int UtGAEBLVBereich::SetBez(const char* text) {
    return SetText(bez_, sizeof bez_, kBez, text);
}
int UtGAEBLVBereich::SetBez(const UtCString& text) {
    return SetText(bez_, sizeof bez_, kBez, text);
}

int UtGAEBLVBereich::StoreSlot(FILE* file, int indent, int slot) {
    switch (slot) {
        case kOZ:
            return PutValue(file, indent, "OZ", oz_);
        case kBez:
            return PutValue(file, indent, "Bez", bez_);
        default:
            return entities_.StoreItem(file, indent, slot - kEntities);
    }
}

// ---- UtGAEBBeschreibung -------------------------------------------------------------------------

int UtGAEBBeschreibung::GetLangtext(char* out, size_t size) const {
    return CopyOut(langtext_.c_str(), out, size);
}
int UtGAEBBeschreibung::SetLangtext(const char* text) {
    SetAbsent(kLangtext, false);
    langtext_.assign(text == nullptr ? "" : text);
    return kGAEBOk;
}
int UtGAEBBeschreibung::SetLangtext(const UtCString& text) {
    int status = kGAEBOk;
    const FileText converted(text, status);
    langtext_.assign(converted.c_str());
    SetAbsent(kLangtext, false);
    return status;
}
int UtGAEBBeschreibung::GetKurztext(char* out, size_t size) const {
    return CopyOut(kurztext_.c_str(), out, size);
}

namespace {

int CopyBounded(std::string& field, size_t size, const char* text) {
    const size_t n = text == nullptr ? 0 : std::strlen(text);
    field.assign(text == nullptr ? "" : text, n < size ? n : size - 1);
    return n < size ? kGAEBOk : kGAEBTextCut;
}

}  // namespace

int UtGAEBBeschreibung::SetKurztext(const char* text) {
    SetAbsent(kKurztext, false);
    return CopyBounded(kurztext_, kGAEBSizeKurztext, text);
}
int UtGAEBBeschreibung::SetKurztext(const UtCString& text) {
    int status = kGAEBOk;
    const FileText converted(text, status);
    status |= CopyBounded(kurztext_, kGAEBSizeKurztext, converted.c_str());
    SetAbsent(kKurztext, false);
    return status;
}

int UtGAEBBeschreibung::StoreSlot(FILE* file, int indent, int slot) {
    switch (slot) {
        case kLangtext:
            return PutValue(file, indent, "Langtext", langtext_);
        case kKurztext:
            return PutValue(file, indent, "Kurztext", kurztext_);
        default:
            return kGAEBOk;
    }
}

// ---- UtGAEBPosition -----------------------------------------------------------------------------

int UtGAEBPosition::GetOZ(char* out, size_t size) const {
    return CopyOut(oz_, out, size);
}
int UtGAEBPosition::SetOZ(const char* text) {
    return SetText(oz_, sizeof oz_, kOZ, text);
}
int UtGAEBPosition::SetOZ(const UtCString& text) {
    return SetText(oz_, sizeof oz_, kOZ, text);
}
void UtGAEBPosition::SetMenge(double v) {
    menge_ = v;
    SetAbsent(kMenge, false);
}
int UtGAEBPosition::GetME(char* out, size_t size) const {
    return CopyOut(me_, out, size);
}
int UtGAEBPosition::SetME(const char* text) {
    return SetText(me_, sizeof me_, kME, text);
}
int UtGAEBPosition::SetME(const UtCString& text) {
    return SetText(me_, sizeof me_, kME, text);
}

int UtGAEBPosition::StoreSlot(FILE* file, int indent, int slot) {
    switch (slot) {
        case kOZ:
            return PutValue(file, indent, "OZ", oz_);
        case kMenge: {
            if (mengeFlag_ == 0) return kGAEBOk;
            if (file == nullptr) return kGAEBNullFile;
            // "%.3f" without the locale's decimal separator.
            char buf[kbase_gaeb_internal::kFixed3Room];
            const char* end = kbase_gaeb_internal::FormatFixed3(menge_, buf);
            return PutValue(file, indent, "Menge",
                            std::string_view(buf, static_cast<size_t>(end - buf)));
        }
        case kME:
            return meFlag_ == 0 ? kGAEBOk : PutValue(file, indent, "ME", me_);
        case kBeschreibung:
            return beschreibungFlag_ == 0 ? kGAEBOk : beschreibung_.Store(file, indent);
        default:
            return kGAEBOk;
    }
}

// ---- UtGAEBLV, UtGAEBVergabe, UtGAEBHauptobjekt -------------------------------------------------

int UtGAEBLV::StoreSlot(FILE* file, int indent, int slot) {
    if (slot == kLVInfo) return info_.Store(file, indent);
    return entities_.StoreItem(file, indent, slot - kEntities);
}

void UtGAEBVergabe::SetDP(short v) {
    dp_ = v;
    SetAbsent(kDP, false);
}

int UtGAEBVergabe::StoreSlot(FILE* file, int indent, int slot) {
    switch (slot) {
        case kDP:
            return PutValue(file, indent, "DP", dp_);
        case kLV:
            return lv_.Store(file, indent);
        default:
            return kGAEBOk;
    }
}

int UtGAEBHauptobjekt::Store(FILE* file, int) {
    return file == nullptr ? kGAEBNullFile : kGAEBOk;
}

// ---- UtGAEB -------------------------------------------------------------------------------------

UtGAEB::UtGAEB(GAEB_TYPE type) : type_(eGAEBTypeInfo) {
    flag_ = 1;
    SetGAEBType(type);
}

UtGAEB::~UtGAEB() {
    delete vergabe_;
}

void UtGAEB::SetGAEBType(GAEB_TYPE type) {
    type_ = type;
    if (type == eGAEBTypeLV) {
        if (vergabe_ == nullptr) vergabe_ = new UtGAEBVergabe;
        SetAbsent(kVergabe, false);
    } else {
        delete vergabe_;
        vergabe_ = nullptr;
    }
}

FILE* UtGAEB::Open(const UtCString& path, int write) {
    const std::string utf8 = path.GetUtf8String();
    return UtFileOpen(utf8.c_str(), write != 0 ? "w" : "r");
}

int UtGAEB::StoreSlot(FILE* file, int indent, int slot) {
    if (slot == kInfo) return info_.Store(file, indent);
    if (slot == kVergabe && vergabe_ != nullptr) return vergabe_->Store(file, indent);
    return kGAEBOk;
}

int UtGAEB::Store(FILE* file, int indent) {
    if (file == nullptr) return kGAEBNullFile;
    int status = StoreBlock(file, indent, false);
    // Buffered bytes reach the file only now: their failure is a failed write too.
    if (flag_ != 0) {
        if (UtFileClose(file) != 0 && status == kGAEBOk) status = kGAEBWriteFailed;
    } else if (std::fflush(file) != 0 && status == kGAEBOk) {
        status = kGAEBWriteFailed;
    }
    return status;
}
