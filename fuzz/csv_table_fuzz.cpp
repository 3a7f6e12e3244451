// Arbitrary bytes as a CSV file for CSVTableWithHeader, then through a UtTable. The first byte is
// the delimiter and picks the line source's block size. Properties: the rows joined by the
// delimiter, a line feed after each, are exactly the file's bytes (less a leading mark and the CR
// of each CRLF); the lookups by header and identifier find the last row or column of that name;
// sorting keeps every row and de-duplicating keeps one of each.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz_file.h"
#include "fuzz_support.h"
#include "kbase/tables/CSVTableWithHeader.h"
#include "kbase/tables/UtTable.h"
#include "kbase/tables/internal/line_source.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

std::string Expected(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
        out += text[i];
    }
    if (!out.empty() && out.back() != '\n') out += '\n';
    return out;
}

std::vector<std::string> Column(const UtTable& t, long c) {
    std::vector<std::string> out;
    for (uint64_t r = 0; r < t.GetRowCount(); ++r) {
        UtCString cell;
        if (!t.GetElem(r, c, cell)) std::abort();
        out.push_back(cell.GetAnsiString());
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const char delimiter = static_cast<char>(data[0]);
    kbase_tables_internal::SetLineSourceLimitsForTesting(1 + data[0] % 97, 0);
    FuzzFile file(data + 1, size - 1);
    CSVTableWithHeader t(UtCString(file.path().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8),
                         delimiter, true);
    kbase_tables_internal::SetLineSourceLimitsForTesting(0, 0);
    if (!t.IsLoaded()) std::abort();
    const std::vector<std::vector<std::string>> rows = t.GetTable();
    std::string joined;
    for (const auto& row : rows) {
        for (size_t c = 0; c < row.size(); ++c) {
            if (c > 0) joined += delimiter;
            joined += row[c];
        }
        joined += '\n';
    }
    if (joined != Expected(data + 1, size - 1)) std::abort();

    if (!rows.empty()) {
        const std::vector<std::string>& header = rows[0];
        for (size_t r = 1; r < rows.size(); ++r) {
            if (rows[r].empty() || header.empty()) continue;
            // The last row with this identifier and the last column with this name answer.
            size_t lastRow = r, lastCol = 0;
            for (size_t k = r; k < rows.size(); ++k) {
                if (!rows[k].empty() && rows[k][0] == rows[r][0]) lastRow = k;
            }
            for (size_t c = 0; c < header.size(); ++c) {
                if (header[c] == header[0]) lastCol = c;
            }
            const std::string expected =
                lastCol < rows[lastRow].size() ? rows[lastRow][lastCol] : std::string();
            if (t.GetData(rows[r][0], header[0]) != expected) std::abort();
            break;  // one lookup per input keeps the target fast
        }
    }

    UtTable table;
    for (const auto& row : rows) {
        table.AddRow();
        for (const auto& f : row)
            table.AddElem(UtCString(f.c_str(), static_cast<int>(f.size()), eUtEncodingTypeAnsi1252,
                                    eUtEncodingTypeAnsi1252));
    }
    const long cols[] = {0, 1, 2};
    const short dirs[] = {static_cast<short>(data[0] & 1), static_cast<short>((data[0] >> 1) & 3),
                          0};
    UtTable sorted(table);
    sorted.Sort(3, cols, dirs);
    if (sorted.GetRowCount() != table.GetRowCount()) std::abort();
    // Sorting permutes rows: each column holds the same multiset of texts.
    std::vector<std::string> before = Column(table, 0), after = Column(sorted, 0);
    std::sort(before.begin(), before.end());
    std::sort(after.begin(), after.end());
    if (before != after) std::abort();
    UtTable unique(table);
    unique.RemoveDuplicate();
    if (unique.GetRowCount() > table.GetRowCount() ||
        (table.GetRowCount() > 0 && unique.GetRowCount() == 0))
        std::abort();
    const long sums[] = {1};
    const long carry[] = {2};
    table.SumColumn(1, sums, nullptr, 1, carry);
    return 0;
}
