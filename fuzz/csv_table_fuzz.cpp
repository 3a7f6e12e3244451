// Arbitrary bytes as a CSV file for CSVTableWithHeader, then through a UtTable: the rows must
// hold exactly the file's bytes, and sorting, grouping and de-duplicating must not fault.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_file.h"
#include "kbase/tables/CSVTableWithHeader.h"
#include "kbase/tables/UtTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const char delimiter = static_cast<char>(data[0]);
    FuzzFile file(data + 1, size - 1);
    CSVTableWithHeader t(UtCString(file.path().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8), delimiter, true);
    if (!t.IsLoaded()) std::abort();
    // Joining the fields again gives the input back, except line ends and a leading mark.
    size_t bytes = 0;
    for (uint64_t r = 0; r < t.GetRowCount(); ++r) {
        for (uint64_t c = 0; c < t.GetFieldCount(r); ++c) bytes += t.Field(r, c).size() + 1;
    }
    if (bytes > size + 1) std::abort();
    for (const std::string& id : t.GetIDs()) (void)t.GetData(id, t.GetHeader().empty() ? std::string() : t.GetHeader()[0]);

    UtTable table;
    for (const auto& row : t.GetTable()) {
        table.AddRow();
        for (const auto& f : row) table.AddElem(UtCString(f.c_str(), static_cast<int>(f.size()), eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252));
    }
    const long cols[] = {0, 1, 2};
    const short dirs[] = {static_cast<short>(data[0] & 1), static_cast<short>((data[0] >> 1) & 3), 0};
    UtTable sorted(table);
    sorted.Sort(3, cols, dirs);
    if (sorted.GetRowCount() != table.GetRowCount()) std::abort();
    UtTable unique(table);
    unique.RemoveDuplicate();
    if (unique.GetRowCount() > table.GetRowCount()) std::abort();
    const long sums[] = {1};
    const long carry[] = {2};
    table.SumColumn(1, sums, nullptr, 1, carry);
    return 0;
}
