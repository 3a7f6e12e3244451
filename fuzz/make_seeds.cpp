// Writes the seed corpora of the fuzz targets, at build time, from real files: the CSV files of
// the shared data folder and the project's own sample files. Seeds are made in each target's
// input layout (a control byte, a program, ...) and, for the binary formats, written by the
// library itself from the fields of those files, so that fuzzing starts from valid records.
//
// make_seeds <output folder> <file>...   (each target gets <output folder>/<target>/)
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "basert/memory.h"
#include "basert/xdr.h"
#include "kbase/streams/XdStream.h"
#include "kbase/text/UtCString.h"
#include "kbase/text/UtCStringList.h"

namespace fs = std::filesystem;

namespace {

constexpr size_t kHead = 1500;  // bytes of a file in a text seed: past every buffer of a fuzz build
constexpr size_t kMaxFields = 400;
constexpr size_t kGaebSeed = 2048;  // the GAEB target's longest input  // distinct fields kept for the string targets

std::string ReadHead(const fs::path& p, size_t n) {
    std::ifstream in(p, std::ios::binary);
    std::string s(n, '\0');
    in.read(s.data(), static_cast<std::streamsize>(n));
    s.resize(static_cast<size_t>(in.gcount()));
    return s;
}

// The last n bytes of a file (all of a shorter one).
std::string ReadTail(const fs::path& p, size_t n) {
    std::ifstream in(p, std::ios::binary | std::ios::ate);
    const auto size = static_cast<size_t>(in.tellg());
    in.seekg(static_cast<std::streamoff>(size > n ? size - n : 0));
    std::string s(size > n ? n : size, '\0');
    in.read(s.data(), static_cast<std::streamsize>(s.size()));
    s.resize(static_cast<size_t>(in.gcount()));
    return s;
}

// Whether a file's first line opens a GAEB block (in any case, after blanks).
bool IsGaeb(const std::string& head) {
    size_t i = head.find_first_not_of(" \t\r\n");
    if (i == std::string::npos || head.size() - i < 7) return false;
    std::string tag = head.substr(i, 7);
    for (char& c : tag) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return tag == "#begin[";
}

class Writer {
  public:
    explicit Writer(fs::path root) : root_(std::move(root)) {}
    void Put(const std::string& target, const std::string& bytes) {
        const fs::path dir = root_ / target;
        fs::create_directories(dir);
        std::ofstream out(dir / ("seed_" + std::to_string(count_[target]++)), std::ios::binary);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }

  private:
    fs::path root_;
    std::map<std::string, int> count_;
};

// The lines of a text cut at ';', ',' and TAB.
std::vector<std::vector<std::string>> Rows(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row(1);
    for (char c : text) {
        if (c == '\n' || c == '\r') {
            if (row.size() > 1 || !row[0].empty()) rows.push_back(row);
            row.assign(1, std::string());
        } else if (c == ';' || c == ',' || c == '\t') {
            row.emplace_back();
        } else {
            row.back() += c;
        }
    }
    if (row.size() > 1 || !row[0].empty()) rows.push_back(row);
    return rows;
}

std::string Prefixed(uint8_t control, const std::string& body) {
    return std::string(1, static_cast<char>(control)) + body;
}

// XDR data written by the library: a program of item kinds and the items' bytes.
// With a header, the data is a checked stream's file.
std::string XdrItems(const std::vector<std::string>& row, const uint8_t* program, bool withHeader) {
    std::vector<unsigned char> block(4096);
    XD_XDR_STRUCT x{};
    if (!XdOpenMemIo(&x, block.data(), block.size(), XDR_ENCODE)) return std::string();
    if (withHeader && OsMagicWrite(&x, 1, 2, 3, 'a', 0) != kXdMagicOk) return std::string();
    for (size_t i = 0; i < row.size() && i < 24; ++i) {
        const UtCString field(row[i].c_str(), eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252);
        double d = 0;
        int n = 0;
        if (field.Convert(n)) {
            (void)Xdr_INT(&x, &n);
        } else if (field.Convert(d)) {
            (void)Xdr_REAL(&x, &d);
        } else {
            char* p = const_cast<char*>(row[i].c_str());
            if (!Xdr_A_STRING(&x, &p)) break;
        }
    }
    const size_t used = static_cast<size_t>(Xdr_getpos(&x).value);
    XdClose(&x);
    return std::string(reinterpret_cast<const char*>(program), 8) +
           std::string(reinterpret_cast<const char*>(block.data()), used);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: make_seeds <output folder> <file>...\n");
        return 2;
    }
    Writer w(argv[1]);
    std::set<std::string> fields;
    std::vector<std::vector<std::string>> sampleRows;
    for (int i = 2; i < argc; ++i) {
        const std::string head = ReadHead(argv[i], kHead);
        if (head.empty()) continue;
        // The streaming decoder: the head as text of a few pages (1252, 932, GB 18030, UTF-8,
        // ISO-2022-JP), cut one way.
        for (uint8_t page : {0x00, 0x04, 0x0A, 0x0B, 0x0C})
            w.Put("codepage_decoder_fuzz", Prefixed(page, Prefixed(0x5A, head)));
        // A bill: its opening and its end (the trailer and the closing blocks), each a whole
        // input of the reader.
        if (IsGaeb(head)) {
            w.Put("gaeb_fuzz", ReadHead(argv[i], kGaebSeed));
            w.Put("gaeb_fuzz", ReadTail(argv[i], kGaebSeed));
            continue;
        }
        // CSV targets: the file's head under a few control bytes (delimiters, block sizes,
        // switches), each target reading the byte its own way.
        for (uint8_t control : {0x00, 0x19, 0x2A, 0x47, 0x9C, 0xF3}) {
            w.Put("csv_reader_fuzz", Prefixed(control, head));
            w.Put("csv_quoted_fuzz", Prefixed(control, head));
        }
        for (char d : {';', ',', '\t'})
            w.Put("csv_table_fuzz", Prefixed(static_cast<uint8_t>(d), head));
        const auto rows = Rows(head);
        for (const auto& row : rows) {
            for (const auto& f : row) {
                if (fields.size() < kMaxFields && !f.empty()) fields.insert(f);
            }
        }
        for (size_t r = 0; r < rows.size() && r < 4; ++r) sampleRows.push_back(rows[r]);
    }

    int n = 0;
    for (const std::string& f : fields) {
        const uint8_t control = static_cast<uint8_t>(n++);
        w.Put("string_number_fuzz", Prefixed(control, f));
        w.Put("string_convert_fuzz", Prefixed(control, f));
        w.Put("string_compare_fuzz", Prefixed(control, f + "\xFF" + f + "1"));
        const UtCString s(f.c_str(), eUtEncodingTypeAnsi1252,
                          n % 3 == 0   ? eUtEncodingTypeUtf16
                          : n % 3 == 1 ? eUtEncodingTypeUtf8
                                       : eUtEncodingTypeAnsi1252);
        unsigned char* block = nullptr;
        uint64_t size = 0;
        if (s.SaveToMem(&block, size))
            w.Put("string_record_fuzz", std::string(reinterpret_cast<char*>(block), size));
        UtFreeMemory(block);
    }

    static const uint8_t kPrograms[][8] = {
        {0, 8, 21, 1, 9, 19, 22, 25}, {19, 19, 0, 0, 8, 8, 21, 2}, {20, 13, 14, 15, 16, 17, 18, 0}};
    n = 0;
    for (const auto& row : sampleRows) {
        UtCStringList list;
        for (const auto& f : row)
            list.Add(UtCString(f.c_str(), eUtEncodingTypeAnsi1252, eUtEncodingTypeAnsi1252));
        unsigned char* block = nullptr;
        uint64_t size = 0;
        if (list.SaveToMem(&block, size))
            w.Put("stringlist_record_fuzz", std::string(reinterpret_cast<char*>(block), size));
        UtFreeMemory(block);
        const uint8_t* program = kPrograms[n % 3];
        const std::string items = XdrItems(row, program, false);
        for (uint8_t kind = 0; kind < 4; ++kind) w.Put("xdr_fuzz", Prefixed(kind, items));
        w.Put("xdr_fuzz", Prefixed(4, XdrItems(row, program, true)));
        w.Put("xdr_roundtrip_fuzz", Prefixed(static_cast<uint8_t>(n), items));
        w.Put("xdstdio_fuzz", Prefixed(static_cast<uint8_t>(n), XdrItems(row, program, true)));
        ++n;
    }
    return 0;
}
