// UtTableRow and UtTable.
#include "kbase/tables/UtTable.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <typeinfo>
#include <utility>

#include "basert/memory.h"
#include "kbase/tables/UtCDecimalSum.h"
#include "kbase/tables/internal/numbers.h"
#include "kbase/tables/internal/order.h"

using kbase_tables_internal::CellToDouble;
using kbase_tables_internal::CellView;
using kbase_tables_internal::CompareCells;
using kbase_tables_internal::CompositeKey;
using kbase_tables_internal::TextRanker;
using kbase_tables_internal::ViewOf;

namespace {

constexpr int kOk = 0;
constexpr int kOutOfRange = 1;
constexpr size_t kMaxSumText = 50;

// The cell at col of row, or null when the row has no such cell.
const UtCString* CellAt(const UtTableRow& row, long col) {
    return (col >= 0 && col < row.count()) ? &row.item(col) : nullptr;
}

}  // namespace

// ---- UtTableRow ---------------------------------------------------------------------------------

UtTableRow::UtTableRow() : actElem_(-1), priorities_(nullptr), priorityCount_(0), priorityCap_(0) {}

UtTableRow::UtTableRow(const UtTableRow& other)
    : UtCStringList(other), actElem_(other.actElem_), priorities_(nullptr), priorityCount_(0), priorityCap_(0) {
    priorityCount_ = other.priorityCount_;
    if (other.priorities_ != nullptr && priorityCount_ > 0) {
        // Without memory for them the copy's priorities all read 0.
        void* block = nullptr;
        if (UtAllocMemoryBlock(&block, static_cast<uint64_t>(priorityCount_), sizeof(unsigned short)) == kUtMemOk) {
            priorities_ = static_cast<unsigned short*>(block);
            priorityCap_ = priorityCount_;
            std::memcpy(priorities_, other.priorities_, sizeof(unsigned short) * static_cast<size_t>(priorityCount_));
        }
    }
}

UtTableRow& UtTableRow::operator=(const UtTableRow& other) {
    if (this != &other) {
        UtTableRow copy(other);
        *this = std::move(copy);
    }
    return *this;
}

UtTableRow::UtTableRow(UtTableRow&& other) noexcept
    : UtCStringList(std::move(other)),
      actElem_(other.actElem_),
      priorities_(other.priorities_),
      priorityCount_(other.priorityCount_),
      priorityCap_(other.priorityCap_) {
    other.priorities_ = nullptr;
    other.priorityCount_ = other.priorityCap_ = 0;
}

UtTableRow& UtTableRow::operator=(UtTableRow&& other) noexcept {
    if (this == &other) return *this;
    UtCStringList::operator=(std::move(other));
    actElem_ = other.actElem_;
    UtFreeMemory(priorities_);
    priorities_ = other.priorities_;
    priorityCount_ = other.priorityCount_;
    priorityCap_ = other.priorityCap_;
    other.priorities_ = nullptr;
    other.priorityCount_ = other.priorityCap_ = 0;
    return *this;
}

UtTableRow::~UtTableRow() { UtFreeMemory(priorities_); }

// Grows the priority array to n entries, new ones 0 (kept entries keep their values). While no
// priority is stored only the count moves.
bool UtTableRow::GrowPriorities(long n) {
    if (n <= priorityCount_) return true;
    if (priorities_ == nullptr) {
        priorityCount_ = static_cast<int32_t>(n);
        return true;
    }
    if (n > priorityCap_) {
        long cap = priorityCap_ < 4 ? 4 : 2L * priorityCap_;
        if (cap < n) cap = n;
        void* block = priorities_;
        if (UtAllocMemoryBlock(&block, static_cast<uint64_t>(cap), sizeof(unsigned short)) != kUtMemOk) return false;
        priorities_ = static_cast<unsigned short*>(block);
        priorityCap_ = static_cast<int32_t>(cap);
    }
    std::memset(priorities_ + priorityCount_, 0, sizeof(unsigned short) * static_cast<size_t>(n - priorityCount_));
    priorityCount_ = static_cast<int32_t>(n);
    return true;
}

void UtTableRow::priority(const long& i, const unsigned short& value) {
    if (priorities_ == nullptr) {
        if (value == 0) return;  // already reads 0
        const long n = priorityCount_ > i + 1 ? priorityCount_ : i + 1;
        void* block = nullptr;
        if (UtAllocMemoryBlock(&block, static_cast<uint64_t>(n), sizeof(unsigned short)) != kUtMemOk) return;
        priorities_ = static_cast<unsigned short*>(block);
        std::memset(priorities_, 0, sizeof(unsigned short) * static_cast<size_t>(n));
        priorityCap_ = static_cast<int32_t>(n);
    }
    priorities_[i] = value;
}

long UtTableRow::AddElem(const UtCString& text) {
    const long before = count();
    if (!GrowPriorities(before + 1)) return actElem_;
    Add(text);
    if (count() == before) return actElem_;
    return ++actElem_;
}

namespace {
// Whether the copy of a narrow text was refused its memory: only then is a non-empty text empty
// (same encoding, nothing to convert).
bool CopyRefused(const char* text, const UtCString& copy) {
    return text != nullptr && *text != '\0' && copy.IsEmpty();
}
}  // namespace

long UtTableRow::AddElem(const char* text) {
    const UtCString cell(text);
    if (CopyRefused(text, cell)) return actElem_;  // no empty cell for a text that was lost
    return AddElem(cell);
}

int UtTableRow::ChgElem(long i, const UtCString& text) {
    if (i < 0 || i >= count()) return kOutOfRange;
    UtCString& cell = item(i);
    if (&cell != &text) cell = text;
    return kOk;
}

int UtTableRow::ChgElem(long i, const char* text) {
    if (i < 0 || i >= count()) return kOutOfRange;
    UtCString& cell = item(i);
    if (text == cell.ptr()) return kOk;  // handed the cell's own buffer: nothing to do
    const UtCString copy(text);
    if (!CopyRefused(text, copy)) cell = copy;  // a refused copy leaves the cell as it was
    return kOk;
}

bool UtTableRow::IsElemEqualTo(long i, const UtCString& text) const {
    if (i < 0 || i >= count()) return false;
    return item(i) == text;
}

bool UtTableRow::IsElemEqualTo(long i, const char* text) const {
    if (i < 0 || i >= count()) return false;
    return item(i) == UtCString(text);
}

bool UtTableRow::GetElem(long i, UtCString& out) const {
    if (i < 0 || i >= count()) return false;
    out = item(i);
    return true;
}

bool UtTableRow::GetElem(UtCString& out) const { return GetElem(actElem_, out); }

bool UtTableRow::GetFirstElem(UtCString& out) {
    actElem_ = 0;
    return GetElem(0, out);
}

bool UtTableRow::GetNextElem(UtCString& out) {
    const long next = actElem_ + 1;
    if (next < 0 || next >= count()) return false;
    actElem_ = next;
    out = item(next);
    return true;
}

void UtTableRow::Clear() { UtCStringList::Clear(); }

// ---- UtTable: rows and cursors ------------------------------------------------------------------

UtTable::UtTable() : actRow_(kNoRow) {}
UtTable::UtTable(const UtTable& other) = default;
UtTable& UtTable::operator=(const UtTable& other) = default;
UtTable::UtTable(UtTable&& other) noexcept : rows_(std::move(other.rows_)), actRow_(other.actRow_) {
    other.actRow_ = kNoRow;
}
UtTable& UtTable::operator=(UtTable&& other) noexcept {
    rows_ = std::move(other.rows_);
    actRow_ = other.actRow_;
    other.actRow_ = kNoRow;
    return *this;
}
UtTable::~UtTable() = default;

UtTableRow& UtTable::AddRow() {
    rows_.emplace_back();
    ++actRow_;  // from "none" (all ones) this wraps to 0
    return rows_.back();
}

int UtTable::AddElem(const UtCString& text) { return AddElem(actRow_, text); }
int UtTable::AddElem(const char* text) { return AddElem(actRow_, text); }

int UtTable::AddElem(uint64_t row, const UtCString& text) {
    if (row >= rows_.size()) return kOutOfRange;
    rows_[row].AddElem(text);
    return kOk;
}

int UtTable::AddElem(uint64_t row, const char* text) {
    if (row >= rows_.size()) return kOutOfRange;
    rows_[row].AddElem(text);
    return kOk;
}

int UtTable::ChgElem(uint64_t row, long col, const UtCString& text) {
    if (row >= rows_.size()) return kOutOfRange;
    return rows_[row].ChgElem(col, text);
}

int UtTable::ChgElem(uint64_t row, long col, const char* text) {
    if (row >= rows_.size()) return kOutOfRange;
    return rows_[row].ChgElem(col, text);
}

int UtTable::SetRow(unsigned long row) {
    if (row >= rows_.size()) return kOutOfRange;
    actRow_ = row;
    return kOk;
}

int UtTable::GetFirstRow() {
    actRow_ = 0;
    return rows_.empty() ? kOutOfRange : kOk;
}

int UtTable::GetNextRow() {
    const uint64_t next = actRow_ + 1;
    if (next >= rows_.size()) return kOutOfRange;
    actRow_ = next;
    return kOk;
}

bool UtTable::GetElem(uint64_t row, long col, UtCString& out) const {
    if (row >= rows_.size()) return false;
    rows_[row].GetElem(col, out);  // a missing column leaves out untouched and still gives true
    return true;
}

bool UtTable::GetElem(long col, UtCString& out) const { return GetElem(actRow_, col, out); }

bool UtTable::IsElemEqualTo(uint64_t row, long col, const char* text) const {
    if (row >= rows_.size()) return false;
    return rows_[row].IsElemEqualTo(col, text);
}

unsigned long UtTable::GetElemCount() const {
    return actRow_ < rows_.size() ? static_cast<unsigned long>(rows_[actRow_].count()) : 0;
}

unsigned long UtTable::GetElemCount(long row) const {
    if (row < 0 || static_cast<uint64_t>(row) >= rows_.size()) return 0;
    return static_cast<unsigned long>(rows_[static_cast<size_t>(row)].count());
}

int UtTable::ItemInList(unsigned short n, const long* list, long value) {
    if (list == nullptr) return 0;
    for (unsigned short i = 0; i < n; ++i) {
        if (list[i] == value) return 1;
    }
    return 0;
}

void UtTable::Clear() {
    rows_.clear();
    actRow_ = kNoRow;
}

// ---- ordering -----------------------------------------------------------------------------------

namespace {

// One key cell of one row, read once.
struct KeyCell {
    CellView text;
    double number = 0.0;
    bool isNumber = false;
};

// Puts the rows in the given order.
void Permute(UtTable::RowList& rows, const std::vector<uint32_t>& order) {
    UtTable::RowList sorted;
    sorted.reserve(rows.size());
    constexpr size_t kAhead = 8;  // rows are read in a random order: fetch them ahead
    for (size_t i = 0; i < order.size(); ++i) {
#if defined(__GNUC__)
        if (i + kAhead < order.size()) {
            const char* next = reinterpret_cast<const char*>(&rows[order[i + kAhead]]);
            __builtin_prefetch(next);
            __builtin_prefetch(next + sizeof(UtTableRow) - 1);
        }
#endif
        sorted.push_back(std::move(rows[order[i]]));
    }
    rows.swap(sorted);
}

// The general order, row by row: each key cell read once, then a stable merge sort that compares
// the keys as Sort describes.
std::vector<uint32_t> CompareSortOrder(const UtTable::RowList& rows, unsigned short n, const long* cols,
                                       const short* dirs) {
    const size_t rowCount = rows.size();
    std::vector<KeyCell> keys(rowCount * n);
    for (size_t r = 0; r < rowCount; ++r) {
        for (unsigned short k = 0; k < n; ++k) {
            KeyCell& c = keys[r * n + k];
            const UtCString* cell = CellAt(rows[r], cols[k]);
            c.text = ViewOf(cell);
            c.isNumber = cell != nullptr && CellToDouble(*cell, c.number);
        }
    }
    std::vector<uint32_t> order(rowCount);
    for (size_t r = 0; r < rowCount; ++r) order[r] = static_cast<uint32_t>(r);
    kbase_tables_internal::StableSort(order, [&](uint32_t a, uint32_t b) {
        for (unsigned short k = 0; k < n; ++k) {
            const KeyCell& x = keys[a * size_t{n} + k];
            const KeyCell& y = keys[b * size_t{n} + k];
            if (x.isNumber && y.isNumber) {
                // Equal numbers end the comparison too: no later key is consulted.
                return dirs[k] == 0 ? x.number < y.number : (dirs[k] == 1 ? x.number > y.number : false);
            }
            const int c = CompareCells(x.text, y.text);
            if (c != 0) return dirs[k] == 0 ? c < 0 : (dirs[k] == 1 ? c > 0 : false);
        }
        return false;
    });
    return order;
}

}  // namespace

void UtTable::Sort(unsigned short n, const long* cols, const short* dirs) {
    const size_t rowCount = rows_.size();
    if (n == 0 || cols == nullptr || dirs == nullptr || rowCount < 2) return;

    // Fast path, one key column at a time: while a key column is all numbers (no NaN) or has at
    // most one number, its order is a plain one and the rows can be ranked column by column. A
    // column of numbers ends every comparison, so later keys cannot matter. The rows are read
    // once: each key cell is read as a number and, while its column may still be a text column,
    // given a text id.
    struct KeyColumn {
        std::vector<double> values;
        std::vector<uint32_t> ids;
        TextRanker texts;
        size_t numbers = 0;
        bool nan = false;
        bool mixed = false;  // texts of several encodings
    };
    std::vector<KeyColumn> keys(n);
    for (KeyColumn& key : keys) {
        key.values.resize(rowCount);
        key.ids.resize(rowCount);
    }
    for (size_t r = 0; r < rowCount; ++r) {
        const UtTableRow& row = rows_[r];
        for (unsigned short k = 0; k < n; ++k) {
            KeyColumn& key = keys[k];
            const UtCString* cell = CellAt(row, cols[k]);
            double& value = key.values[r];
            value = 0.0;
            if (cell != nullptr && CellToDouble(*cell, value)) {
                ++key.numbers;
                key.nan = key.nan || std::isnan(value);
            }
            if (key.numbers <= 1 && !key.mixed) key.mixed = !key.texts.Add(ViewOf(cell), key.ids[r]);
        }
    }
    CompositeKey composite(rowCount);
    bool ranked = true;
    for (unsigned short k = 0; k < n && ranked; ++k) {
        KeyColumn& key = keys[k];
        std::vector<uint32_t> rank;
        uint32_t count = 0;
        if (key.numbers == rowCount && !key.nan) {
            if (dirs[k] == 0 || dirs[k] == 1) {
                kbase_tables_internal::RankNumbers(key.values, rank, count);
                if (dirs[k] == 1) {
                    for (uint32_t& x : rank) x = count - 1 - x;
                }
                composite.Add(rank, count);
            }
            break;
        }
        if (key.numbers > 1 || key.mixed || (dirs[k] != 0 && dirs[k] != 1)) {
            ranked = false;
            break;
        }
        std::vector<uint32_t> rankOf;
        key.texts.Ranks(rankOf);
        count = key.texts.count();
        rank.resize(rowCount);
        for (size_t r = 0; r < rowCount; ++r) {
            rank[r] = dirs[k] == 1 ? count - 1 - rankOf[key.ids[r]] : rankOf[key.ids[r]];
        }
        composite.Add(rank, count);
    }
    keys.clear();

    std::vector<uint32_t> order;
    if (ranked) {
        order = composite.StableOrder();
    } else {
        order = CompareSortOrder(rows_, n, cols, dirs);
    }
    Permute(rows_, order);
}

void UtTable::RemoveDuplicate() {
    const size_t rowCount = rows_.size();
    long width = 0;
    bool plain = true;  // every row orders its cells ordinally
    for (const UtTableRow& row : rows_) {
        width = row.count() > width ? row.count() : width;
        const UtCStringComparatorBase* c = row.GetComparator();
        plain = plain && c != nullptr && typeid(*c) == typeid(UtCStringComparator);
    }
    std::vector<uint32_t> order;
    std::vector<bool> keep(rowCount, true);
    bool ranked = plain;
    if (ranked) {
        // A row is the tuple of its cells, a missing cell before every present one: that is the
        // list comparison, where a shorter list is smaller.
        // A pass over the rows gives every cell of a block of columns a text id; the blocks are
        // as wide as a bounded amount of ids allows (one pass for tables of a few columns).
        constexpr uint32_t kMissing = ~uint32_t{0};
        constexpr size_t kIdBudget = size_t{1} << 25;
        const size_t columns = static_cast<size_t>(width);
        const size_t block = std::max<size_t>(1, std::min(columns, kIdBudget / std::max<size_t>(rowCount, 1)));
        CompositeKey composite(rowCount);
        for (size_t first = 0; first < columns && ranked; first += block) {
            const size_t last = std::min(columns, first + block);
            std::vector<TextRanker> rankers(last - first);
            std::vector<std::vector<uint32_t>> ids(last - first, std::vector<uint32_t>(rowCount));
            for (size_t r = 0; r < rowCount && ranked; ++r) {
                const UtTableRow& row = rows_[r];
                const size_t cells = static_cast<size_t>(row.count());
                for (size_t col = first; col < last && ranked; ++col) {
                    if (col < cells) {
                        ranked = rankers[col - first].Add(ViewOf(&row.item(static_cast<long>(col))), ids[col - first][r]);
                    } else {
                        ids[col - first][r] = kMissing;
                    }
                }
            }
            for (size_t col = first; col < last && ranked; ++col) {
                std::vector<uint32_t> rankOf;
                rankers[col - first].Ranks(rankOf);
                std::vector<uint32_t>& rank = ids[col - first];
                for (uint32_t& x : rank) x = x == kMissing ? 0 : rankOf[x] + 1;
                composite.Add(rank, rankers[col - first].count() + 1);
            }
        }
        if (ranked) {
            order = composite.StableOrder();
            const std::vector<uint64_t>& k = composite.keys();
            for (size_t i = 1; i < rowCount; ++i) keep[i] = k[order[i]] != k[order[i - 1]];
        }
    }
    if (!ranked) {
        order.resize(rowCount);
        for (size_t r = 0; r < rowCount; ++r) order[r] = static_cast<uint32_t>(r);
        kbase_tables_internal::StableSort(order, [&](uint32_t a, uint32_t b) { return rows_[a] < rows_[b]; });
        size_t first = 0;
        for (size_t i = 1; i < rowCount; ++i) {
            keep[i] = !(rows_[order[i]] == rows_[order[first]]);
            if (keep[i]) first = i;
        }
    }
    std::vector<uint32_t> kept;
    kept.reserve(rowCount);
    for (size_t i = 0; i < rowCount; ++i) {
        if (keep[i]) kept.push_back(order[i]);
    }
    Permute(rows_, kept);
    actRow_ = 0;
}

// ---- grouping with totals -----------------------------------------------------------------------

namespace {

// The total as text in encoding e: through the format (8-bit or UTF-8 text) when it is a usable
// one, else "%.2f"; cut to 50 characters.
UtCString FormatTotal(const UtCDecimalSum& total, const UtCString* format, eUtEncodingType e) {
    std::string fmt = "%.2f";
    eUtEncodingType fmtEnc = eUtEncodingTypeAnsi1252;
    if (format != nullptr) {
        fmtEnc = format->encodingType();
        if (format->isAnsiEncodingType()) {
            fmt = format->ptr();
        } else {
            fmt = format->GetUtf8String(0);
            fmtEnc = eUtEncodingTypeUtf8;
        }
    }
    // An unusable format gives the ASCII text of "%.2f", the same bytes in either encoding.
    const std::string text = total.Format(fmt.c_str());
    size_t n = text.size();
    // Cutting at 50 bytes must not leave half a UTF-8 character behind.
    if (fmtEnc == eUtEncodingTypeUtf8 && n == kMaxSumText) {
        size_t i = n;
        while (i > 0 && (static_cast<unsigned char>(text[i - 1]) & 0xC0) == 0x80) --i;
        if (i > 0 && static_cast<unsigned char>(text[i - 1]) >= 0xC0) {
            const unsigned char lead = static_cast<unsigned char>(text[i - 1]);
            const size_t need = lead >= 0xF0 ? 4 : (lead >= 0xE0 ? 3 : 2);
            if (n - (i - 1) < need) n = i - 1;
        }
    }
    return UtCString(text.c_str(), static_cast<int>(n), fmtEnc, e);
}

// Puts text into cell col of row, padding the row with empty cells when it is shorter.
void SetCell(UtTableRow& row, long col, const UtCString& text) {
    while (row.count() <= col) {
        const long before = row.count();
        row.AddElem(UtCString(text.encodingType()));
        if (row.count() == before) return;  // out of memory
    }
    row.ChgElem(col, text);
}

}  // namespace

namespace {

// What SumColumn does with one group: the representative (a copy of the group's first row) and
// the running totals of the summed columns.
struct SumPlan {
    unsigned short nSum;
    const long* sumCols;
    unsigned short nCarry;
    const long* carryCols;
};

// The cell's bytes when the total may read them itself: 8-bit or UTF-8 text in the system
// encoding (the code page UtCDecimalSum reads bytes in), or ASCII. Null for any other cell.
const char* PlainBytes(const UtCString& cell, size_t& n) {
    if (cell.isUtf16EncodingType()) return nullptr;
    const char* p = kbase_tables_internal::Bytes(cell, n);
    if (p[n] != '\0') return nullptr;
    if (cell.encodingType() == UtCString::systemEncodingType()) return p;
    for (size_t i = 0; i < n; ++i) {
        if (static_cast<unsigned char>(p[i]) > 0x7F) return nullptr;
    }
    return p;
}

// Starts a group's totals from its first row's cells read like atof.
void StartTotals(const SumPlan& plan, const UtTableRow& first, UtCDecimalSum* totals) {
    for (unsigned short k = 0; k < plan.nSum; ++k) {
        totals[k].Clear();
        const UtCString* own = CellAt(first, plan.sumCols[k]);
        size_t n = 0;
        const char* p = own != nullptr ? PlainBytes(*own, n) : nullptr;
        if (p != nullptr) {
            totals[k].AddLenient(p, n);
        } else {
            totals[k].AddDouble(own != nullptr ? kbase_tables_internal::CellToDoubleLenient(*own) : 0.0);
        }
    }
}

// Folds a later row of the group into the representative and the totals: its carried cells
// overwrite the representative's, its cells that read as numbers are added.
void FoldRow(const SumPlan& plan, const UtTableRow& row, UtTableRow& rep, UtCDecimalSum* totals) {
    for (unsigned short k = 0; k < plan.nCarry; ++k) {
        const UtCString* cell = CellAt(row, plan.carryCols[k]);
        if (cell != nullptr) SetCell(rep, plan.carryCols[k], *cell);
    }
    for (unsigned short k = 0; k < plan.nSum; ++k) {
        const UtCString* cell = CellAt(row, plan.sumCols[k]);
        if (cell == nullptr) continue;
        size_t n = 0;
        const char* p = PlainBytes(*cell, n);
        double v = 0.0;
        if (p != nullptr) {
            totals[k].Add(p, n);
        } else if (CellToDouble(*cell, v)) {
            totals[k].AddDouble(v);
        }
    }
}

// Writes the totals into the representative.
void WriteTotals(const SumPlan& plan, const UtCStringList* formats, const UtCDecimalSum* totals, UtTableRow& rep) {
    for (unsigned short k = 0; k < plan.nSum; ++k) {
        if (plan.sumCols[k] < 0) continue;
        const UtCString* format = (formats != nullptr && k < formats->count()) ? &formats->item(k) : nullptr;
        const UtCString* own = CellAt(rep, plan.sumCols[k]);
        const eUtEncodingType e = own != nullptr ? own->encodingType() : UtCString::systemEncodingType();
        SetCell(rep, plan.sumCols[k], FormatTotal(totals[k], format, e));
    }
}

// Whether the non-empty cells of the grouping columns are all of one encoding (units compare
// as plain bytes or 16-bit units then).
bool OneKeyEncoding(const UtTable::RowList& rows, const std::vector<long>& groupCols) {
    uint16_t enc = 0;
    for (const UtTableRow& row : rows) {
        for (long col : groupCols) {
            const CellView v = ViewOf(CellAt(row, col));
            if (v.n == 0) continue;
            if (enc == 0) enc = v.enc;
            if (v.enc != enc) return false;
        }
    }
    return true;
}

// Groups in one pass over the rows in table order: a hash table of the groups' first rows,
// keyed on the grouping cells' units. Every row of a group is folded in table order, which is
// the order of the group's rows after a stable sort, so totals and carried cells come out as
// they would after sorting. firstOf lists the groups' first rows, in order of appearance.
// Returns false, having changed nothing, when the grouping cells mix encodings.
bool GroupByHash(UtTable::RowList& rows, const std::vector<long>& groupCols, const SumPlan& plan,
                 std::vector<uint32_t>& firstOf, std::vector<UtCDecimalSum>& totals) {
    if (plan.nCarry > 0 && !OneKeyEncoding(rows, groupCols)) return false;
    const size_t width = groupCols.size();
    const size_t nSum = plan.nSum;
    std::vector<CellView> key(width);
    std::vector<CellView> firstKeys;  // width views per group
    std::vector<uint64_t> slotHash;
    std::vector<uint32_t> slots;  // group + 1; 0 is free
    size_t mask = 0;
    auto rehash = [&](size_t cap) {
        std::vector<uint32_t> fresh(cap, 0);
        std::vector<uint64_t> freshHash(cap, 0);
        for (size_t i = 0; i < slots.size(); ++i) {
            if (slots[i] == 0) continue;
            size_t j = slotHash[i] & (cap - 1);
            while (fresh[j] != 0) j = (j + 1) & (cap - 1);
            fresh[j] = slots[i];
            freshHash[j] = slotHash[i];
        }
        slots.swap(fresh);
        slotHash.swap(freshHash);
        mask = cap - 1;
    };
    rehash(256);
    uint16_t enc = 0;
    for (size_t r = 0; r < rows.size(); ++r) {
        const UtTableRow& row = rows[r];
        uint64_t h = 0x2545F4914F6CDD1DULL;
        for (size_t g = 0; g < width; ++g) {
            key[g] = ViewOf(CellAt(row, groupCols[g]));
            if (key[g].n != 0) {
                if (enc == 0) enc = key[g].enc;
                if (key[g].enc != enc) return false;  // only reached before any change (nCarry == 0)
            }
            h = (h ^ kbase_tables_internal::HashView(key[g])) * 0x9E3779B97F4A7C15ULL;
            h ^= h >> 29;
        }
        size_t i = h & mask;
        for (;;) {
            if (slots[i] == 0) {
                firstOf.push_back(static_cast<uint32_t>(r));
                // The first row's grouping cells stay where they are for the whole pass (only
                // summed and carried cells of a first row change), so their views stay valid.
                firstKeys.insert(firstKeys.end(), key.begin(), key.end());
                totals.resize(firstOf.size() * nSum);
                StartTotals(plan, row, totals.data() + (firstOf.size() - 1) * nSum);
                slots[i] = static_cast<uint32_t>(firstOf.size());
                slotHash[i] = h;
                if (firstOf.size() * 2 > slots.size()) rehash(slots.size() * 2);
                break;
            }
            if (slotHash[i] == h) {
                const size_t group = slots[i] - 1;
                UtTableRow& rep = rows[firstOf[group]];
                const CellView* repKey = firstKeys.data() + group * width;
                bool same = true;
                for (size_t g = 0; g < width && same; ++g) same = kbase_tables_internal::EqualCells(repKey[g], key[g]);
                if (same) {
                    FoldRow(plan, row, rep, totals.data() + group * nSum);
                    break;
                }
            }
            i = (i + 1) & mask;
        }
    }
    return true;
}

}  // namespace

void UtTable::SumColumn(unsigned short nSum, const long* sumCols, const UtCStringList* formats, unsigned short nCarry,
                        const long* carryCols) {
    const size_t rowCount = rows_.size();
    if (sumCols == nullptr) nSum = 0;
    if (carryCols == nullptr) nCarry = 0;
    if (rowCount == 0) {
        actRow_ = 0;
        return;
    }
    const SumPlan plan{nSum, sumCols, nCarry, carryCols};
    std::vector<long> groupCols;
    for (long col = 0; col < rows_[0].count(); ++col) {
        if (!ItemInList(nSum, sumCols, col) && !ItemInList(nCarry, carryCols, col)) groupCols.push_back(col);
    }
    const size_t width = groupCols.size();

    RowList groups;
    std::vector<uint32_t> firstOf;
    std::vector<UtCDecimalSum> totals;
    if (GroupByHash(rows_, groupCols, plan, firstOf, totals)) {
        // Only the few group rows are put in order; their grouping cells are all distinct.
        std::vector<uint32_t> order(firstOf.size());
        for (uint32_t g = 0; g < order.size(); ++g) order[g] = g;
        std::vector<CellView> views(firstOf.size() * width);
        for (size_t g = 0; g < firstOf.size(); ++g) {
            for (size_t c = 0; c < width; ++c) views[g * width + c] = ViewOf(CellAt(rows_[firstOf[g]], groupCols[c]));
        }
        std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
            for (size_t c = 0; c < width; ++c) {
                const int r = CompareCells(views[a * width + c], views[b * width + c]);
                if (r != 0) return r < 0;
            }
            return false;
        });
        groups.reserve(order.size());
        for (uint32_t g : order) {
            UtTableRow rep(std::move(rows_[firstOf[g]]));
            WriteTotals(plan, formats, totals.data() + size_t{g} * nSum, rep);
            groups.push_back(std::move(rep));
        }
        rows_.swap(groups);
        actRow_ = 0;
        return;
    }

    // Grouping cells of several encodings: their order is not one of plain units, so the rows
    // are stable-sorted by the full comparison and each group is folded in that order.
    std::vector<CellView> views(rowCount * width);
    for (size_t r = 0; r < rowCount; ++r) {
        for (size_t g = 0; g < width; ++g) views[r * width + g] = ViewOf(CellAt(rows_[r], groupCols[g]));
    }
    auto compareRows = [&](uint32_t a, uint32_t b) {
        for (size_t g = 0; g < width; ++g) {
            const int c = CompareCells(views[a * width + g], views[b * width + g]);
            if (c != 0) return c;
        }
        return 0;
    };
    std::vector<uint32_t> order(rowCount);
    for (size_t r = 0; r < rowCount; ++r) order[r] = static_cast<uint32_t>(r);
    kbase_tables_internal::StableSort(order, [&](uint32_t a, uint32_t b) { return compareRows(a, b) < 0; });

    totals.resize(nSum);
    for (size_t start = 0; start < rowCount;) {
        size_t end = start + 1;
        while (end < rowCount && compareRows(order[start], order[end]) == 0) ++end;
        // The first row is not read again, and moving it keeps its strings where the views see them.
        UtTableRow rep(std::move(rows_[order[start]]));
        StartTotals(plan, rep, totals.data());
        for (size_t i = start + 1; i < end; ++i) FoldRow(plan, rows_[order[i]], rep, totals.data());
        WriteTotals(plan, formats, totals.data(), rep);
        groups.push_back(std::move(rep));
        start = end;
    }
    rows_.swap(groups);
    actRow_ = 0;
}
