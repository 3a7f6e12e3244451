// Arbitrary bytes as CSV for UtCCsvReader in quoted mode. The first byte picks the delimiter, the
// reader's block size, the line end written back, and whether the head is looked at first. The
// property: the records read, with every field quoted again and read a second time (from a stream),
// come back the same.
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

using Records = std::vector<std::vector<std::string>>;

Records ReadAll(UtCCsvReader& r) {
    Records out;
    for (int n; (n = r.ReadRecord()) >= 0;) {
        if (n < 1 || n != r.GetFieldCount()) std::abort();
        std::vector<std::string> fields;
        for (int i = 0; i < n; ++i) {
            const char* p = r.GetFieldPtr(i);
            const size_t length = r.GetFieldLength(i);
            if (p[length] != '\0') std::abort();  // terminated in place
            fields.emplace_back(p, length);
        }
        out.push_back(fields);
    }
    return out;
}

std::string Requote(const Records& records, char delimiter, const char* lineEnd) {
    std::string out;
    for (const auto& fields : records) {
        for (size_t i = 0; i < fields.size(); ++i) {
            if (i > 0) out += delimiter;
            out += '"';
            for (char c : fields[i]) {
                if (c == '"') out += '"';
                out += c;
            }
            out += '"';
        }
        out += lineEnd;
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;  // fmemopen takes no empty buffer
    const uint8_t control = data[0];
    static const char kDelimiters[] = {',', ';', '\t', '|'};
    static const size_t kBlocks[] = {1, 7, 64, 200};
    kbase_tables_internal::SetLineSourceLimitsForTesting(kBlocks[(control >> 2) & 3], 0);
    std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    FILE* input = fmemopen(bytes.data(), bytes.size(), "rb");
    if (input == nullptr) std::abort();
    UtCCsvReader first(input, UtCString("fuzz"));
    first.SetQuoted(true);
    first.SetDisableZ(true);
    first.SetColDelimiter(kDelimiters[control & 3]);
    if ((control & 16) != 0) (void)first.DetectFromHead(true);
    const Records records = ReadAll(first);
    if (first.GetReadState() == UtCCsvReader::eReadOk) std::abort();  // -1 always says why

    const char delimiter = first.GetColDelimiter();
    const std::string again = Requote(records, delimiter, (control & 32) != 0 ? "\r\n" : "\n");
    if (!again.empty()) {
        FILE* stream = fmemopen(const_cast<char*>(again.data()), again.size(), "rb");
        if (stream == nullptr) std::abort();
        UtCCsvReader second(stream, UtCString("again"));
        second.SetQuoted(true);
        second.SetDisableZ(true);
        second.SetColDelimiter(delimiter);
        if (ReadAll(second) != records) std::abort();
        if (second.GetReadState() != UtCCsvReader::eReadEnd) std::abort();
        std::fclose(stream);
    }
    kbase_tables_internal::SetLineSourceLimitsForTesting(0, 0);
    std::fclose(input);
    return 0;
}
