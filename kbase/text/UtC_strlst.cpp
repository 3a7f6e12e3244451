// UtCStringList and its comparators.
#include "kbase/text/UtCStringList.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "basert/diag.h"
#include "basert/memory.h"

namespace {

// The list's reports name the string module, with these lines.
constexpr const char* kModule = "UtC_string";
constexpr int kLineItem = 6374;
constexpr int kLineBinarySearch = 6627;
constexpr int kReportLevel = 2;

constexpr uint16_t kRecordVersion = 1;
constexpr uint64_t kHeaderBytes = 6;
constexpr uint64_t kStringHeaderBytes = 24;  // the smallest string record

UtCString& SharedEmpty() {
    static UtCString empty;
    return empty;
}

void PutLE(unsigned char* p, uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) p[i] = static_cast<unsigned char>(v >> (8 * i));
}

uint64_t GetLE(const unsigned char* p, int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) v |= static_cast<uint64_t>(p[i]) << (8 * i);
    return v;
}

// Adapts a string comparator to the pointer list's sort.
class PtrComparer : public UtCPtrListComparer {
public:
    explicit PtrComparer(const UtCStringComparatorBase& c) : c_(c) {}
    int Compare(const void* a, const void* b) const override {
        return c_.Compare(*static_cast<const UtCString*>(a), *static_cast<const UtCString*>(b));
    }

private:
    const UtCStringComparatorBase& c_;
};

// ---- the multi-number value -------------------------------------------------------------------

constexpr double kRunScale = 100000.0;
constexpr int kMaxScanIndex = 0xFFFF;  // the scan index is 16 bits wide

bool IsRunChar(char c) { return (c >= '0' && c <= '9') || c == ',' || c == '.'; }

// A run holds digits, ',' and '.' only, so strtod over it is exactly UtCString::Convert(double&).
double RunValue(const char* run, size_t n) {
    char small[64];
    std::string big;
    const char* text = small;
    if (n < sizeof small) {
        std::memcpy(small, run, n);
        small[n] = '\0';
    } else {
        big.assign(run, n);
        text = big.c_str();
    }
    char* end = nullptr;
    const double v = std::strtod(text, &end);
    return (end != text && *end == '\0') ? v : 0.0;
}

// The value and run count of the first `bound` characters of s.
void NumberRuns(const UtCString& s, int bound, double& value, int& runs) {
    value = 0.0;
    runs = 0;
    if (!s.isAnsiEncodingType()) return;  // no digits outside 8-bit code pages
    const char* text = s.ptr();
    const int length = s.GetLength();
    if (bound > kMaxScanIndex) bound = kMaxScanIndex;
    int runStart = -1;
    for (int i = 0; i <= bound; ++i) {
        // Positions at or past the end read as the terminator, which ends a run.
        const char c = (i < bound && i < length) ? text[i] : '\0';
        if (i < bound && IsRunChar(c)) {
            if (runStart < 0) runStart = i;
            continue;
        }
        if (runStart >= 0) {
            value = value * kRunScale + RunValue(text + runStart, static_cast<size_t>(i - runStart));
            ++runs;
            runStart = -1;
        }
    }
}

}  // namespace

// ---- comparators ------------------------------------------------------------------------------

int UtCStringComparatorBase::ComparePtr(const UtCString* a, const UtCString* b) const {
    if (a == nullptr || b == nullptr) return 1;
    return Compare(*a, *b);
}

UtCStringComparatorBase::~UtCStringComparatorBase() = default;

bool UtCStringComparatorBase::IsEqual(const UtCString& a, const UtCString& b) const { return Compare(a, b) == 0; }

int UtCStringComparator::Compare(const UtCString& a, const UtCString& b) const { return a.CompareTo(b); }

UtCStringComparatorBase* UtCStringComparator::Clone() const { return new UtCStringComparator(); }

int UtCStringMultiNumberComparator::Compare(const UtCString& a, const UtCString& b) const {
    double va = 0.0;
    double vb = 0.0;
    int ra = 0;
    int rb = 0;
    NumberRuns(a, a.GetLength(), va, ra);
    NumberRuns(a, b.GetLength(), vb, rb);  // from a's characters: kept on purpose
    for (; ra < rb; ++ra) va *= kRunScale;
    for (; rb < ra; ++rb) vb *= kRunScale;
    if (va == 0.0 || vb == 0.0 || va == vb) return a.CompareTo(b);
    return va > vb ? 1 : -1;
}

UtCStringComparatorBase* UtCStringMultiNumberComparator::Clone() const { return new UtCStringMultiNumberComparator(); }

// ---- construction -----------------------------------------------------------------------------

UtCString* UtCStringList::NewCopy(const UtCString& s) {
    void* block = nullptr;
    if (UtAllocMemoryBlock(&block, 1, sizeof(UtCString)) != kUtMemOk) return nullptr;
    auto* copy = new (block) UtCString(s);
    // A copy whose text could not be allocated comes out empty: refuse it rather than store it.
    if (copy->GetLength() != s.GetLength()) {
        DeleteString(copy);
        return nullptr;
    }
    return copy;
}

void UtCStringList::DeleteString(void* p) {
    if (p == nullptr) return;
    static_cast<UtCString*>(p)->~UtCString();
    UtFreeMemory(p);
}

// The ordinal comparator is stateless, so every list that has the default one shares this
// instance instead of allocating its own; it is never deleted (see OwnsComparator).
UtCStringComparatorBase* UtCStringList::SharedOrdinal() {
    static UtCStringComparatorBase* const shared = new UtCStringComparator();
    return shared;
}

UtCStringComparatorBase* UtCStringList::CloneComparator(const UtCStringComparatorBase* c) {
    if (c == nullptr) return nullptr;
    return c == SharedOrdinal() ? SharedOrdinal() : c->Clone();
}

void UtCStringList::DropComparator() {
    if (comparator_ != SharedOrdinal()) delete comparator_;
    comparator_ = nullptr;
}

UtCStringList::UtCStringList() : comparator_(SharedOrdinal()) {}

UtCStringList::UtCStringList(UtCStringComparatorBase* comparator) : comparator_(comparator) {}

UtCStringList::UtCStringList(const UtCString& s) : UtCStringList() { Add(s); }

UtCStringList::UtCStringList(std::initializer_list<UtCString> strings) : UtCStringList() {
    for (const UtCString& s : strings) Add(s);
}

UtCStringList::UtCStringList(const UtCStringList& other)
    : comparator_(CloneComparator(other.comparator_)) {
    AddList(other);
}

UtCStringList& UtCStringList::operator=(const UtCStringList& other) {
    if (this == &other) return *this;
    UtCStringList copy(other);
    *this = std::move(copy);
    return *this;
}

UtCStringList::UtCStringList(UtCStringList&& other) noexcept : comparator_(other.comparator_) {
    items_.SwapList(other.items_);
    other.comparator_ = nullptr;
}

UtCStringList& UtCStringList::operator=(UtCStringList&& other) noexcept {
    if (this == &other) return *this;
    Clear();
    DropComparator();
    comparator_ = other.comparator_;
    other.comparator_ = nullptr;
    items_.SwapList(other.items_);
    return *this;
}

UtCStringList::~UtCStringList() {
    Clear();
    DropComparator();
}

void UtCStringList::SetComparator(UtCStringComparatorBase* c) {
    if (c == nullptr || c == comparator_) return;
    DropComparator();
    comparator_ = c;
}

// ---- access -----------------------------------------------------------------------------------

UtCString& UtCStringList::ItemInvalid(long i) {
    char message[88];
    std::snprintf(message, sizeof message, "invalid index = %ld, count = %ld", i, items_.count());
    DebugAssert(kModule, kLineItem, "UtCStringList::item", kReportLevel, message, "(i >= 0 && i < count())");
    UtCString& empty = SharedEmpty();
    empty.Empty();  // a caller may have written through it last time
    return empty;
}


// ---- adding -----------------------------------------------------------------------------------

UtCStringList& UtCStringList::Add(const UtCString& s) {
    UtCString* copy = NewCopy(s);
    if (copy == nullptr) return *this;
    const long before = items_.count();
    items_.Append(copy);
    if (items_.count() == before) DeleteString(copy);  // the pointer list could not grow
    return *this;
}

UtCStringList& UtCStringList::Insert(long i, const UtCString& s) {
    if (i < 0 || i > items_.count()) return *this;
    UtCString* copy = NewCopy(s);
    if (copy == nullptr) return *this;
    const long before = items_.count();
    items_.Insert(i, copy);
    if (items_.count() == before) DeleteString(copy);
    return *this;
}

UtCStringList& UtCStringList::AddUnique(const UtCString& s) {
    if (!Contains(s)) Add(s);
    return *this;
}

UtCStringList& UtCStringList::AddList(const UtCStringList& l) {
    const long n = l.count();  // l may be this list
    for (long i = 0; i < n; ++i) Add(*l.At(i));
    return *this;
}

UtCStringList& UtCStringList::AddListUnique(const UtCStringList& l) {
    const long n = l.count();
    for (long i = 0; i < n; ++i) AddUnique(*l.At(i));
    return *this;
}

UtCStringList& UtCStringList::AddSorted(const UtCString& s) {
    const long n = items_.count();
    long i = 0;
    while (i < n && At(i)->CompareTo(s) < 0) ++i;
    return Insert(i, s);
}

// ---- searching --------------------------------------------------------------------------------

int UtCStringList::Compare(const UtCString& a, const UtCString& b) const {
    return comparator_ != nullptr ? comparator_->Compare(a, b) : a.CompareTo(b);
}

bool UtCStringList::Contains(const UtCString& s) const {
    if (comparator_ == nullptr) return false;
    const long n = items_.count();
    for (long i = 0; i < n; ++i) {
        if (comparator_->IsEqual(*At(i), s)) return true;
    }
    return false;
}

long UtCStringList::Search(const UtCString& s, long start, const UtCStringComparatorBase* comparator) const {
    if (comparator == nullptr) comparator = comparator_;
    const long n = items_.count();
    for (long i = start < 0 ? 0 : start; i < n; ++i) {
        const bool equal = comparator != nullptr ? comparator->IsEqual(*At(i), s) : At(i)->CompareTo(s) == 0;
        if (equal) return i;
    }
    return -1;
}

bool UtCStringList::Remove(const UtCString& s, const UtCStringComparatorBase* comparator) {
    const long i = Search(s, 0, comparator);
    if (i < 0) return false;
    Remove(i);
    return true;
}

long UtCStringList::RemoveAll(const UtCString& s, const UtCStringComparatorBase* comparator) {
    long removed = 0;
    for (long i = Search(s, 0, comparator); i >= 0; i = Search(s, i, comparator)) {
        Remove(i);
        ++removed;
    }
    return removed;
}

long UtCStringList::SearchSorted(const UtCString& s) const { return BinarySearch(s, 0, items_.count() - 1); }

long UtCStringList::BinarySearch(const UtCString& key, long lo, long hi) const {
    while (hi >= lo) {
        const long mid = lo + (hi - lo) / 2;
        if (comparator_ == nullptr || mid < 0 || mid >= items_.count()) {
            DebugAssert(kModule, kLineBinarySearch, "UtCStringList::BinarySearch", kReportLevel, "invalid index",
                        "(comparator != NULL && mid >= 0 && mid < count())");
            return -1;
        }
        const int r = comparator_->Compare(*At(mid), key);
        if (r == 0) return mid;
        if (r < 0) {
            lo = mid + 1;
        } else {
            hi = mid - 1;
        }
    }
    return -1;
}

void UtCStringList::Sort() {
    if (comparator_ == nullptr) return;
    items_.Sort(PtrComparer(*comparator_));
}

// ---- removing and editing ---------------------------------------------------------------------

void UtCStringList::Remove(long i) {
    if (static_cast<unsigned long>(i) >= static_cast<unsigned long>(items_.count())) return;
    void* p = items_.item(i);
    items_.Remove(i);
    DeleteString(p);
}

void UtCStringList::Swap(long i, long j) { items_.Swap(i, j); }

void UtCStringList::Clear() {
    const long n = items_.count();
    for (long i = 0; i < n; ++i) DeleteString(items_.item(i));
    items_.RemoveAll();
}

void UtCStringList::Trim() {
    const long n = items_.count();
    for (long i = 0; i < n; ++i) At(i)->trim();
}

void UtCStringList::SetToLower() {
    const long n = items_.count();
    for (long i = 0; i < n; ++i) At(i)->SetToLower();
}

void UtCStringList::Concatenate(const UtCString& separator, UtCString& out, long from, long to) const {
    const long n = items_.count();
    if (from < 0) from = 0;
    if (to < 0 || to >= n) to = n - 1;
    const eUtEncodingType e = out.encodingType();
    // Same 8-bit encoding everywhere: join the bytes once instead of reallocating per piece
    // (every append reallocates exactly).
    bool bytewise = !out.isUtf16EncodingType() && separator.encodingType() == e;
    for (long i = from; bytewise && i <= to; ++i) bytewise = At(i)->encodingType() == e;
    if (bytewise) {
        std::string joined;
        for (long i = from; i <= to; ++i) {
            if (i != from) joined += separator.stringSkipBOM();
            joined += At(i)->stringSkipBOM();
        }
        out = UtCString(joined.c_str(), static_cast<int>(joined.size()), e, e);
        return;
    }
    out.Empty();
    for (long i = from; i <= to; ++i) {
        if (i != from) out += separator;
        out += *At(i);
    }
}

UtCString UtCStringList::Concatenate(const UtCString& separator) const {
    UtCString out(separator.encodingType());
    Concatenate(separator, out);
    return out;
}

int UtCStringList::CompareTo(const UtCStringList& l) const {
    const long n = items_.count();
    const long m = l.items_.count();
    int r = 0;
    for (long i = 0; i < n && i < m && r == 0; ++i) r = Compare(*At(i), *l.At(i));
    if (r != 0) return r;
    return n < m ? -1 : (n > m ? 1 : 0);
}

// ---- memory record ----------------------------------------------------------------------------

bool UtCStringList::SaveToMem(unsigned char** buffer, uint64_t& size) const {
    if (buffer == nullptr) return false;
    void* block = *buffer;
    if (UtAllocMemoryBlock(&block, size + kHeaderBytes, 1) != kUtMemOk) return false;
    *buffer = static_cast<unsigned char*>(block);
    PutLE(*buffer + size, kRecordVersion, 2);
    PutLE(*buffer + size + 2, static_cast<uint32_t>(items_.count()), 4);
    size += kHeaderBytes;
    const long n = items_.count();
    for (long i = 0; i < n; ++i) {
        if (!At(i)->SaveToMem(buffer, size)) return false;
    }
    return true;
}

bool UtCStringList::ReadFromMem(const unsigned char* data, uint64_t& offset) {
    return ReadRecord(data, 0, false, offset);
}

bool UtCStringList::ReadFromMem(const unsigned char* data, uint64_t blockSize, uint64_t& offset) {
    return ReadRecord(data, blockSize, true, offset);
}

bool UtCStringList::ReadRecord(const unsigned char* data, uint64_t blockSize, bool bounded, uint64_t& offset) {
    if (data == nullptr) return false;
    if (bounded && (offset > blockSize || blockSize - offset < kHeaderBytes)) return false;
    const uint64_t version = GetLE(data + offset, 2);
    const uint64_t count = GetLE(data + offset + 2, 4);
    // Every string record takes at least its header, so a count the block cannot hold is refused
    // before anything is allocated.
    if (bounded && (version != kRecordVersion || count > (blockSize - offset - kHeaderBytes) / kStringHeaderBytes)) {
        return false;
    }
    UtCStringList read(CloneComparator(comparator_));
    uint64_t at = offset + kHeaderBytes;
    for (uint64_t i = 0; i < count; ++i) {
        UtCString s;
        const bool ok = bounded ? s.ReadFromMem(data, blockSize, at) : s.ReadFromMem(data, at);
        if (!ok) return false;
        const long before = read.count();
        read.Add(s);
        if (read.count() == before) return false;  // out of memory
    }
    items_.SwapList(read.items_);  // read now holds the old strings and frees them
    offset = at;
    return true;
}
