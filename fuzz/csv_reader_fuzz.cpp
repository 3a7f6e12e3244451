// Arbitrary bytes as a CSV file for UtCCsvReader: the first byte picks the delimiter and the
// switches; the scan, the row cutting and every token access must stay inside the line.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "fuzz_file.h"
#include "kbase/tables/UtCCsvReader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t control = data[0];
    FuzzFile file(data + 1, size - 1);
    UtCCsvReader r(UtCString(file.path().c_str(), eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
    static const char kDelimiters[] = {';', ',', '\t', ' '};
    r.SetColDelimiter(kDelimiters[control & 3]);
    r.SetDisableZ((control & 4) != 0);
    r.SetMaxParseIndex(control >> 4);
    if (!r.Reset((control & 8) != 0)) return 0;
    const int columns = r.GetColCount();
    uint64_t rows = 0;
    while (r.ParseNextRow((control & 16) != 0)) {
        ++rows;
        for (int i = -1; i <= columns; ++i) {
            const char* p = r.GetTokenPtr(i);
            const char* line = r.GetMLine();
            if (*p != '\0' && (p < line || p > line + std::strlen(line) + (1u << 30))) std::abort();
            double v = 0;
            (void)r.GetTokenDouble(i, v);
            (void)r.GetToken(i).GetLength();
        }
    }
    if (rows > r.GetDataRowCount()) std::abort();  // the scan counted every data row
    if (r.GetFilePosition() > r.GetFileSize()) std::abort();
    r.AutoColDel(UtCString(reinterpret_cast<const char*>(data + 1), static_cast<int>(size - 1), eUtEncodingTypeAnsi1252,
                           eUtEncodingTypeAnsi1252));
    return 0;
}
