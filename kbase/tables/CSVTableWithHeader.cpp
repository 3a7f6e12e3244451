// CSVTableWithHeader.
#include "kbase/tables/CSVTableWithHeader.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "kbase/tables/internal/line_source.h"

using kbase_tables_internal::LineSource;

CSVTableWithHeader::CSVTableWithHeader() = default;

CSVTableWithHeader::CSVTableWithHeader(const UtCString& fileName, char delimiter, bool load)
    : fileName_(fileName), delimiter_(delimiter) {
    if (load) Load(fileName, delimiter);
}

CSVTableWithHeader::CSVTableWithHeader(const CSVTableWithHeader& other) = default;
CSVTableWithHeader& CSVTableWithHeader::operator=(const CSVTableWithHeader& other) = default;
CSVTableWithHeader::CSVTableWithHeader(CSVTableWithHeader&& other) noexcept = default;
CSVTableWithHeader& CSVTableWithHeader::operator=(CSVTableWithHeader&& other) noexcept = default;
CSVTableWithHeader::~CSVTableWithHeader() = default;

namespace {

// FNV-1a over the bytes, finished by a multiply-shift mix; the identifier map's hash.
uint64_t HashText(std::string_view t) {
    uint64_t h = 0xcbf29ce484222325ULL;
    for (unsigned char c : t) h = (h ^ c) * 0x100000001b3ULL;
    h ^= h >> 32;
    h *= 0x9E3779B97F4A7C15ULL;
    return h ^ (h >> 29);
}

constexpr uint64_t kMaxMapRows = 0xFFFFFFFEULL;  // slots hold row + 1 in 32 bits

}  // namespace

void CSVTableWithHeader::Init() {
    loaded_ = false;
    text_.clear();
    text_.shrink_to_fit();
    rows_.clear();
    rows_.shrink_to_fit();
    cellEnd_.clear();
    cellEnd_.shrink_to_fit();
    edits_.clear();
    maxFields_ = 0;
    headerMap_.clear();
    idSlots_.clear();
    headerMapStale_ = idMapStale_ = false;
}

bool CSVTableWithHeader::Load(const UtCString& fileName, char delimiter) {
    Init();
    fileName_ = fileName;
    delimiter_ = delimiter;
    LineSource source;
    if (!source.Open(fileName.GetUtf8String(0).c_str())) return false;
    if (source.Size() > 0) text_.reserve(static_cast<size_t>(source.Size()));
    uint64_t width = 0;
    for (;;) {
        char* line = nullptr;
        size_t length = 0;
        const LineSource::Status s = source.Next(line, length);
        if (s == LineSource::Status::kEnd) break;
        if (s != LineSource::Status::kLine) {
            Init();
            return false;
        }
        const size_t first = cellEnd_.size();
        rows_.push_back({text_.size(), first});
        text_.append(line, length);
        // Lines are shorter than 2^30 bytes (LineSource), so offsets in a line fit 32 bits.
        const char* p = line;
        const char* end = line + length;
        for (;;) {
            const char* d = static_cast<const char*>(std::memchr(p, delimiter, static_cast<size_t>(end - p)));
            if (d == nullptr) break;
            cellEnd_.push_back(static_cast<uint32_t>(d - line));
            p = d + 1;
        }
        cellEnd_.push_back(static_cast<uint32_t>(length));
        if (cellEnd_.size() - first > width) width = cellEnd_.size() - first;
    }
    if (!rows_.empty()) rows_.push_back({text_.size(), cellEnd_.size()});
    maxFields_ = width;
    loaded_ = true;
    BuildHeaderMap();
    BuildIdMap();
    return true;
}

uint64_t CSVTableWithHeader::GetFieldCount(uint64_t row) const {
    return row + 1 < rows_.size() ? rows_[row + 1].firstCell - rows_[row].firstCell : 0;
}

std::string_view CSVTableWithHeader::Field(uint64_t row, uint64_t col) const {
    if (col >= GetFieldCount(row)) return {};
    const uint64_t cell = rows_[row].firstCell + col;
    if (!edits_.empty()) {
        const auto e = edits_.find(cell);
        if (e != edits_.end()) return e->second;
    }
    const uint32_t begin = col == 0 ? 0 : cellEnd_[cell - 1] + 1;
    return std::string_view(text_.data() + rows_[row].text + begin, cellEnd_[cell] - begin);
}

void CSVTableWithHeader::BuildHeaderMap() const {
    headerMap_.clear();
    const uint64_t n = GetFieldCount(0);
    for (uint64_t c = 0; c < n; ++c) headerMap_[std::string(Field(0, c))] = c;
    headerMapStale_ = false;
}

void CSVTableWithHeader::BuildIdMap() const {
    idSlots_.clear();
    const uint64_t rowCount = GetRowCount();
    if (rowCount > kMaxMapRows) throw std::length_error("unordered_map/set too long");
    size_t cap = 16;
    while (cap < 2 * rowCount) cap *= 2;
    idSlots_.assign(cap, 0);
    // Hash first (a pass in file order), then insert with the slots fetched ahead: the slots are
    // hit at random and would otherwise stall on every row.
    std::vector<uint64_t> hashes(rowCount > 1 ? rowCount - 1 : 0);
    for (uint64_t r = 1; r < rowCount; ++r) hashes[r - 1] = HashText(Field(r, 0));
    constexpr size_t kAhead = 16;
    for (size_t i = 0; i < hashes.size(); ++i) {
#if defined(__GNUC__)
        if (i + kAhead < hashes.size()) __builtin_prefetch(&idSlots_[hashes[i + kAhead] & (cap - 1)]);
#endif
        const uint64_t h = hashes[i];
        const uint64_t row = i + 1;
        const uint64_t tag = h >> 32;
        size_t j = h & (cap - 1);
        for (;;) {
            const uint64_t slot = idSlots_[j];
            if (slot == 0) {
                idSlots_[j] = (tag << 32) | (row + 1);
                break;
            }
            // A repeated identifier maps to its last row.
            if ((slot >> 32) == tag && Field((slot & 0xFFFFFFFFULL) - 1, 0) == Field(row, 0)) {
                idSlots_[j] = (tag << 32) | (row + 1);
                break;
            }
            j = (j + 1) & (cap - 1);
        }
    }
    idMapStale_ = false;
}

int64_t CSVTableWithHeader::FindId(std::string_view id) const {
    if (idSlots_.empty()) return -1;
    const uint64_t h = HashText(id);
    const size_t mask = idSlots_.size() - 1;
    for (size_t j = h & mask;; j = (j + 1) & mask) {
        const uint64_t slot = idSlots_[j];
        if (slot == 0) return -1;
        const uint64_t row = (slot & 0xFFFFFFFFULL) - 1;
        if ((slot >> 32) == (h >> 32) && Field(row, 0) == id) return static_cast<int64_t>(row);
    }
}

uint64_t CSVTableWithHeader::GetRowCount() const { return rows_.empty() ? 0 : rows_.size() - 1; }

CSVTableWithHeader::Row CSVTableWithHeader::GetRow(uint64_t i) const {
    Row row;
    const uint64_t n = GetFieldCount(i);
    row.reserve(n);
    for (uint64_t c = 0; c < n; ++c) row.emplace_back(Field(i, c));
    return row;
}

CSVTableWithHeader::Row CSVTableWithHeader::GetCol(uint64_t i) const {
    Row col;
    const uint64_t rowCount = GetRowCount();
    col.reserve(rowCount);
    for (uint64_t r = 0; r < rowCount; ++r) col.emplace_back(Field(r, i));
    return col;
}

std::string CSVTableWithHeader::GetData(uint64_t row, uint64_t col) const { return std::string(Field(row, col)); }

bool CSVTableWithHeader::SetData(uint64_t row, uint64_t col, const std::string& text) {
    if (col >= GetFieldCount(row)) return false;
    edits_[rows_[row].firstCell + col] = text;
    if (row == 0) headerMapStale_ = true;
    if (col == 0 && row > 0) idMapStale_ = true;
    return true;
}

CSVTableWithHeader::Table CSVTableWithHeader::GetTable() const {
    Table table;
    const uint64_t rowCount = GetRowCount();
    table.reserve(rowCount);
    for (uint64_t r = 0; r < rowCount; ++r) table.push_back(GetRow(r));
    return table;
}

CSVTableWithHeader::Row CSVTableWithHeader::GetHeader() const { return GetRow(0); }

std::vector<std::string> CSVTableWithHeader::GetIDs() const {
    std::vector<std::string> ids;
    const uint64_t rowCount = GetRowCount();
    if (rowCount > 1) ids.reserve(rowCount - 1);
    for (uint64_t r = 1; r < rowCount; ++r) ids.emplace_back(Field(r, 0));
    return ids;
}

std::string CSVTableWithHeader::GetData(const std::string& id, const std::string& header) const {
    if (headerMapStale_) BuildHeaderMap();
    if (idMapStale_) BuildIdMap();
    const int64_t r = FindId(id);
    const auto c = headerMap_.find(header);
    if (r < 0 || c == headerMap_.end()) return std::string();
    return GetData(static_cast<uint64_t>(r), c->second);
}

bool CSVTableWithHeader::SetData(const std::string& id, const std::string& header, const std::string& text) {
    if (headerMapStale_) BuildHeaderMap();
    if (idMapStale_) BuildIdMap();
    const int64_t r = FindId(id);
    const auto c = headerMap_.find(header);
    if (r < 0 || c == headerMap_.end()) return false;
    return SetData(static_cast<uint64_t>(r), c->second, text);
}
