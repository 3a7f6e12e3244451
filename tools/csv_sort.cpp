#include "csv_sort.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kbase/tables/UtCCsvReader.h"

namespace kbase_tool {

namespace {

constexpr size_t kBlockSize = size_t{8} << 20;
constexpr size_t kRunBuffer = size_t{256} << 10;

uint32_t Load32(const char* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// A row in memory and in a run file: the field count, then per field its length, its bytes and
// a NUL (so that number parsing may look one byte past the field).
size_t RowSize(const std::vector<std::string_view>& fields) {
    size_t n = 4;
    for (const std::string_view f : fields) n += 4 + f.size() + 1;
    return n;
}

void PutRow(char* p, const std::vector<std::string_view>& fields) {
    const uint32_t count = static_cast<uint32_t>(fields.size());
    std::memcpy(p, &count, 4);
    p += 4;
    for (const std::string_view f : fields) {
        const uint32_t len = static_cast<uint32_t>(f.size());
        std::memcpy(p, &len, 4);
        if (len != 0) std::memcpy(p + 4, f.data(), len);
        p[4 + len] = '\0';
        p += 4 + len + 1;
    }
}

size_t StoredSize(const char* row) {
    const char* p = row + 4;
    for (uint32_t i = Load32(row); i > 0; --i) p += 4 + Load32(p) + 1;
    return static_cast<size_t>(p - row);
}

}  // namespace

// A sorted run in a temporary file, read back through a buffer during the merge.
struct ExternalSort::Run {
    FILE* file = nullptr;
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
      commas_(commas) {}

ExternalSort::~ExternalSort() = default;

void ExternalSort::Fields(const char* row, std::vector<std::string_view>& out) {
    out.clear();
    const char* p = row + 4;
    for (uint32_t i = Load32(row); i > 0; --i) {
        const uint32_t len = Load32(p);
        out.emplace_back(p + 4, len);
        p += 4 + len + 1;
    }
}

void ExternalSort::KeysOf(const char* row, Key* keys) {
    static constexpr char kEmpty[] = "";
    const uint32_t count = Load32(row);
    for (size_t k = 0; k < sortKeys_.size(); ++k) {
        Key& key = keys[k];
        key = Key{0.0, kEmpty, 0, false};
        if (sortKeys_[k].column < count) {
            const char* p = row + 4;
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

bool ExternalSort::Before(const Key* a, const Key* b, const std::vector<SortKey>& keys) {
    for (size_t k = 0; k < keys.size(); ++k) {
        const bool desc = keys[k].descending;
        if (a[k].isNumber && b[k].isNumber)
            return desc ? a[k].number > b[k].number : a[k].number < b[k].number;
        const int c = std::string_view(a[k].text, a[k].length)
                          .compare(std::string_view(b[k].text, b[k].length));
        if (c != 0) return desc ? c > 0 : c < 0;
    }
    return false;
}

bool ExternalSort::Add(const std::vector<std::string_view>& fields) {
    const size_t size = RowSize(fields);
    // What a row costs at its peak, while its run is sorted: its bytes, its pointer (twice, for
    // the vector's growth), its keys, its sort entry and half of one more for the merge buffer,
    // and its place in the order.
    const uint64_t rowCost = size + 2 * sizeof(const char*) + sortKeys_.size() * sizeof(Key) +
                             3 * sizeof(Key) + 8 + sizeof(uint32_t);
    if (!rows_.empty() && heldBytes_ + rowCost > budget_ && !Spill()) return false;
    if (blocks_.empty() || blockUsed_ + size > blockSize_) {
        blockSize_ = std::max(kBlockSize, size);
        blocks_.push_back(
            std::unique_ptr<char[]>(new char[blockSize_]));  // no zeroing: every byte is written
        blockUsed_ = 0;
    }
    char* row = blocks_.back().get() + blockUsed_;
    PutRow(row, fields);
    blockUsed_ += size;
    heldBytes_ += rowCost;
    rows_.push_back(row);
    return true;
}

void ExternalSort::SortRows(std::vector<uint32_t>& order) {
    const size_t n = sortKeys_.size();
    keys_.resize(rows_.size() * n);
    for (size_t i = 0; i < rows_.size(); ++i) KeysOf(rows_[i], keys_.data() + i * n);
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
        if (a.first.isNumber && b.first.isNumber)
            return desc0 ? a.first.number > b.first.number : a.first.number < b.first.number;
        const int c = std::string_view(a.first.text, a.first.length)
                          .compare(std::string_view(b.first.text, b.first.length));
        if (c != 0) return desc0 ? c > 0 : c < 0;
        return Before(keys_.data() + size_t{a.index} * n, keys_.data() + size_t{b.index} * n,
                      sortKeys_);
    });
    order.resize(entries.size());
    for (size_t i = 0; i < entries.size(); ++i) order[i] = entries[i].index;
}

bool ExternalSort::Spill() {
    std::vector<uint32_t> order;
    SortRows(order);
    auto run = std::make_unique<Run>();
    run->file = std::tmpfile();
    if (run->file == nullptr) {
        error_ = std::string("cannot create a temporary file: ") + std::strerror(errno);
        return false;
    }
    for (const uint32_t i : order) {
        const size_t size = StoredSize(rows_[i]);
        if (std::fwrite(rows_[i], 1, size, run->file) != size) {
            error_ = std::string("cannot write a temporary file: ") + std::strerror(errno);
            return false;
        }
    }
    if (std::fflush(run->file) != 0 || std::fseek(run->file, 0, SEEK_SET) != 0) {
        error_ = std::string("cannot write a temporary file: ") + std::strerror(errno);
        return false;
    }
    runs_.push_back(std::move(run));
    rows_.clear();
    rows_.shrink_to_fit();
    keys_.clear();
    keys_.shrink_to_fit();
    blocks_.clear();
    blockUsed_ = blockSize_ = 0;
    heldBytes_ = 0;
    return true;
}

bool ExternalSort::Finish(const RowSink& sink) {
    std::vector<std::string_view> fields;
    if (runs_.empty()) {
        std::vector<uint32_t> order;
        SortRows(order);
        for (const uint32_t i : order) {
            Fields(rows_[i], fields);
            if (!sink(fields)) return false;
        }
        return true;
    }
    if (!rows_.empty() && !Spill()) return false;
    return Merge(sink);
}

bool ExternalSort::Merge(const RowSink& sink) {
    const size_t n = sortKeys_.size();
    // Loads the next row of a run: 1, or 0 at its end, or -1 when the file is cut or unreadable.
    auto next = [&](Run& r) -> int {
        if (r.row != nullptr) r.begin += StoredSize(r.row);
        r.row = nullptr;
        if (!r.Need(4)) return std::ferror(r.file) == 0 && r.end == r.begin ? 0 : -1;
        // The row's size is known only field by field.
        size_t size = 4;
        for (uint32_t i = Load32(r.buf.data() + r.begin); i > 0; --i) {
            if (!r.Need(size + 4)) return -1;
            size += 4 + Load32(r.buf.data() + r.begin + size) + 1;
        }
        if (!r.Need(size)) return -1;
        r.row = r.buf.data() + r.begin;
        r.keys.resize(n);
        KeysOf(r.row, r.keys.data());
        return 1;
    };
    // Heap of run indices: the run whose row goes first on top; equal rows from earlier runs
    // first, which keeps the whole sort stable.
    std::vector<size_t> heap;
    bool failed = false;
    for (size_t i = 0; i < runs_.size() && !failed; ++i) {
        runs_[i]->buf.resize(kRunBuffer);
        const int got = next(*runs_[i]);
        failed = got < 0;
        if (got > 0) heap.push_back(i);
    }
    if (failed) heap.clear();
    auto after = [&](size_t a, size_t b) {
        if (Before(runs_[b]->keys.data(), runs_[a]->keys.data(), sortKeys_)) return true;
        if (Before(runs_[a]->keys.data(), runs_[b]->keys.data(), sortKeys_)) return false;
        return a > b;
    };
    std::make_heap(heap.begin(), heap.end(), after);
    std::vector<std::string_view> fields;
    while (!heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), after);
        Run& r = *runs_[heap.back()];
        Fields(r.row, fields);
        if (!sink(fields)) return false;
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
