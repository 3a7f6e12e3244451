// csv_columns FILE.csv: the delimiter, the number of data rows, and each column's title (in UTF-8)
// with the kind of its values. A file without a UTF-8 mark is read as Windows-1252.
#include <cstdint>
#include <cstdio>

#include "kbase/tables/UtCCsvReader.h"
#include "kbase/text/UtCString.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: csv_columns FILE.csv\n");
        return 2;
    }
    UtCCsvReader csv(UtCString(argv[1], eUtEncodingTypeUtf8, eUtEncodingTypeUtf8));
    csv.SetFileEncoding(eUtEncodingTypeAnsi1252);
    // Guesses the delimiter, counts the title lines and classifies every column's values.
    if (!csv.Reset(true)) {
        std::fprintf(stderr, "csv_columns: cannot read %s\n", argv[1]);
        return 1;
    }
    std::printf("delimiter '%c', %llu data rows\n", csv.GetColDelimiter(),
                static_cast<unsigned long long>(csv.GetDataRowCount()));
    // The last title line names the columns (a short one leaves the last titles empty).
    const uint64_t titleLines = csv.GetTitleLineCount();
    csv.SetToFirstRow(false);
    for (uint64_t i = 1; i < titleLines; ++i) csv.SkipNextRow();
    if (titleLines > 0) csv.ParseNextRow(true);
    for (int c = 0; c < csv.GetColCount(); ++c) {
        // The token is in the file's encoding; the copy converts it.
        const UtCString title(titleLines > 0 ? csv.GetToken(c) : UtCString(), eUtEncodingTypeUtf8);
        const uint32_t kinds = csv.GetMColumnTypeMasks()[static_cast<size_t>(c)].implicitMask;
        std::printf("%d %s: %s\n", c + 1, title.stringSkipBOM(),
                    (kinds & UtCCsvReader::eTypeText) != 0 ? "text" : "numbers");
    }
    return 0;
}
