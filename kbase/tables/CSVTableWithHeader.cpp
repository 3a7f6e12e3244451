// CSVTableWithHeader.
#include "kbase/tables/CSVTableWithHeader.h"

#include <cstring>
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

void CSVTableWithHeader::Init() {
    loaded_ = false;
    table_.clear();
    maxFields_ = 0;
    headerMap_.clear();
    idMap_.clear();
    headerMapStale_ = idMapStale_ = false;
}

bool CSVTableWithHeader::Load(const UtCString& fileName, char delimiter) {
    Init();
    fileName_ = fileName;
    delimiter_ = delimiter;
    LineSource source;
    if (!source.Open(fileName.GetUtf8String(0).c_str())) return false;
    size_t width = 0;
    for (;;) {
        char* line = nullptr;
        size_t length = 0;
        const LineSource::Status s = source.Next(line, length);
        if (s == LineSource::Status::kEnd) break;
        if (s != LineSource::Status::kLine) {
            Init();
            return false;
        }
        Row row;
        row.reserve(width);
        const char* p = line;
        const char* end = line + length;
        for (;;) {
            const char* d = static_cast<const char*>(std::memchr(p, delimiter, static_cast<size_t>(end - p)));
            if (d == nullptr) {
                row.emplace_back(p, end);
                break;
            }
            row.emplace_back(p, d);
            p = d + 1;
        }
        if (row.size() > width) width = row.size();
        table_.push_back(std::move(row));
    }
    maxFields_ = width;
    loaded_ = true;
    BuildHeaderMap();
    BuildIdMap();
    return true;
}

void CSVTableWithHeader::BuildHeaderMap() const {
    headerMap_.clear();
    if (!table_.empty()) {
        const Row& header = table_.front();
        for (uint64_t c = 0; c < header.size(); ++c) headerMap_[header[c]] = c;
    }
    headerMapStale_ = false;
}

void CSVTableWithHeader::BuildIdMap() const {
    idMap_.clear();
    idMap_.reserve(table_.size());
    for (uint64_t r = 1; r < table_.size(); ++r) idMap_[table_[r].empty() ? std::string() : table_[r].front()] = r;
    idMapStale_ = false;
}

uint64_t CSVTableWithHeader::GetRowCount() const { return table_.size(); }

CSVTableWithHeader::Row CSVTableWithHeader::GetRow(uint64_t i) const { return i < table_.size() ? table_[i] : Row(); }

CSVTableWithHeader::Row CSVTableWithHeader::GetCol(uint64_t i) const {
    Row col;
    col.reserve(table_.size());
    for (const Row& row : table_) col.push_back(i < row.size() ? row[i] : std::string());
    return col;
}

std::string CSVTableWithHeader::GetData(uint64_t row, uint64_t col) const {
    if (row >= table_.size() || col >= table_[row].size()) return std::string();
    return table_[row][col];
}

bool CSVTableWithHeader::SetData(uint64_t row, uint64_t col, const std::string& text) {
    if (row >= table_.size() || col >= table_[row].size()) return false;
    table_[row][col] = text;
    if (row == 0) headerMapStale_ = true;
    if (col == 0 && row > 0) idMapStale_ = true;
    return true;
}

CSVTableWithHeader::Table CSVTableWithHeader::GetTable() const { return table_; }

CSVTableWithHeader::Row CSVTableWithHeader::GetHeader() const { return GetRow(0); }

std::vector<std::string> CSVTableWithHeader::GetIDs() const {
    std::vector<std::string> ids;
    if (table_.size() > 1) ids.reserve(table_.size() - 1);
    for (uint64_t r = 1; r < table_.size(); ++r) ids.push_back(table_[r].empty() ? std::string() : table_[r].front());
    return ids;
}

std::string CSVTableWithHeader::GetData(const std::string& id, const std::string& header) const {
    if (headerMapStale_) BuildHeaderMap();
    if (idMapStale_) BuildIdMap();
    const auto r = idMap_.find(id);
    const auto c = headerMap_.find(header);
    if (r == idMap_.end() || c == headerMap_.end()) return std::string();
    return GetData(r->second, c->second);
}

bool CSVTableWithHeader::SetData(const std::string& id, const std::string& header, const std::string& text) {
    if (headerMapStale_) BuildHeaderMap();
    if (idMapStale_) BuildIdMap();
    const auto r = idMap_.find(id);
    const auto c = headerMap_.find(header);
    if (r == idMap_.end() || c == headerMap_.end()) return false;
    return SetData(r->second, c->second, text);
}
