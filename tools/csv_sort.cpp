#include "csv_sort.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kbase/tables/UtCCsvReader.h"

namespace kbase_tool {

namespace {

constexpr size_t kBlockSize = size_t{8} << 20;
constexpr size_t kRunBuffer = size_t{256} << 10;
// A run of this size sorts and spills while its rows are still in the cache, which makes
// several small runs and a merge faster than one big run; a bigger budget buys nothing.
constexpr uint64_t kRunCap = uint64_t{32} << 20;
// Runs merged at once: when as many runs of one level are on disk, they become one run of the
// next level, so that open files stay few whatever the input size.
constexpr size_t kMergeWidth = 64;

uint32_t Load32(const char* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// A row in memory and in a run file: its size in bytes, the field count, then per field its
// length, its bytes and a NUL (so that number parsing may look one byte past the field).
constexpr size_t kRowHead = 8;

size_t RowSize(const std::vector<std::string_view>& fields) {
    size_t n = kRowHead;
    for (const std::string_view f : fields) n += 4 + f.size() + 1;
    return n;
}

void PutRow(char* p, size_t size, const std::vector<std::string_view>& fields) {
    const uint32_t head[2] = {static_cast<uint32_t>(size), static_cast<uint32_t>(fields.size())};
    std::memcpy(p, head, sizeof head);
    p += kRowHead;
    for (const std::string_view f : fields) {
        const uint32_t len = static_cast<uint32_t>(f.size());
        std::memcpy(p, &len, 4);
        if (len != 0) std::memcpy(p + 4, f.data(), len);
        p[4 + len] = '\0';
        p += 4 + len + 1;
    }
}

size_t StoredSize(const char* row) {
    return Load32(row);
}
uint32_t FieldCount(const char* row) {
    return Load32(row + 4);
}

// A number as an unsigned key whose order is the number's: the sign bit flipped for positive
// numbers, all bits for negative ones. -0 is made +0 first, as the two compare equal.
uint64_t OrderedBits(double d, bool descending) {
    if (d == 0) d = 0;
    uint64_t bits;
    std::memcpy(&bits, &d, sizeof bits);
    bits = (bits >> 63) != 0 ? ~bits : bits | (uint64_t{1} << 63);
    return descending ? ~bits : bits;
}

}  // namespace

// A sorted run in a temporary file, read back through a buffer during the merge.
struct ExternalSort::Run {
    FILE* file = nullptr;
    int level = 0;  // runs merged into this one: kMergeWidth to the power level
    std::vector<char> buf;
    size_t begin = 0, end = 0;
    bool eof = false;
    std::vector<Key> keys;
    const char* row = nullptr;

    ~Run() {
        if (file != nullptr) std::fclose(file);
    }
    // Makes at least n bytes readable at buf[begin]; false at the end of the file.
    bool Need(size_t n) {
        if (end - begin >= n) return true;
        if (begin != 0) {
            std::memmove(buf.data(), buf.data() + begin, end - begin);
            end -= begin;
            begin = 0;
        }
        if (buf.size() < n) buf.resize(std::max(n, buf.size() * 2));
        while (end < n && !eof) {
            const size_t got = std::fread(buf.data() + end, 1, buf.size() - end, file);
            end += got;
            if (got == 0) eof = true;
        }
        return end - begin >= n;
    }
};

ExternalSort::ExternalSort(std::vector<SortKey> keys, uint64_t budget, CommaRule commas)
    : sortKeys_(std::move(keys)),
      budget_(std::max<uint64_t>(budget, uint64_t{1} << 20)),
      runCap_(std::min(kRunCap, budget_ / 2)),
      commas_(commas) {}

ExternalSort::~ExternalSort() = default;

void ExternalSort::Fields(const char* row, std::vector<std::string_view>& out) {
    out.clear();
    const char* p = row + kRowHead;
    for (uint32_t i = FieldCount(row); i > 0; --i) {
        const uint32_t len = Load32(p);
        out.emplace_back(p + 4, len);
        p += 4 + len + 1;
    }
}

void ExternalSort::KeysOf(const char* row, Key* keys) {
    static constexpr char kEmpty[] = "";
    const uint32_t count = FieldCount(row);
    for (size_t k = 0; k < sortKeys_.size(); ++k) {
        Key& key = keys[k];
        key = Key{0.0, kEmpty, 0, false};
        if (sortKeys_[k].column < count) {
            const char* p = row + kRowHead;
            for (size_t i = 0; i < sortKeys_[k].column; ++i) p += 4 + Load32(p) + 1;
            key.length = Load32(p);
            key.text = p + 4;
        }
        key.isNumber =
            UtCCsvReader::FieldToDouble(key.text, key.length, eUtEncodingTypeUtf8, key.number);
        if (!key.isNumber && PointForm(std::string_view(key.text, key.length), commas_, scratch_)) {
            key.isNumber = UtCCsvReader::FieldToDouble(scratch_.c_str(), scratch_.size(),
                                                       eUtEncodingTypeUtf8, key.number);
        }
    }
}

int ExternalSort::Compare(const Key& a, const Key& b, bool descending, bool& decided) {
    int c;
    if (a.isNumber && b.isNumber) {
        c = a.number < b.number ? -1 : b.number < a.number ? 1 : 0;
        decided = true;
    } else {
        c = std::string_view(a.text, a.length).compare(std::string_view(b.text, b.length));
        decided = c != 0;
    }
    return descending ? -c : c;
}

int ExternalSort::Compare(const Key* a, const Key* b, const std::vector<SortKey>& keys) {
    for (size_t k = 0; k < keys.size(); ++k) {
        bool decided;
        const int c = Compare(a[k], b[k], keys[k].descending, decided);
        if (decided) return c;
    }
    return 0;
}

bool ExternalSort::Before(const Key* a, const Key* b, const std::vector<SortKey>& keys) {
    return Compare(a, b, keys) < 0;
}

bool ExternalSort::Add(const std::vector<std::string_view>& fields) {
    const size_t size = RowSize(fields);
    if (size > UINT32_MAX) {
        error_ = "a row of 4 GiB or more cannot be sorted";
        return false;
    }
    // What a row costs at its peak, while its run is sorted: its bytes, its pointer (twice, for
    // the vector's growth), its keys, its sort entry and half of one more for the merge buffer,
    // and its place in the order.
    const uint64_t rowCost = size + 2 * sizeof(const char*) + sortKeys_.size() * sizeof(Key) +
                             3 * sizeof(Key) + 8 + sizeof(uint32_t);
    if (!rows_.empty() && heldBytes_ + rowCost > runCap_ && !Spill()) return false;
    if (blocks_.empty() || blockUsed_ + size > blockSize_) {
        // The blocks of an earlier run are used again: fresh memory would cost a page fault
        // per page each run.
        if (!blocks_.empty()) ++blockIndex_;
        if (blockIndex_ == blocks_.size() || blockSizes_[blockIndex_] < size) {
            const size_t want = std::max(kBlockSize, size);
            // No zeroing: every byte is written before it is read.
            auto block = std::unique_ptr<char[]>(new char[want]);
            if (blockIndex_ == blocks_.size()) {
                blocks_.push_back(std::move(block));
                blockSizes_.push_back(want);
            } else {
                blocks_[blockIndex_] = std::move(block);
                blockSizes_[blockIndex_] = want;
            }
        }
        blockSize_ = blockSizes_[blockIndex_];
        blockUsed_ = 0;
    }
    char* row = blocks_[blockIndex_].get() + blockUsed_;
    PutRow(row, size, fields);
    blockUsed_ += size;
    heldBytes_ += rowCost;
    rows_.push_back(row);
    return true;
}

bool ExternalSort::RadixOrder() {
    const size_t n = sortKeys_.size(), count = rows_.size();
    const bool desc = sortKeys_[0].descending;
    radix_.resize(count);
    radixSwap_.resize(count);
    // Digits of 11 bits: six passes over the 64 bits, each with a histogram that fits the cache.
    constexpr size_t kBits = 11, kPasses = 6;
    constexpr uint32_t kRadix = 1u << kBits;
    std::vector<uint32_t> counts(size_t{kPasses} * kRadix, 0);
    for (uint32_t i = 0; i < count; ++i) {
        const Key& key = keys_[size_t{i} * n];
        if (!key.isNumber || key.number != key.number) return false;  // a text or NaN
        const uint64_t bits = OrderedBits(key.number, desc);
        radix_[i] = RadixEntry{bits, i};
        for (size_t p = 0; p < kPasses; ++p)
            ++counts[p * kRadix + ((bits >> (p * kBits)) & (kRadix - 1))];
    }
    for (size_t p = 0; p < kPasses; ++p) {
        uint32_t* c = counts.data() + p * kRadix;
        const size_t shift = p * kBits;
        // A digit all entries share moves nothing.
        if (c[(radix_[0].bits >> shift) & (kRadix - 1)] == count) continue;
        uint32_t sum = 0;
        for (uint32_t d = 0; d < kRadix; ++d) {
            const uint32_t here = c[d];
            c[d] = sum;
            sum += here;
        }
        for (const RadixEntry& e : radix_) radixSwap_[c[(e.bits >> shift) & (kRadix - 1)]++] = e;
        radix_.swap(radixSwap_);
    }
    order_.resize(count);
    for (size_t i = 0; i < count; ++i) order_[i] = radix_[i].index;
    return true;
}

void ExternalSort::SortRows() {
    const size_t n = sortKeys_.size();
    keys_.resize(rows_.size() * n);
    for (size_t i = 0; i < rows_.size(); ++i) KeysOf(rows_[i], keys_.data() + i * n);
    // Two numbers end the comparison, so when every first key is a number the first key alone
    // decides, and a stable radix sort of it is the whole sort.
    if (n != 0 && !rows_.empty() && RadixOrder()) return;
    // The first key sits beside the index, so most comparisons touch one entry and no key array.
    struct Entry {
        Key first;
        uint32_t index;
    };
    std::vector<Entry> entries(rows_.size());
    for (uint32_t i = 0; i < entries.size(); ++i)
        entries[i] = Entry{n != 0 ? keys_[size_t{i} * n] : Key{}, i};
    const bool desc0 = n != 0 && sortKeys_[0].descending;
    std::stable_sort(entries.begin(), entries.end(), [&](const Entry& a, const Entry& b) {
        if (n == 0) return false;
        bool decided;
        const int c = Compare(a.first, b.first, desc0, decided);
        if (decided) return c < 0;
        return Before(keys_.data() + size_t{a.index} * n, keys_.data() + size_t{b.index} * n,
                      sortKeys_);
    });
    order_.resize(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) order_[i] = entries[i].index;
}

// Writes rows to a new run file through one buffer: a write per row would cost a call each.
class ExternalSort::RunWriter {
  public:
    explicit RunWriter(std::string& error) : error_(error), buf_(kRunBuffer) {}
    std::unique_ptr<Run> Open(int level) {
        auto run = std::make_unique<Run>();
        run->level = level;
        run->file = std::tmpfile();
        if (run->file == nullptr) {
            error_ = std::string("cannot create a temporary file: ") + std::strerror(errno);
            return nullptr;
        }
        file_ = run->file;
        return run;
    }
    bool Put(const char* row) {
        const size_t size = StoredSize(row);
        if (used_ + size > buf_.size() && !Flush()) return false;
        if (size > buf_.size()) return std::fwrite(row, 1, size, file_) == size || Failed();
        std::memcpy(buf_.data() + used_, row, size);
        used_ += size;
        return true;
    }
    // Writes what is buffered and rewinds the file for reading.
    bool Close() {
        if (!Flush() || std::fflush(file_) != 0 || std::fseek(file_, 0, SEEK_SET) != 0)
            return Failed();
        return true;
    }

  private:
    bool Flush() {
        if (std::fwrite(buf_.data(), 1, used_, file_) != used_) return Failed();
        used_ = 0;
        return true;
    }
    bool Failed() {
        if (error_.empty())
            error_ = std::string("cannot write a temporary file: ") + std::strerror(errno);
        return false;
    }
    std::string& error_;
    std::vector<char> buf_;
    size_t used_ = 0;
    FILE* file_ = nullptr;
};

bool ExternalSort::Spill() {
    SortRows();
    RunWriter writer(error_);
    std::unique_ptr<Run> run = writer.Open(0);
    if (run == nullptr) return false;
    for (const uint32_t i : order_) {
        if (!writer.Put(rows_[i])) return false;
    }
    if (!writer.Close()) return false;
    runs_.push_back(std::move(run));
    ++spilled_;
    rows_.clear();
    blockIndex_ = 0;
    blockUsed_ = 0;
    blockSize_ = blocks_.empty() ? 0 : blockSizes_[0];
    heldBytes_ = 0;
    // Runs of one level are adjacent and in input order, so merging the last ones keeps the
    // earlier-runs-first order of equal rows.
    while (runs_.size() >= kMergeWidth) {
        const size_t first = runs_.size() - kMergeWidth;
        const int level = runs_.back()->level;
        if (runs_[first]->level != level) break;
        RunWriter merged(error_);
        std::unique_ptr<Run> into = merged.Open(level + 1);
        if (into == nullptr || !Merge(first, [&](const char* row) { return merged.Put(row); }) ||
            !merged.Close())
            return false;
        runs_.resize(first);
        runs_.push_back(std::move(into));
    }
    return true;
}

bool ExternalSort::Finish(const RowSink& sink) {
    std::vector<std::string_view> fields;
    if (runs_.empty()) {
        SortRows();
        for (const uint32_t i : order_) {
            Fields(rows_[i], fields);
            if (!sink(fields)) return false;
        }
        return true;
    }
    if (!rows_.empty() && !Spill()) return false;
    // The rows are on disk now; their memory goes back before the merge.
    blocks_.clear();
    blockSizes_.clear();
    std::vector<const char*>().swap(rows_);
    std::vector<Key>().swap(keys_);
    std::vector<RadixEntry>().swap(radix_);
    std::vector<RadixEntry>().swap(radixSwap_);
    std::vector<uint32_t>().swap(order_);
    std::vector<std::string_view> row;
    return Merge(0, [&](const char* stored) {
        Fields(stored, row);
        return sink(row);
    });
}

bool ExternalSort::Merge(size_t first, const std::function<bool(const char*)>& sink) {
    const size_t n = sortKeys_.size();
    // Loads the next row of a run: 1, or 0 at its end, or -1 when the file is cut or unreadable.
    auto next = [&](Run& r) -> int {
        if (r.row != nullptr) r.begin += StoredSize(r.row);
        r.row = nullptr;
        if (!r.Need(kRowHead)) return std::ferror(r.file) == 0 && r.end == r.begin ? 0 : -1;
        const size_t size = StoredSize(r.buf.data() + r.begin);
        if (size < kRowHead || !r.Need(size)) return -1;
        r.row = r.buf.data() + r.begin;
        r.keys.resize(n);
        KeysOf(r.row, r.keys.data());
        return 1;
    };
    // Heap of run indices: the run whose row goes first on top; equal rows from earlier runs
    // first, which keeps the whole sort stable.
    std::vector<size_t> heap;
    bool failed = false;
    // The read buffers share half the budget; the rows being gathered may hold the other half.
    const size_t buffer = static_cast<size_t>(
        std::clamp<uint64_t>(budget_ / 2 / (runs_.size() - first), uint64_t{16} << 10, kRunBuffer));
    for (size_t i = first; i < runs_.size() && !failed; ++i) {
        runs_[i]->buf.resize(buffer);
        const int got = next(*runs_[i]);
        failed = got < 0;
        if (got > 0) heap.push_back(i);
    }
    if (failed) heap.clear();
    auto after = [&](size_t a, size_t b) {
        const int c = Compare(runs_[a]->keys.data(), runs_[b]->keys.data(), sortKeys_);
        return c != 0 ? c > 0 : a > b;
    };
    std::make_heap(heap.begin(), heap.end(), after);
    while (!heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), after);
        Run& r = *runs_[heap.back()];
        if (!sink(r.row)) return false;
        const int got = next(r);
        if (got > 0) {
            std::push_heap(heap.begin(), heap.end(), after);
        } else {
            failed = failed || got < 0;
            heap.pop_back();
        }
        if (failed) break;
    }
    if (failed) error_ = "cannot read a temporary file back";
    return !failed;
}

}  // namespace kbase_tool
