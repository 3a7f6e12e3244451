// CSVTableWithHeader: a delimiter-separated file loaded whole into memory as rows of narrow text
// fields, with lookups by header name and by row identifier.
//
// Every occurrence of the delimiter separates, so adjacent delimiters yield empty fields (unlike
// UtCCsvReader); there is no quoting. A CR before a line feed is not part of a line, a last line
// without a line feed is a row too, and an empty line is a row of one empty field, so that row i
// is line i of the file. A UTF-8 byte-order mark at the start of the file is skipped. Fields keep
// the file's bytes (no conversion).
//
// Row 0 is the header. The row identifier of a row is its first field; the header row has none.
// Two maps answer the lookups: header name -> column (a repeated name maps to its last column)
// and identifier -> row (a repeated identifier maps to its last row); both follow SetData.
// Growth of a map past its maximum size throws std::length_error.
//
// Storage: the fields' bytes lie in one block, line after line, and each field is found through
// its end offset in its line, so a load costs a few large allocations instead of one per field;
// SetData keeps the new text beside the block. The rows and fields come out as std::string copies.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kbase/export.h"
#include "kbase/text/UtCString.h"

class KBASE_API CSVTableWithHeader {
public:
    using Row = std::vector<std::string>;
    using Table = std::vector<Row>;

    CSVTableWithHeader();
    // Stores the file name and the delimiter, and loads the file when load is true.
    explicit CSVTableWithHeader(const UtCString& fileName, char delimiter = ';', bool load = true);
    CSVTableWithHeader(const CSVTableWithHeader& other);
    CSVTableWithHeader& operator=(const CSVTableWithHeader& other);
    CSVTableWithHeader(CSVTableWithHeader&& other) noexcept;
    CSVTableWithHeader& operator=(CSVTableWithHeader&& other) noexcept;
    virtual ~CSVTableWithHeader();

    // Empties the table and the maps; not loaded afterwards. The file name and delimiter stay.
    virtual void Init();
    // Replaces the content by the file's rows (the file name and delimiter are stored); false
    // (and empty) when the file cannot be opened or read to its end.
    virtual bool Load(const UtCString& fileName, char delimiter);
    // Rows, header included.
    virtual uint64_t GetRowCount() const;
    // A copy of row i (empty when there is none).
    virtual Row GetRow(uint64_t i) const;
    // Field i of every row, header included ("" where a row is shorter).
    virtual Row GetCol(uint64_t i) const;
    // The field, or "" when there is none.
    virtual std::string GetData(uint64_t row, uint64_t col) const;
    // Replaces an existing field; false (nothing changed) when there is none.
    virtual bool SetData(uint64_t row, uint64_t col, const std::string& text);
    virtual Table GetTable() const;

    // The first row (empty when the table is empty).
    Row GetHeader() const;
    // The first field of every row after the header, in row order.
    std::vector<std::string> GetIDs() const;
    // Field access through the maps: "" / false for an unknown identifier or header name.
    std::string GetData(const std::string& id, const std::string& header) const;
    bool SetData(const std::string& id, const std::string& header, const std::string& text);

    bool IsLoaded() const { return loaded_; }
    char GetDelimiter() const { return delimiter_; }
    const UtCString& GetFileName() const { return fileName_; }
    // The largest field count of any row.
    uint64_t GetColCount() const { return maxFields_; }
    // Field access without a copy: the field count of row i (0 when there is none) and a view
    // of a field ("" when there is none), valid until the table is changed.
    uint64_t GetFieldCount(uint64_t row) const;
    std::string_view Field(uint64_t row, uint64_t col) const;

private:
    struct RowRef {
        uint64_t text;       // offset of the row's line in text_
        uint64_t firstCell;  // index of its first field in cellEnd_
    };
    void BuildHeaderMap() const;
    void BuildIdMap() const;
    // The row whose identifier is id, or -1.
    int64_t FindId(std::string_view id) const;

    UtCString fileName_;
    bool loaded_ = false;
    char delimiter_ = ';';
    std::string text_;                   // the lines' bytes, one after another
    std::vector<RowRef> rows_;           // one per row, plus an end marker when not empty
    std::vector<uint32_t> cellEnd_;      // per field: its end offset in its line
    std::unordered_map<uint64_t, std::string> edits_;  // field index -> text set by SetData
    uint64_t maxFields_ = 0;
    mutable std::unordered_map<std::string, uint64_t> headerMap_;
    // Identifier map: open addressing over slots (hash tag << 32 | row), 0 free.
    mutable std::vector<uint64_t> idSlots_;
    mutable bool headerMapStale_ = false;
    mutable bool idMapStale_ = false;
};
