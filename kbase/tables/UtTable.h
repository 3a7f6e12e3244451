// UtTable: a small in-memory table of text cells; UtTableRow: one row of it.
//
// A row is a string list (cell i is column i) with a current-cell cursor and a 16-bit priority per
// cell; rows of one table may have different cell counts. The table keeps its rows by value and a
// current-row cursor. Cells carry no type: Sort and SumColumn read a cell as a number where they
// need one, through UtCString::Convert(double&).
//
// Status results: 0 done, 1 index out of range / nothing done; lookups return a truth value.
// Nothing throws for a bad index. Kept on purpose (callers rely on them):
//  - AddRow and AddElem increment the cursors instead of jumping to the new row or cell;
//  - UtTable::GetElem is false for a bad row but true (output untouched) for a bad column;
//  - UtTableRow::Clear leaves the current cell and the priorities as they were;
//  - in Sort, two cells that both read as numbers end the comparison, even when equal.
#pragma once

#include <cstdint>
#include <vector>

#include "kbase/export.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/UtCStringList.h"

class KBASE_API UtTableRow : public UtCStringList {
public:
    UtTableRow();
    UtTableRow(const UtTableRow& other);
    UtTableRow& operator=(const UtTableRow& other);
    UtTableRow(UtTableRow&& other) noexcept;
    UtTableRow& operator=(UtTableRow&& other) noexcept;
    ~UtTableRow() override;

    // Appends a copy of the text as the last cell with priority 0 and increments the current cell
    // (from -1 after construction this gives 0); returns the incremented current cell. When memory
    // runs out nothing is added and the current cell is returned unchanged.
    long AddElem(const UtCString& text);
    // The narrow text is taken in the system code page; a text that cannot be copied for want of
    // memory is not added (no empty cell stands in for it).
    long AddElem(const char* text);
    // 1 for an index outside the row; else replaces the cell's text, 0 (when memory runs out the
    // cell keeps its text).
    int ChgElem(long i, const UtCString& text);
    int ChgElem(long i, const char* text);
    // False for an index outside the row; else whether the cell equals the text (CompareTo == 0).
    bool IsElemEqualTo(long i, const UtCString& text) const;
    bool IsElemEqualTo(long i, const char* text) const;
    // Copies the cell at i / at the current cell into out; false (out untouched) when out of range.
    bool GetElem(long i, UtCString& out) const;
    bool GetElem(UtCString& out) const;
    // Sets the current cell to 0; false for an empty row, else copies cell 0.
    bool GetFirstElem(UtCString& out);
    // Advances the current cell and copies it; past the end the cursor stays where it was, false.
    bool GetNextElem(UtCString& out);
    long GetActElem() const { return actElem_; }
    long GetElemCount() const { return count(); }

    // The priority of cell i. No range check: i must be below the number of cells ever added.
    // Priorities are stored only once one is set to non-zero (until then all read 0); should
    // memory for them run out, the setter leaves them as they were.
    unsigned short priority(const long& i) const { return priorities_ != nullptr ? priorities_[i] : 0; }
    void priority(const long& i, const unsigned short& value);

    // Removes the cells only: the current cell and the priorities stay as they were, so a
    // following GetNextElem continues from the old index.
    void Clear();

    // UtCStringList::CompareTo is 0 / negative.
    bool operator==(const UtTableRow& other) const { return CompareTo(other) == 0; }
    bool operator<(const UtTableRow& other) const { return CompareTo(other) < 0; }

private:
    bool GrowPriorities(long n);

    long actElem_;
    // UtAllocMemoryBlock, priorityCap_ entries; null while every priority is 0. priorityCount_
    // is the number of cells ever added, stored or not.
    unsigned short* priorities_;
    int32_t priorityCount_;
    int32_t priorityCap_;
};

class KBASE_API UtTable {
public:
    using RowList = std::vector<UtTableRow>;
    static constexpr uint64_t kNoRow = ~uint64_t{0};

    UtTable();
    UtTable(const UtTable& other);
    UtTable& operator=(const UtTable& other);
    UtTable(UtTable&& other) noexcept;
    UtTable& operator=(UtTable&& other) noexcept;
    ~UtTable();

    // Appends an empty row and increments the current row (from "none" this gives 0; it does not
    // jump to the new row). Returns the new last row, valid until the next row is added.
    UtTableRow& AddRow();
    // Appends a cell to the current row / to the given row; 1 when that row does not exist.
    int AddElem(const UtCString& text);
    int AddElem(const char* text);
    int AddElem(uint64_t row, const UtCString& text);
    int AddElem(uint64_t row, const char* text);
    // 1 when the row or the column (in that row) does not exist; else replaces the cell, 0.
    int ChgElem(uint64_t row, long col, const UtCString& text);
    int ChgElem(uint64_t row, long col, const char* text);

    // 1 (cursor unchanged) when there is no such row; else makes it the current row, 0.
    int SetRow(unsigned long row);
    // Sets the current row to 0 in any case; 0 when the table has rows, 1 when it is empty.
    int GetFirstRow();
    // Advances the current row; past the end the cursor stays where it was and the result is 1.
    int GetNextRow();

    // False for a row that does not exist; true with out untouched for a column that does not
    // exist in the row; else copies the cell, true.
    bool GetElem(uint64_t row, long col, UtCString& out) const;
    bool GetElem(long col, UtCString& out) const;  // on the current row
    bool IsElemEqualTo(uint64_t row, long col, const char* text) const;
    // Cell count of the current row / of the given row; 0 when there is no such row.
    unsigned long GetElemCount() const;
    unsigned long GetElemCount(long row) const;
    uint64_t GetRowCount() const { return rows_.size(); }
    uint64_t GetActRow() const { return actRow_; }
    // The row at i, without a range check.
    UtTableRow& GetTableRow(unsigned long i) { return rows_[i]; }
    RowList& GetRowList() { return rows_; }
    const RowList& GetRowList() const { return rows_; }

    // 1 when value is one of the first n entries of list, else 0.
    static int ItemInList(unsigned short n, const long* list, long value);
    // Destroys all rows; the current row becomes "none".
    void Clear();

    // Stable sort by n key columns cols[i] with directions dirs[i] (0 ascending, 1 descending).
    // Per key: a column a row lacks reads as the empty text; when both cells read as numbers
    // (UtCString::Convert(double&)) they decide by value and the comparison ends there, even for
    // equal numbers (later keys are not consulted); a direction other than 0 and 1 then orders
    // nothing. Otherwise the texts are compared ordinally, and only equal texts go on to the next
    // key. The cursors stay. Each cell is read as a number once; cost O(rows log rows).
    void Sort(unsigned short n, const long* cols, const short* dirs);
    // Sorts the rows ascending by UtTableRow::operator< and keeps the first of each run of equal
    // rows; the current row becomes 0.
    void RemoveDuplicate();
    // Groups the rows that are equal (ordinal text) in every column that is neither summed nor
    // carried, up to the first row's cell count; the groups come out in ascending order of those
    // columns, each as a copy of its first row in which
    //  - each carried column holds the cell of the group's last row that has one;
    //  - each summed column sumCols[k] holds the total: the first row's cell read like atof (text
    //    that is not a number counts 0) plus every later cell that reads as a number by
    //    UtCString::Convert(double&) (others are skipped), formatted with (*formats)[k] when
    //    formats has an entry k, else "%.2f", and cut to 50 characters. Decimal texts are totalled
    //    exactly (UtCDecimalSum): the total is the double nearest to their exact sum, so a column
    //    of prices does not drift by cents however many rows it has. A format that is not a
    //    single floating conversion (%f, %e, %g, %a with flags, width and precision; %% allowed)
    //    is not used: "%.2f" is used instead. A representative lacking a summed or carried column
    //    is padded with empty cells so that its result is kept.
    // The rows are replaced by the groups and the current row becomes 0.
    void SumColumn(unsigned short nSum, const long* sumCols, const UtCStringList* formats, unsigned short nCarry,
                   const long* carryCols);

private:
    RowList rows_;
    uint64_t actRow_;
};
