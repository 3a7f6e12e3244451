// Arbitrary bytes as a CSV file for UtCCsvReader. The first byte picks the delimiter, the block
// size of the line source, the switches and the token limit. Properties: every row that
// ParseNextRow cuts is the file's line cut by the format's rule (token starts, terminators
// written, verdict), computed here one character at a time; every record of ReadRecord joined
// by the delimiter is the line again (lines here also end at a lone CR); the scan counted every
// data row.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "kbase/tables/UtCCsvReader.h"
#include "kbase/tables/internal/line_source.h"

KBASE_FUZZ_STRICT_DIAGNOSTICS()

namespace {

// The reader's lines: a mark skipped, LF ends a line and a CR before it goes, empty lines are
// skipped, a line starting with Ctrl-Z ends the data unless that is switched off.
std::vector<std::string> Lines(const uint8_t* data, size_t size, bool disableZ) {
    std::string text(reinterpret_cast<const char*>(data), size);
    if (text.compare(0, 3, "\xEF\xBB\xBF") == 0) text.erase(0, 3);
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        const bool lf = end != std::string::npos;
        if (!lf) end = text.size();
        std::string line = text.substr(at, end - at);
        if (lf && !line.empty() && line.back() == '\r') line.pop_back();
        at = lf ? end + 1 : end;
        if (line.empty()) continue;
        if (line[0] == '\x1A' && !disableZ) break;
        lines.push_back(line);
    }
    return lines;
}

// ReadRecord's records without quotes: a lone CR ends one too (files from old Macs).
std::vector<std::string> Records(const uint8_t* data, size_t size, bool disableZ) {
    std::string text(reinterpret_cast<const char*>(data), size);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n')) text[i] = '\n';
    }
    return Lines(reinterpret_cast<const uint8_t*>(text.data()), text.size(), disableZ);
}

struct Cut {
    std::string line;         // with the terminators written in
    std::vector<int> starts;  // of the tokens recorded
    bool verdict;
};

// The cutting rule, one character at a time.
Cut CutLine(std::string line, char d, int limit) {
    Cut cut{line, {0}, true};
    int found = 1;
    if (limit < 2) {
        cut.verdict = found >= limit;
        return cut;
    }
    size_t first = 0;
    while (first < line.size() && line[first] == d) ++first;
    if (first == line.size()) first = 0;
    for (size_t m = first + 1; m < line.size(); ++m) {
        if (line[m] == d || line[m - 1] != d) continue;
        cut.line[m - 1] = '\0';
        if (found >= limit) break;
        cut.starts.push_back(static_cast<int>(m));
        ++found;
    }
    if (!line.empty() && line.back() == d) cut.line.back() = '\0';
    cut.verdict = found >= limit;
    return cut;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;  // fmemopen takes no empty buffer
    const uint8_t control = data[0];
    static const char kDelimiters[] = {';', ',', '\t', ' '};
    static const size_t kBlocks[] = {1, 7, 64, 200};
    const char delimiter = kDelimiters[control & 3];
    const bool disableZ = (control & 4) != 0;
    const bool all = (control & 16) != 0;
    kbase_tables_internal::SetLineSourceLimitsForTesting(kBlocks[(control >> 5) & 3], 0);
    // Memory streams rather than files: the reader's path opening is the table target's.
    std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    FILE* stream = fmemopen(bytes.data(), size - 1, "rb");
    FILE* again = fmemopen(bytes.data(), size - 1, "rb");
    if (stream == nullptr || again == nullptr) std::abort();
    const std::vector<std::string> lines = Lines(data + 1, size - 1, disableZ);

    UtCCsvReader r(stream, UtCString("fuzz"));
    r.SetColDelimiter(delimiter);
    r.SetDisableZ(disableZ);
    r.SetMaxParseIndex(control >> 7 ? 1 : 3);
    if (!r.Reset((control & 8) != 0)) std::abort();  // a readable file always rewinds
    const char d = r.GetColDelimiter();              // detection may have chosen another
    const int columns = r.GetColCount();
    int limit = all ? columns : std::min(columns, r.GetMaxParseIndex());
    size_t row = r.GetTitleLineCount();
    if (columns > 0 && r.GetDataRowCount() + row != lines.size()) std::abort();
    for (bool more = true; more;) {
        const bool verdict = r.ParseNextRow(all);
        if (columns == 0 || row >= lines.size()) {
            if (verdict) std::abort();
            break;
        }
        const Cut cut = CutLine(lines[row], d, limit);
        if (verdict != cut.verdict) std::abort();
        if (std::memcmp(r.GetMLine(), cut.line.data(), cut.line.size()) != 0) std::abort();
        const std::vector<int>& starts = r.GetMTokenStartIndex();
        for (size_t i = 0; i < starts.size(); ++i) {
            if (starts[i] != (i < cut.starts.size() ? cut.starts[i] : -1)) std::abort();
        }
        for (int i = -1; i <= columns; ++i) {
            double v = 0;
            (void)r.GetTokenDouble(i, v);
            const bool inside = i >= 0 && static_cast<size_t>(i) < cut.starts.size();
            const std::string expected =
                inside ? std::string(cut.line.c_str() + cut.starts[i]) : std::string();
            if (std::strcmp(r.GetTokenPtr(i), expected.c_str()) != 0) std::abort();
        }
        ++row;
        more = row <= lines.size();
    }
    if (r.GetFileSize() != 0 && r.GetFilePosition() > r.GetFileSize()) std::abort();  // 0: unknown

    // ReadRecord cuts at every delimiter: joined again, a record is its line.
    UtCCsvReader records(again, UtCString("fuzz"));
    records.SetColDelimiter(d);
    records.SetDisableZ(disableZ);
    const std::vector<std::string> expected = Records(data + 1, size - 1, disableZ);
    size_t n = 0;
    for (int fields; (fields = records.ReadRecord()) >= 0; ++n) {
        std::string joined;
        for (int i = 0; i < fields; ++i) {
            if (i > 0) joined += d;
            joined.append(records.GetFieldPtr(i), records.GetFieldLength(i));
        }
        if (n >= expected.size() || joined != expected[n]) std::abort();
    }
    if (n != expected.size() || records.GetReadState() != UtCCsvReader::eReadEnd) std::abort();
    kbase_tables_internal::SetLineSourceLimitsForTesting(0, 0);
    std::fclose(stream);
    std::fclose(again);
    return 0;
}
